#pragma once

#include "multimedia/facedetectcnn/datablob.h"

struct Filters;

namespace facedetectcnn {
struct KernelFamily;
}

/// @file
/// The operations of the network on blobs.
///
/// All give true on success. On failure they write the function's name and the reason to the standard error
/// stream, give false and leave the output as it was: in the network that is empty, which makes the
/// operations behind them fail in turn.
///
/// Activations are non-negative bytes at a scale of their own, found anew for each image; filters are signed
/// bytes at a scale per layer. Convolutions add up in 32 bits that wrap. The vector forms behind these
/// functions give the same bits as the scalar loops (see kernelchoice.h). A blob is used by one thread at a
/// time; filters may be shared.

/// Convolution with 1x1 filters (pad 0, stride 1) or 3x3 filters (pad 1, stride 1 or 2), with zeros around
/// the input. The output's scale is the product of both scales, its bias that scale rounded.
bool convolution(const CDataBlob<unsigned char>& input, const Filters& filters,
                 CDataBlob<std::int32_t>* output);

/// `convolution` by two layers of 3x3 filters that see the same input, in that order. Where `first` is packed
/// with `second` both run as one, since the filters of both share blocks: 42 and 6 fill three, but four when
/// each is by itself. False when either fails.
bool convolutionPair(const CDataBlob<unsigned char>& input, const Filters& first, const Filters& second,
                     CDataBlob<std::int32_t>* firstOutput, CDataBlob<std::int32_t>* secondOutput);

/// The sums of `convolution` for filters and an output that fit.
bool convolution1x1P0S1(const CDataBlob<unsigned char>& input, const Filters& filters,
                        CDataBlob<std::int32_t>* output);
/// Likewise, for 3x3 filters with pad 1.
bool convolution3x3P0(const CDataBlob<unsigned char>& input, const Filters& filters,
                      CDataBlob<std::int32_t>* output);

/// `convolution`, negative sums made 0, and the rest brought back to bytes so that the largest becomes 255.
/// An output of zeros only has an infinite scale.
bool convolution_relu(const CDataBlob<unsigned char>& input, const Filters& filters,
                      CDataBlob<unsigned char>* output);

/// `convolution_relu` by a family of kernels that need not be the one in use.
bool convolution_relu(const facedetectcnn::KernelFamily& family, const CDataBlob<unsigned char>& input,
                      const Filters& filters, CDataBlob<unsigned char>* output);

/// Largest values of 2x2 windows; an odd last column or row is dropped.
bool maxpooling2x2S2(const CDataBlob<unsigned char>& input, CDataBlob<unsigned char>* output);

/// Flattens to 1 x 1 x n in the order row, column, channel, without pad bytes.
template<class T>
bool blob2vector(const CDataBlob<T>& input, CDataBlob<T>* output);

extern template bool blob2vector(const CDataBlob<signed char>& input, CDataBlob<signed char>* output);
extern template bool blob2vector(const CDataBlob<std::int32_t>& input, CDataBlob<std::int32_t>* output);
extern template bool blob2vector(const CDataBlob<float>& input, CDataBlob<float>* output);

/// Puts the channels of four inputs of one size one behind the other.
template<class T>
bool concat4(const CDataBlob<T>& first, const CDataBlob<T>& second, const CDataBlob<T>& third,
             const CDataBlob<T>& fourth, CDataBlob<T>* output);

extern template bool concat4(const CDataBlob<float>& first, const CDataBlob<float>& second,
                             const CDataBlob<float>& third, const CDataBlob<float>& fourth,
                             CDataBlob<float>* output);

/// Stored integers to real values.
bool convertInt2Float(const CDataBlob<std::int32_t>& input, CDataBlob<float>* output);

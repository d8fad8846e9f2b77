#pragma once

extern "C" {
#include <libavutil/tx.h>
}

#include <memory>

/// The real forward transform of 2048 points, not normalised, by FFmpeg.
///
/// One thread at a time; calls allocate nothing.
class FFTRealWrapper
{
public:
    static constexpr int kPoints = 2048;

    FFTRealWrapper();
    ~FFTRealWrapper();
    FFTRealWrapper(const FFTRealWrapper&) = delete;
    FFTRealWrapper& operator=(const FFTRealWrapper&) = delete;

    /// @param out  `kPoints` values: the real parts of bins 0 to 1024, then the imaginary parts of bins 1 to
    ///             1023, so that the imaginary part of bin k stands at 1024 + k
    /// @param in   `kPoints` samples; may be unaligned
    /// All zero when the transform could not be set up.
    void calculateFFT(float* out, const float* in);

private:
    struct ContextDeleter
    {
        void operator()(AVTXContext* context) const { av_tx_uninit(&context); }
    };
    struct Buffers;

    std::unique_ptr<AVTXContext, ContextDeleter> context;
    av_tx_fn transform = nullptr;
    std::unique_ptr<Buffers> buffers; ///< aligned as FFmpeg's vector code wants them
};

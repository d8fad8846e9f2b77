#pragma once

#include "multimedia/facedetectcnn/datablob.h"

#include <array>
#include <functional>
#include <utility>
#include <vector>

/// @file
/// From the network's heads to boxes: the boxes that the heads correct, probabilities, decoding, suppression.
/// Single precision throughout; coordinates are fractions of the image. Failures are reported as in
/// kernels.h. Boxes, variances and suppression are those of the Single Shot MultiBox Detector (Liu et al.,
/// 2016).

struct NormalizedBBox_
{
    float xmin;
    float ymin;
    float xmax;
    float ymax;
    std::array<float, 10> lm; ///< x then y of five landmarks
};

using ScoredBox = std::pair<float, NormalizedBBox_>;

/// Lays a square box of each of `numSizes` sizes (pixels) around the centre of each cell of the feature map,
/// cells being `step` pixels apart. Boxes are not clipped.
///
/// @param featureData  gives the grid's width and height only
/// @param outputData   becomes feature width x feature height x 4 * numSizes: left, top, right, bottom of
/// each
bool priorbox(const CDataBlob<unsigned char>& featureData, std::int32_t imageWidth, std::int32_t imageHeight,
              std::int32_t step, std::int32_t numSizes, const float* sizes, CDataBlob<float>* outputData);

/// Makes each pair of channels of a flat blob (background, face) into probabilities.
bool softmax1vector2class(CDataBlob<float>* inputOutputData);

/// Where both boxes are, or a box of zeros.
void IntersectBBox(const NormalizedBBox_& bbox1, const NormalizedBBox_& bbox2,
                   NormalizedBBox_* intersectBBox);

/// Intersection over union, 0 to 1.
float JaccardOverlap(const NormalizedBBox_& bbox1, const NormalizedBBox_& bbox2);

bool SortScoreBBoxPairDescend(const ScoredBox& pair1, const ScoredBox& pair2);

/// Decodes the boxes whose score is above `confidenceThreshold` and keeps the best of those that overlap by
/// more than `overlapThreshold`. Equal scores keep the order of their priors.
///
/// @param priorbox   flat, 4 values a prior
/// @param loc        flat, 14 values a prior: 4 of the box, 10 of the landmarks
/// @param conf       flat, 2 values a prior: probability of background and of a face
/// @param topK       candidates that go into the suppression; negative for all
/// @param keepTopK   boxes that come out of it; negative for all
/// @param output     becomes n x 1 x 15 (score, box, landmarks), or empty when there is no box
bool detection_output(const CDataBlob<float>& priorbox, const CDataBlob<float>& loc,
                      const CDataBlob<float>& conf, float overlapThreshold, float confidenceThreshold,
                      std::int32_t topK, std::int32_t keepTopK, CDataBlob<float>* output);

namespace facedetectcnn {

inline constexpr std::int32_t kLocationValues = 14; ///< of a prior box: 4 of the box, 10 of the landmarks

/// A prior box that could be a face's.
struct Candidate
{
    float score;
    std::int32_t prior; ///< its place in the order of the priors
};

/// A prior box (left, top, right, bottom) as its location values correct it. Landmarks are relative to the
/// prior, as the box is, and are not clipped.
NormalizedBBox_ decodedBox(const float* prior, const float* location);

/// The best of those candidates that overlap by more than `overlapThreshold`, in order of their scores, with
/// the limits of `detection_output`. `boxOf` is asked for the boxes of those only that come up.
std::vector<ScoredBox> bestBoxes(std::vector<Candidate> candidates, float overlapThreshold, std::int32_t topK,
                                 std::int32_t keepTopK,
                                 const std::function<NormalizedBBox_(std::int32_t prior)>& boxOf);

} // namespace facedetectcnn

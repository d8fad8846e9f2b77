#include "multimedia/facedetectcnn/detectionoutput.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

namespace {

constexpr float kCentreVariance = 0.1F;
constexpr float kSizeVariance = 0.2F;
constexpr std::int32_t kLocationValues = 14;
constexpr std::int32_t kOutputValues = 15;

bool complain(const char* text)
{
    std::fprintf(stderr, "%s\n", text);
    return false;
}

float area(const NormalizedBBox_& box)
{
    return (box.xmax - box.xmin) * (box.ymax - box.ymin);
}

/// Landmarks are relative to the prior, as the box is, and are not clipped.
NormalizedBBox_ decode(const float* prior, const float* location)
{
    const float priorWidth = prior[2] - prior[0];
    const float priorHeight = prior[3] - prior[1];
    const float priorX = (prior[0] + prior[2]) * 0.5F;
    const float priorY = (prior[1] + prior[3]) * 0.5F;

    const float x = location[0] * kCentreVariance * priorWidth + priorX;
    const float y = location[1] * kCentreVariance * priorHeight + priorY;
    const float width = std::exp(location[2] * kSizeVariance) * priorWidth;
    const float height = std::exp(location[3] * kSizeVariance) * priorHeight;

    NormalizedBBox_ box = {};
    box.xmin = std::max(x - width * 0.5F, 0.0F);
    box.ymin = std::max(y - height * 0.5F, 0.0F);
    box.xmax = std::min(x + width * 0.5F, 1.0F);
    box.ymax = std::min(y + height * 0.5F, 1.0F);
    for (std::size_t i = 0; i < box.lm.size(); i += 2) {
        box.lm[i] = location[4 + i] * kCentreVariance * priorWidth + priorX;
        box.lm[i + 1] = location[5 + i] * kCentreVariance * priorHeight + priorY;
    }
    return box;
}

std::vector<ScoredBox> candidates(const CDataBlob<float>& priors, const CDataBlob<float>& locations,
                                  const CDataBlob<float>& confidences, float threshold)
{
    std::vector<ScoredBox> found;
    for (std::int32_t i = 0; i < confidences.channels / 2; ++i) {
        const float score = confidences.data[2 * i + 1];
        if (score > threshold)
            found.emplace_back(score,
                               decode(priors.data + 4 * static_cast<std::ptrdiff_t>(i),
                                      locations.data + kLocationValues * static_cast<std::ptrdiff_t>(i)));
    }
    return found;
}

/// Those of the sorted boxes that overlap no better one kept, at most `limit`.
std::vector<ScoredBox> suppressOverlaps(const std::vector<ScoredBox>& sorted, float threshold,
                                        std::size_t limit)
{
    std::vector<ScoredBox> kept;
    for (const ScoredBox& candidate : sorted) {
        if (kept.size() >= limit)
            break;
        const bool overlaps = std::any_of(kept.begin(), kept.end(), [&](const ScoredBox& better) {
            return JaccardOverlap(candidate.second, better.second) > threshold;
        });
        if (!overlaps)
            kept.push_back(candidate);
    }
    return kept;
}

/// Negative limits stand for none.
std::size_t limitOf(std::int32_t limit)
{
    return limit < 0 ? std::numeric_limits<std::size_t>::max() : static_cast<std::size_t>(limit);
}

bool writeBoxes(const std::vector<ScoredBox>& boxes, CDataBlob<float>* output)
{
    if (!output->create(static_cast<std::int32_t>(boxes.size()), 1, kOutputValues))
        return false;
    for (std::int32_t i = 0; i < output->width; ++i) {
        const auto& [score, box] = boxes[i];
        float* values = output->pixel(i, 0);
        *values++ = score;
        *values++ = box.xmin;
        *values++ = box.ymin;
        *values++ = box.xmax;
        *values++ = box.ymax;
        std::copy(box.lm.begin(), box.lm.end(), values);
    }
    return true;
}

} // namespace

bool priorbox(const CDataBlob<unsigned char>& featureData, std::int32_t imageWidth, std::int32_t imageHeight,
              std::int32_t step, std::int32_t numSizes, const float* sizes, CDataBlob<float>* outputData)
{
    if (!sizes || !featureData.data)
        return complain("priorbox: The input data is null.");
    if (!outputData->create(featureData.width, featureData.height, 4 * numSizes))
        return false;

    const auto width = static_cast<float>(imageWidth);
    const auto height = static_cast<float>(imageHeight);
    for (std::int32_t y = 0; y < featureData.height; ++y) {
        for (std::int32_t x = 0; x < featureData.width; ++x) {
            const float centreX = (static_cast<float>(x) + 0.5F) * static_cast<float>(step);
            const float centreY = (static_cast<float>(y) + 0.5F) * static_cast<float>(step);
            float* box = outputData->pixel(x, y);
            for (std::int32_t i = 0; i < numSizes; ++i) {
                const float half = sizes[i] * 0.5F;
                *box++ = (centreX - half) / width;
                *box++ = (centreY - half) / height;
                *box++ = (centreX + half) / width;
                *box++ = (centreY + half) / height;
            }
        }
    }
    return true;
}

bool softmax1vector2class(CDataBlob<float>* inputOutputData)
{
    if (!inputOutputData || !inputOutputData->data)
        return complain("softmax1vector2class: The input data is null.");
    if (inputOutputData->width != 1 || inputOutputData->height != 1)
        return complain("softmax1vector2class: The input data must be Cx1x1.");

    for (std::int32_t i = 0; i + 1 < inputOutputData->channels; i += 2) {
        float* pair = inputOutputData->data + i;
        const float larger = std::max(pair[0], pair[1]);
        const float background = std::exp(pair[0] - larger);
        const float face = std::exp(pair[1] - larger);
        pair[0] = background / (background + face);
        pair[1] = face / (background + face);
    }
    return true;
}

void IntersectBBox(const NormalizedBBox_& bbox1, const NormalizedBBox_& bbox2, NormalizedBBox_* intersectBBox)
{
    *intersectBBox = {};
    if (bbox2.xmin > bbox1.xmax || bbox1.xmin > bbox2.xmax || bbox2.ymin > bbox1.ymax ||
        bbox1.ymin > bbox2.ymax)
        return;
    intersectBBox->xmin = std::max(bbox1.xmin, bbox2.xmin);
    intersectBBox->ymin = std::max(bbox1.ymin, bbox2.ymin);
    intersectBBox->xmax = std::min(bbox1.xmax, bbox2.xmax);
    intersectBBox->ymax = std::min(bbox1.ymax, bbox2.ymax);
}

float JaccardOverlap(const NormalizedBBox_& bbox1, const NormalizedBBox_& bbox2)
{
    NormalizedBBox_ shared = {};
    IntersectBBox(bbox1, bbox2, &shared);
    if (shared.xmax - shared.xmin <= 0.0F || shared.ymax - shared.ymin <= 0.0F)
        return 0.0F;
    const float sharedArea = area(shared);
    return sharedArea / (area(bbox1) + area(bbox2) - sharedArea);
}

bool SortScoreBBoxPairDescend(const ScoredBox& pair1, const ScoredBox& pair2)
{
    return pair1.first > pair2.first;
}

bool detection_output(const CDataBlob<float>& priorbox, const CDataBlob<float>& loc,
                      const CDataBlob<float>& conf, float overlapThreshold, float confidenceThreshold,
                      std::int32_t topK, std::int32_t keepTopK, CDataBlob<float>* output)
{
    if (!priorbox.data || !loc.data || !conf.data)
        return complain("detection_output: The input data is null.");
    if (priorbox.channels != 2 * conf.channels || loc.channels != 7 * conf.channels) {
        std::fprintf(stderr,
                     "detection_output: The sizes of the inputs are not match.\n"
                     "priorbox channels=%d, loc channels=%d, conf channels=%d\n",
                     priorbox.channels, loc.channels, conf.channels);
        return false;
    }

    std::vector<ScoredBox> boxes = candidates(priorbox, loc, conf, confidenceThreshold);
    std::stable_sort(boxes.begin(), boxes.end(), SortScoreBBoxPairDescend);
    boxes.resize(std::min(boxes.size(), limitOf(topK)));
    boxes = suppressOverlaps(boxes, overlapThreshold, limitOf(keepTopK));

    if (boxes.empty()) {
        output->clear();
        return true;
    }
    return writeBoxes(boxes, output);
}

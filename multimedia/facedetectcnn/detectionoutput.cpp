#include "multimedia/facedetectcnn/detectionoutput.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

namespace {

using facedetectcnn::Candidate;

constexpr float kCentreVariance = 0.1F;
constexpr float kSizeVariance = 0.2F;
constexpr std::int32_t kOutputValues = 15;

bool isApart(const NormalizedBBox_& a, const NormalizedBBox_& b)
{
    // Both are looked at: a branch costs more.
    const int is_beside = std::min(a.xmax, b.xmax) <= std::max(a.xmin, b.xmin);
    const int is_above = std::min(a.ymax, b.ymax) <= std::max(a.ymin, b.ymin);
    return (is_beside | is_above) != 0;
}

bool complain(const char* text)
{
    std::fprintf(stderr, "%s\n", text);
    return false;
}

float area(const NormalizedBBox_& box)
{
    return (box.xmax - box.xmin) * (box.ymax - box.ymin);
}

/// Of equal candidates the one of the later prior is worse. A type, so that the heap's loops have it inline.
struct IsWorse
{
    bool operator()(const Candidate& a, const Candidate& b) const
    {
        return a.score < b.score || (a.score == b.score && a.prior > b.prior);
    }
};

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

namespace facedetectcnn {

NormalizedBBox_ decodedBox(const float* prior, const float* location)
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

std::vector<ScoredBox> bestBoxes(std::vector<Candidate> candidates, float overlapThreshold, std::int32_t topK,
                                 std::int32_t keepTopK,
                                 const std::function<NormalizedBBox_(std::int32_t prior)>& boxOf)
{
    std::vector<ScoredBox> kept;
    std::make_heap(candidates.begin(), candidates.end(), IsWorse());
    for (std::size_t left = std::min(candidates.size(), limitOf(topK));
         left > 0 && kept.size() < limitOf(keepTopK); --left) {
        std::pop_heap(candidates.begin(), candidates.end(), IsWorse());
        const NormalizedBBox_ box = boxOf(candidates.back().prior);
        const bool overlaps = std::any_of(kept.begin(), kept.end(), [&](const ScoredBox& better) {
            return !isApart(box, better.second) && JaccardOverlap(box, better.second) > overlapThreshold;
        });
        if (!overlaps)
            kept.emplace_back(candidates.back().score, box);
        candidates.pop_back();
    }
    return kept;
}

} // namespace facedetectcnn

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

    std::vector<Candidate> candidates;
    for (std::int32_t i = 0; i < conf.channels / 2; ++i) {
        const float score = conf.data[2 * i + 1];
        if (score > confidenceThreshold)
            candidates.push_back({score, i});
    }
    const std::vector<ScoredBox> boxes = facedetectcnn::bestBoxes(
        std::move(candidates), overlapThreshold, topK, keepTopK, [&](std::ptrdiff_t prior) {
            return facedetectcnn::decodedBox(priorbox.data + 4 * prior,
                                             loc.data + facedetectcnn::kLocationValues * prior);
        });

    if (boxes.empty()) {
        output->clear();
        return true;
    }
    return writeBoxes(boxes, output);
}

#include "multimedia/facedetectcnn/facedetectcnn.h"

#include "multimedia/facedetectcnn/detectionoutput.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "multimedia/facedetectcnn/kernels.h"
#include "multimedia/facedetectcnn/network.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

using facedetectcnn::Branch;
using facedetectcnn::Branches;
using facedetectcnn::Candidate;
using facedetectcnn::kLocationValues;

constexpr float kOverlapThreshold = 0.3F;
constexpr float kConfidenceThreshold = 0.5F;
constexpr std::int32_t kCandidates = 1000;
constexpr std::int32_t kFaces = 100;

constexpr std::size_t kMaxRecords = 256;
constexpr std::size_t kRecordBytes = 284;
constexpr std::size_t kRecordValues = 15;

bool isComplete(const Branches& branches)
{
    return std::all_of(branches.begin(), branches.end(), [](const Branch& branch) {
        return branch.priors.data && branch.locations.data && branch.confidences.data;
    });
}

/// The branches' values of one kind, flat and one branch behind the other.
bool joinPriors(const Branches& branches, CDataBlob<float>* joined)
{
    std::array<CDataBlob<float>, 4> flat;
    for (std::size_t i = 0; i < branches.size(); ++i)
        blob2vector(branches[i].priors, &flat[i]);
    return concat4(flat[0], flat[1], flat[2], flat[3], joined);
}

bool joinHeads(const Branches& branches, CDataBlob<std::int32_t> Branch::*head, CDataBlob<float>* joined)
{
    std::array<CDataBlob<float>, 4> real;
    for (std::size_t i = 0; i < branches.size(); ++i) {
        CDataBlob<std::int32_t> flat;
        blob2vector(branches[i].*head, &flat);
        convertInt2Float(flat, &real[i]);
    }
    return concat4(real[0], real[1], real[2], real[3], joined);
}

/// All values of all branches, stage by stage: the reference. Says what is missing.
std::vector<ScoredBox> boxesByStages(const Branches& branches)
{
    CDataBlob<float> priors;
    CDataBlob<float> locations;
    CDataBlob<float> confidences;
    joinPriors(branches, &priors);
    joinHeads(branches, &Branch::locations, &locations);
    joinHeads(branches, &Branch::confidences, &confidences);
    softmax1vector2class(&confidences);

    CDataBlob<float> output;
    detection_output(priors, locations, confidences, kOverlapThreshold, kConfidenceThreshold, kCandidates,
                     kFaces, &output);
    std::vector<ScoredBox> boxes(static_cast<std::size_t>(output.width));
    for (std::int32_t i = 0; i < output.width; ++i) {
        const float* values = output.pixel(i, 0);
        auto& [score, box] = boxes[i];
        score = values[0];
        box = {values[1], values[2], values[3], values[4], {}};
        std::copy(values + 5, values + kRecordValues, box.lm.begin());
    }
    return boxes;
}

std::int32_t priorsPerCell(const Branch& branch)
{
    return branch.confidences.channels / 2;
}

/// A prior box whose face has more for it than its background, and by how much.
struct Lead
{
    float margin;
    std::int32_t prior; ///< its place in the order of all priors
};

/// Writes a branch's leads, and gives the place behind the last. Without a lead the probability of a face is
/// not above a half: most prior boxes cost no more than this look.
Lead* findLeads(const Branch& branch, std::int32_t firstPrior, Lead* leads)
{
    static_assert(kConfidenceThreshold >= 0.5F);
    const float inverse = 1.0F / branch.confidences.scale;
    const std::int32_t perCell = priorsPerCell(branch);
    std::int32_t prior = firstPrior;
    for (std::size_t cell = 0; cell < branch.confidences.pixelCount(); ++cell) {
        const std::int32_t* values = branch.confidences.pixel(static_cast<std::int32_t>(cell), 0);
        for (std::int32_t i = 0; i < perCell; ++i, values += 2) {
            *leads = {static_cast<float>(values[1]) * inverse - static_cast<float>(values[0]) * inverse,
                      prior++};
            leads += values[1] > values[0] ? 1 : 0;
        }
    }
    return leads;
}

/// A margin such that no lead below it can be one of the best `kCandidates`. From one whole number to the
/// next but one the probability grows by more than it is rounded, up to 16 where it comes to stand at 1.
float worthwhileMargin(const std::vector<Lead>& leads)
{
    std::array<std::int32_t, 17> counts = {};
    for (const Lead& lead : leads)
        ++counts[static_cast<std::size_t>(std::min(lead.margin, 16.0F))];
    std::int32_t better = 0;
    std::size_t margin = counts.size();
    while (margin > 0 && better < kCandidates)
        better += counts[--margin];
    return static_cast<float>(margin) - 1.0F;
}

std::vector<Candidate> candidatesOf(const std::vector<Lead>& leads)
{
    std::vector<Candidate> candidates;
    const float worthwhile = worthwhileMargin(leads);
    for (const Lead& lead : leads) {
        if (lead.margin < worthwhile)
            continue;
        const float score = 1.0F / (std::exp(-lead.margin) + 1.0F);
        if (score > kConfidenceThreshold)
            candidates.push_back({score, lead.prior});
    }
    return candidates;
}

NormalizedBBox_ boxOf(const Branch& branch, std::int32_t prior)
{
    const std::int32_t perCell = priorsPerCell(branch);
    const std::int32_t* values =
        branch.locations.pixel(prior / perCell, 0) + prior % perCell * kLocationValues;
    const float inverse = 1.0F / branch.locations.scale;
    std::array<float, kLocationValues> location = {};
    std::transform(values, values + kLocationValues, location.begin(),
                   [inverse](std::int32_t value) { return static_cast<float>(value) * inverse; });
    return facedetectcnn::decodedBox(branch.priors.pixel(prior / perCell, 0) +
                                         static_cast<std::ptrdiff_t>(prior % perCell) * 4,
                                     location.data());
}

/// The same bits from the candidates alone.
std::vector<ScoredBox> boxesOfCandidates(const Branches& branches)
{
    std::array<std::int32_t, 5> firstPriors = {};
    for (std::size_t i = 0; i < branches.size(); ++i)
        firstPriors[i + 1] =
            firstPriors[i] +
            static_cast<std::int32_t>(branches[i].confidences.pixelCount()) * priorsPerCell(branches[i]);
    // The place behind the last lead is written, too.
    std::vector<Lead> leads(static_cast<std::size_t>(firstPriors.back()) + 1);
    Lead* end = leads.data();
    for (std::size_t i = 0; i < branches.size(); ++i)
        end = findLeads(branches[i], firstPriors[i], end);
    leads.resize(static_cast<std::size_t>(end - leads.data()));
    return facedetectcnn::bestBoxes(candidatesOf(leads), kOverlapThreshold, kCandidates, kFaces,
                                    [&](std::int32_t prior) {
                                        std::size_t i = 0;
                                        while (prior >= firstPriors[i + 1])
                                            ++i;
                                        return boxOf(branches[i], prior - firstPriors[i]);
                                    });
}

std::int32_t toPixels(float fraction, std::int32_t size)
{
    return truncateToInt(fraction * static_cast<float>(size) + 0.5F);
}

FaceRect_ toFace(const ScoredBox& scoredBox, std::int32_t width, std::int32_t height)
{
    const auto& [score, box] = scoredBox;
    FaceRect_ face = {};
    face.score = score;
    face.x = toPixels(box.xmin, width);
    face.y = toPixels(box.ymin, height);
    face.w = toPixels(box.xmax - box.xmin, width);
    face.h = toPixels(box.ymax - box.ymin, height);
    for (std::size_t i = 0; i < face.lm.size(); i += 2) {
        face.lm[i] = toPixels(box.lm[i], width);
        face.lm[i + 1] = toPixels(box.lm[i + 1], height);
    }
    return face;
}

/// The low 16 bits of each value.
std::array<std::uint16_t, kRecordValues> toRecord(const FaceRect_& face)
{
    std::array<std::uint16_t, kRecordValues> record = {};
    const std::array<std::int32_t, 5> head = {truncateToInt(face.score * face.score * 100.0F), face.x, face.y,
                                              face.w, face.h};
    const auto toLowBits = [](std::int32_t value) { return static_cast<std::uint16_t>(value); };
    auto* lm = std::transform(head.begin(), head.end(), record.begin(), toLowBits);
    std::transform(face.lm.begin(), face.lm.end(), lm, toLowBits);
    return record;
}

} // namespace

namespace facedetectcnn {

std::vector<FaceRect_> facesIn(const Branches& branches, std::int32_t width, std::int32_t height)
{
    const bool isReference = !kernelFamily().convolve;
    const std::vector<ScoredBox> boxes =
        isReference || !isComplete(branches) ? boxesByStages(branches) : boxesOfCandidates(branches);
    std::vector<FaceRect_> faces;
    faces.reserve(boxes.size());
    for (const ScoredBox& box : boxes)
        faces.push_back(toFace(box, width, height));
    return faces;
}

} // namespace facedetectcnn

std::vector<FaceRect_> objectdetect_cnn(const unsigned char* rgbImageData, std::int32_t width,
                                        std::int32_t height, std::int32_t step)
{
    Branches branches;
    facedetectcnn::runNetwork(rgbImageData, width, height, step, &branches);
    return facedetectcnn::facesIn(branches, width, height);
}

std::int32_t* facedetect_cnn(unsigned char* resultBuffer, const unsigned char* rgbImageData,
                             std::int32_t width, std::int32_t height, std::int32_t step)
{
    if (!resultBuffer) {
        std::fprintf(stderr, "%s: null buffer memory.\n", "facedetect_cnn");
        return nullptr;
    }
    const std::vector<FaceRect_> faces = objectdetect_cnn(rgbImageData, width, height, step);
    const auto count = static_cast<std::int32_t>(std::min(faces.size(), kMaxRecords));
    std::memcpy(resultBuffer, &count, sizeof(count));
    unsigned char* target = resultBuffer + sizeof(count);
    for (std::int32_t i = 0; i < count; ++i, target += kRecordBytes) {
        const auto record = toRecord(faces[i]);
        std::memcpy(target, record.data(), sizeof(record));
    }
    return reinterpret_cast<std::int32_t*>(resultBuffer);
}

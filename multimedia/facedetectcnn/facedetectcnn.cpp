#include "multimedia/facedetectcnn/facedetectcnn.h"

#include "multimedia/facedetectcnn/detectionoutput.h"
#include "multimedia/facedetectcnn/kernels.h"
#include "multimedia/facedetectcnn/network.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

using facedetectcnn::Branch;
using facedetectcnn::Branches;

constexpr float kOverlapThreshold = 0.3F;
constexpr float kConfidenceThreshold = 0.5F;
constexpr std::int32_t kCandidates = 1000;
constexpr std::int32_t kFaces = 100;

constexpr std::size_t kMaxRecords = 256;
constexpr std::size_t kRecordBytes = 284;
constexpr std::size_t kRecordValues = 15;

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

std::int32_t toPixels(float fraction, std::int32_t size)
{
    return truncateToInt(fraction * static_cast<float>(size) + 0.5F);
}

FaceRect_ toFace(const float* values, std::int32_t width, std::int32_t height)
{
    const float xmin = values[1];
    const float ymin = values[2];
    const float xmax = values[3];
    const float ymax = values[4];
    FaceRect_ face = {};
    face.score = values[0];
    face.x = toPixels(xmin, width);
    face.y = toPixels(ymin, height);
    face.w = toPixels(xmax - xmin, width);
    face.h = toPixels(ymax - ymin, height);
    for (std::size_t i = 0; i < face.lm.size(); i += 2) {
        face.lm[i] = toPixels(values[5 + i], width);
        face.lm[i + 1] = toPixels(values[6 + i], height);
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

std::vector<FaceRect_> objectdetect_cnn(const unsigned char* rgbImageData, std::int32_t width,
                                        std::int32_t height, std::int32_t step)
{
    Branches branches;
    facedetectcnn::runNetwork(rgbImageData, width, height, step, &branches);

    CDataBlob<float> priors;
    CDataBlob<float> locations;
    CDataBlob<float> confidences;
    joinPriors(branches, &priors);
    joinHeads(branches, &Branch::locations, &locations);
    joinHeads(branches, &Branch::confidences, &confidences);
    softmax1vector2class(&confidences);

    CDataBlob<float> boxes;
    if (!detection_output(priors, locations, confidences, kOverlapThreshold, kConfidenceThreshold,
                          kCandidates, kFaces, &boxes))
        return {};

    std::vector<FaceRect_> faces;
    faces.reserve(static_cast<std::size_t>(boxes.width));
    for (std::int32_t i = 0; i < boxes.width; ++i)
        faces.push_back(toFace(boxes.pixel(i, 0), width, height));
    return faces;
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

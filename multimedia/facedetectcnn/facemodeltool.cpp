// Runs while the library is built: judges the model file, and makes a random one.

#include "multimedia/facedetectcnn/modellayout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using facedetectcnn::kLayers;
using facedetectcnn::kModelMagic;
using facedetectcnn::kModelVersion;
using facedetectcnn::kPayloadBytes;
using facedetectcnn::LayerShape;
using facedetectcnn::ModelHeader;

std::uint32_t crc32(const char* bytes, std::size_t count)
{
    std::uint32_t crc = 0xFFFFFFFFU;
    for (std::size_t i = 0; i < count; ++i) {
        crc ^= static_cast<unsigned char>(bytes[i]);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

/// What is wrong with the file, or nothing.
std::string fault(const std::vector<char>& file)
{
    ModelHeader header = {};
    if (file.size() < sizeof(header))
        return "it is shorter than its header";
    std::memcpy(&header, file.data(), sizeof(header));
    const std::size_t payload = file.size() - sizeof(header);

    if (header.magic != kModelMagic)
        return "it does not begin as a face model does";
    if (header.version != kModelVersion)
        return "its version is " + std::to_string(header.version) + ", not " + std::to_string(kModelVersion);
    if (header.rows != kLayers.size())
        return "it has " + std::to_string(header.rows) + " rows, not " + std::to_string(kLayers.size());
    if (header.payloadBytes != kPayloadBytes || payload != kPayloadBytes)
        return "it announces " + std::to_string(header.payloadBytes) + " and holds " +
               std::to_string(payload) + " bytes of weights and biases, not " + std::to_string(kPayloadBytes);
    if (header.checksum != crc32(file.data() + sizeof(header), payload))
        return "its checksum is wrong";
    return {};
}

int check(const char* path)
{
    std::ifstream input(path, std::ios::binary);
    if (!input) {
        std::fprintf(stderr, "%s: error: the face model cannot be read\n", path);
        return EXIT_FAILURE;
    }
    const std::vector<char> file((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    const std::string reason = fault(file);
    if (!reason.empty()) {
        std::fprintf(stderr, "%s: error: not a usable face model: %s\n", path, reason.c_str());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

/// Nearly normal, mean 0, deviation 1, the same on every machine.
double draw(std::mt19937& generator)
{
    double sum = 0.0;
    for (int i = 0; i < 12; ++i)
        sum += static_cast<double>(generator()) / static_cast<double>(std::mt19937::max());
    return sum - 6.0;
}

/// Weights that keep activations near 1 from layer to layer, so that the heads give numbers of a sane size.
double weightDeviation(std::size_t layer)
{
    constexpr double kImageRange = 128.0;
    const LayerShape& shape = kLayers[layer];
    const double deviation = shape.scale * std::sqrt(2.0 / shape.weightsPerFilter());
    return layer == 0 ? deviation / kImageRange : deviation;
}

int makeRandom(std::uint32_t seed, const char* path)
{
    std::mt19937 generator(seed);
    std::vector<char> payload;
    payload.reserve(kPayloadBytes);
    for (std::size_t layer = 0; layer < kLayers.size(); ++layer) {
        const double deviation = weightDeviation(layer);
        for (std::int32_t i = 0; i < kLayers[layer].weightCount(); ++i)
            payload.push_back(
                static_cast<char>(std::lround(std::clamp(draw(generator) * deviation, -127.0, 127.0))));
    }
    for (const LayerShape& shape : kLayers) {
        for (std::int32_t i = 0; i < shape.filterCount; ++i) {
            const auto bias = static_cast<std::int32_t>(std::lround(draw(generator) * 0.1 * shape.scale));
            const auto* bytes = reinterpret_cast<const char*>(&bias);
            payload.insert(payload.end(), bytes, bytes + sizeof(bias));
        }
    }

    const ModelHeader header = {kModelMagic, kModelVersion, static_cast<std::uint32_t>(kLayers.size()),
                                kPayloadBytes, crc32(payload.data(), payload.size())};
    std::ofstream output(path, std::ios::binary);
    output.write(reinterpret_cast<const char*>(&header), sizeof(header));
    output.write(payload.data(), static_cast<std::streamsize>(payload.size()));
    if (!output.flush()) {
        std::fprintf(stderr, "%s: error: the random face model cannot be written\n", path);
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "check") == 0)
        return check(argv[2]);
    if (argc == 4 && std::strcmp(argv[1], "random") == 0)
        return makeRandom(static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10)), argv[3]);
    std::fprintf(stderr, "usage: %s check FILE | random SEED FILE\n", argv[0]);
    return EXIT_FAILURE;
}

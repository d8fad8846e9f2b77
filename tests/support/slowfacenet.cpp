#include "tests/support/slowfacenet.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace slowfacenet {
namespace {

struct Tensor
{
    int channels;
    int height;
    int width;
    std::vector<std::int32_t> values;
    float scale = 1.0F;
    std::int32_t one = 1; ///< what stands for the real 1.0

    Tensor(int c, int h, int w)
        : channels(c)
        , height(h)
        , width(w)
        , values(static_cast<std::size_t>(c) * h * w)
    {}
    std::int32_t& at(int c, int y, int x)
    {
        return values[(static_cast<std::size_t>(c) * height + y) * width + x];
    }
    std::int32_t at(int c, int y, int x) const
    {
        return values[(static_cast<std::size_t>(c) * height + y) * width + x];
    }
    std::int32_t padded(int c, int y, int x) const
    {
        return y < 0 || x < 0 || y >= height || x >= width ? 0 : at(c, y, x);
    }
};

std::int32_t cutTo32(std::int64_t value)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value)));
}

std::int32_t cutToInteger(float value)
{
    return std::fabs(value) < 2147483648.0F ? static_cast<std::int32_t>(value) : INT32_MIN;
}

Tensor convolve(const Tensor& input, const Layer& layer)
{
    const int k = layer.kernelSize;
    Tensor output(layer.outputs, (input.height + layer.stride - 1) / layer.stride,
                  (input.width + layer.stride - 1) / layer.stride);
    for (int f = 0; f < layer.outputs; ++f) {
        for (int y = 0; y < output.height; ++y) {
            for (int x = 0; x < output.width; ++x) {
                std::int64_t sum = static_cast<std::int64_t>(layer.biases[f]) * input.one;
                const signed char* weight =
                    layer.weights.data() + static_cast<std::ptrdiff_t>(f) * layer.inputs * k * k;
                for (int c = 0; c < layer.inputs; ++c) {
                    for (int r = 0; r < k; ++r) {
                        for (int t = 0; t < k; ++t)
                            sum +=
                                static_cast<std::int64_t>(*weight++) *
                                input.padded(c, y * layer.stride + r - k / 2, x * layer.stride + t - k / 2);
                    }
                }
                output.at(f, y, x) = cutTo32(sum);
            }
        }
    }
    output.scale = input.scale * layer.scale;
    output.one = cutToInteger(std::roundf(output.scale));
    return output;
}

Tensor activate(Tensor tensor)
{
    std::int32_t top = 0;
    for (const std::int32_t value : tensor.values)
        top = std::max(top, value);
    const float ratio = 255.0F / static_cast<float>(top);
    for (std::int32_t& value : tensor.values) {
        const float scaled = static_cast<float>(value < 0 ? 0 : value) * ratio;
        value = top == 0 ? 0 : static_cast<std::int32_t>(scaled + 0.499F);
    }
    tensor.scale *= ratio;
    tensor.one = cutToInteger(std::roundf(static_cast<float>(tensor.one) * ratio));
    return tensor;
}

Tensor pool(const Tensor& input)
{
    Tensor output(input.channels, input.height / 2, input.width / 2);
    for (int c = 0; c < output.channels; ++c) {
        for (int y = 0; y < output.height; ++y) {
            for (int x = 0; x < output.width; ++x)
                output.at(c, y, x) =
                    std::max({input.at(c, 2 * y, 2 * x), input.at(c, 2 * y, 2 * x + 1),
                              input.at(c, 2 * y + 1, 2 * x), input.at(c, 2 * y + 1, 2 * x + 1)});
        }
    }
    output.scale = input.scale;
    output.one = input.one;
    return output;
}

Tensor load(const Image& image)
{
    Tensor tensor(3, image.height, image.width);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            for (int c = 0; c < 3; ++c)
                tensor.at(c, y, x) = image.bytes[static_cast<std::size_t>(y) * image.step + x * 3 + c];
        }
    }
    return tensor;
}

Head head(const Tensor& source, const Layer& layer)
{
    const Tensor planar = convolve(source, layer);
    Head result = {{}, planar.scale};
    for (int y = 0; y < planar.height; ++y) {
        for (int x = 0; x < planar.width; ++x) {
            for (int c = 0; c < planar.channels; ++c)
                result.values.push_back(planar.at(c, y, x));
        }
    }
    return result;
}

std::vector<float> priors(const Tensor& source, const Image& image, int step, const std::vector<float>& sizes)
{
    std::vector<float> result;
    const auto width = static_cast<float>(image.width);
    const auto height = static_cast<float>(image.height);
    for (int y = 0; y < source.height; ++y) {
        for (int x = 0; x < source.width; ++x) {
            for (const float size : sizes) {
                const float cx = (static_cast<float>(x) + 0.5F) * static_cast<float>(step);
                const float cy = (static_cast<float>(y) + 0.5F) * static_cast<float>(step);
                result.push_back((cx - size * 0.5F) / width);
                result.push_back((cy - size * 0.5F) / height);
                result.push_back((cx + size * 0.5F) / width);
                result.push_back((cy + size * 0.5F) / height);
            }
        }
    }
    return result;
}

struct Box
{
    float score;
    float left;
    float top;
    float right;
    float bottom;
    std::array<float, 10> marks;
};

float overlap(const Box& a, const Box& b)
{
    const float width = std::min(a.right, b.right) - std::max(a.left, b.left);
    const float height = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
    if (width <= 0.0F || height <= 0.0F)
        return 0.0F;
    const float inter = width * height;
    const float areaA = (a.right - a.left) * (a.bottom - a.top);
    const float areaB = (b.right - b.left) * (b.bottom - b.top);
    return inter / (areaA + areaB - inter);
}

Box boxOf(float score, const float* prior, const float* values)
{
    const float pw = prior[2] - prior[0];
    const float ph = prior[3] - prior[1];
    const float px = (prior[0] + prior[2]) * 0.5F;
    const float py = (prior[1] + prior[3]) * 0.5F;
    const float cx = values[0] * 0.1F * pw + px;
    const float cy = values[1] * 0.1F * ph + py;
    const float w = std::exp(values[2] * 0.2F) * pw;
    const float h = std::exp(values[3] * 0.2F) * ph;
    Box box = {score, cx - w * 0.5F, cy - h * 0.5F, cx + w * 0.5F, cy + h * 0.5F, {}};
    box.left = box.left < 0.0F ? 0.0F : box.left;
    box.top = box.top < 0.0F ? 0.0F : box.top;
    box.right = box.right > 1.0F ? 1.0F : box.right;
    box.bottom = box.bottom > 1.0F ? 1.0F : box.bottom;
    for (std::size_t k = 0; k < 5; ++k) {
        box.marks[2 * k] = values[4 + 2 * k] * 0.1F * pw + px;
        box.marks[2 * k + 1] = values[5 + 2 * k] * 0.1F * ph + py;
    }
    return box;
}

std::vector<Box> candidates(const std::vector<Branch>& branches)
{
    std::vector<Box> boxes;
    for (const Branch& branch : branches) {
        std::vector<float> location;
        for (const std::int32_t value : branch.location.values)
            location.push_back(static_cast<float>(value) * (1.0F / branch.location.scale));
        const float inverse = 1.0F / branch.confidence.scale;
        for (std::size_t p = 0; p < branch.priors.size() / 4; ++p) {
            const float background = static_cast<float>(branch.confidence.values[2 * p]) * inverse;
            const float face = static_cast<float>(branch.confidence.values[2 * p + 1]) * inverse;
            const float top = std::max(background, face);
            const float score = std::exp(face - top) / (std::exp(background - top) + std::exp(face - top));
            if (score > 0.5F)
                boxes.push_back(boxOf(score, branch.priors.data() + 4 * p, location.data() + 14 * p));
        }
    }
    return boxes;
}

FaceRect_ toFace(const Box& box, const Image& image)
{
    const auto width = static_cast<float>(image.width);
    const auto height = static_cast<float>(image.height);
    FaceRect_ face = {};
    face.score = box.score;
    face.x = cutToInteger(box.left * width + 0.5F);
    face.y = cutToInteger(box.top * height + 0.5F);
    face.w = cutToInteger((box.right - box.left) * width + 0.5F);
    face.h = cutToInteger((box.bottom - box.top) * height + 0.5F);
    for (std::size_t i = 0; i < 10; ++i)
        face.lm[i] = cutToInteger(box.marks[i] * (i % 2 == 0 ? width : height) + 0.5F);
    return face;
}

struct Shape
{
    int kernelSize;
    int inputs;
    int outputs;
    float scale;
};

constexpr std::array<Shape, 24> kShapes = {{
    {3, 3, 32, 7261.28564F},    {1, 32, 16, 70.4242859F},   {3, 16, 32, 105.353317F},
    {1, 32, 32, 102.571922F},   {3, 32, 64, 213.187363F},   {1, 64, 32, 47.9828072F},
    {3, 32, 64, 81.0171127F},   {3, 64, 128, 908.274902F},  {1, 128, 64, 98.6974487F},
    {3, 64, 128, 41.8721695F},  {3, 128, 256, 2682.20532F}, {1, 256, 128, 104.257317F},
    {3, 128, 256, 57.7951927F}, {3, 256, 256, 4739.41064F}, {1, 256, 256, 150.196915F},
    {3, 256, 256, 117.236702F}, {3, 64, 42, 249.860596F},   {3, 64, 6, 319.911530F},
    {3, 128, 28, 329.790100F},  {3, 128, 4, 393.914368F},   {3, 256, 28, 777.063721F},
    {3, 256, 4, 707.699585F},   {3, 256, 42, 1242.70361F},  {3, 256, 6, 845.599976F},
}};

} // namespace

Model randomModel(std::uint32_t seed)
{
    std::mt19937 generator(seed);
    Model model;
    for (std::size_t i = 0; i < model.size(); ++i) {
        const Shape& shape = kShapes[i];
        const int perFilter = shape.kernelSize * shape.kernelSize * shape.inputs;
        const double range = shape.scale * std::sqrt(6.0 / perFilter) / (i == 0 ? 128.0 : 1.0);
        const int limit = std::clamp(static_cast<int>(range), 1, 127);
        const int biasLimit = static_cast<int>(shape.scale * 0.2F);
        std::uniform_int_distribution<int> weight(-limit, limit);
        std::uniform_int_distribution<int> bias(-biasLimit, biasLimit);
        Layer& layer = model[i];
        layer = {shape.kernelSize, i == 0 ? 2 : 1, shape.inputs, shape.outputs, shape.scale, {}, {}};
        for (int w = 0; w < perFilter * shape.outputs; ++w)
            layer.weights.push_back(static_cast<signed char>(weight(generator)));
        for (int f = 0; f < shape.outputs; ++f)
            layer.biases.push_back(bias(generator));
    }
    return model;
}

Image randomImage(std::uint32_t seed, int width, int height, int padding)
{
    std::mt19937 generator(seed);
    Image image = {width, height, width * 3 + padding, {}};
    image.bytes.resize(static_cast<std::size_t>(height - 1) * image.step + width * 3);
    std::generate(image.bytes.begin(), image.bytes.end(),
                  [&] { return static_cast<unsigned char>(generator()); });
    return image;
}

std::vector<Branch> run(const Model& model, const Image& image)
{
    const auto conv = [&model](const Tensor& input, std::size_t layer) {
        return activate(convolve(input, model[layer]));
    };
    const Tensor first = pool(conv(conv(load(image), 0), 1));
    const Tensor second = pool(conv(conv(first, 2), 3));
    const std::vector<Tensor> sources = [&] {
        std::vector<Tensor> result;
        result.push_back(conv(conv(conv(second, 4), 5), 6));
        result.push_back(conv(conv(conv(pool(result[0]), 7), 8), 9));
        result.push_back(conv(conv(conv(pool(result[1]), 10), 11), 12));
        result.push_back(conv(conv(conv(pool(result[2]), 13), 14), 15));
        return result;
    }();
    const std::array<std::vector<float>, 4> sizes = {{{10, 16, 24}, {32, 48}, {64, 96}, {128, 192, 256}}};

    std::vector<Branch> branches;
    for (std::size_t i = 0; i < sources.size(); ++i)
        branches.push_back({priors(sources[i], image, 8 << i, sizes[i]), head(sources[i], model[16 + 2 * i]),
                            head(sources[i], model[17 + 2 * i])});
    return branches;
}

std::vector<FaceRect_> decode(const std::vector<Branch>& branches, const Image& image)
{
    std::vector<Box> boxes = candidates(branches);
    std::stable_sort(boxes.begin(), boxes.end(),
                     [](const Box& a, const Box& b) { return a.score > b.score; });
    if (boxes.size() > 1000)
        boxes.erase(boxes.begin() + 1000, boxes.end());

    std::vector<FaceRect_> faces;
    std::vector<bool> isSuppressed(boxes.size(), false);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (isSuppressed[i])
            continue;
        faces.push_back(toFace(boxes[i], image));
        for (std::size_t j = i + 1; j < boxes.size(); ++j) {
            if (overlap(boxes[j], boxes[i]) > 0.3F)
                isSuppressed[j] = true;
        }
    }
    if (faces.size() > 100)
        faces.erase(faces.begin() + 100, faces.end());
    return faces;
}

} // namespace slowfacenet

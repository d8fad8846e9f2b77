#include "bench/opencvnetwork.h"

#include "multimedia/facedetectcnn/modellayout.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>

namespace {

using facedetectcnn::kLayers;

/// Layers whose output is pooled, and those that feed the heads.
constexpr std::array<std::size_t, 5> kPooled = {1, 3, 6, 9, 12};
constexpr std::array<std::size_t, 4> kSources = {6, 9, 12, 15};
constexpr std::size_t kFirstHead = 16;

template<std::size_t Count>
bool contains(const std::array<std::size_t, Count>& layers, std::size_t layer)
{
    return std::find(layers.begin(), layers.end(), layer) != layers.end();
}

int addConvolution(cv::dnn::Net* net, std::size_t layer, int input, const std::string& name)
{
    const facedetectcnn::LayerShape& shape = kLayers[layer];
    cv::dnn::LayerParams parameters;
    parameters.set("kernel_size", shape.kernelSize);
    parameters.set("pad", shape.pad);
    parameters.set("stride", shape.stride);
    parameters.set("num_output", shape.filterCount);
    cv::Mat weights(std::vector<int>{shape.filterCount, shape.channels, shape.kernelSize, shape.kernelSize},
                    CV_32F);
    cv::Mat biases(1, shape.filterCount, CV_32F);
    cv::randn(weights, 0.0, 0.05);
    cv::randn(biases, 0.0, 0.05);
    parameters.blobs = {weights, biases};
    const int id = net->addLayer(name, "Convolution", parameters);
    net->connect(input, 0, id, 0);
    return id;
}

int addBehind(cv::dnn::Net* net, int input, const std::string& name, const std::string& type,
              cv::dnn::LayerParams parameters)
{
    const int id = net->addLayer(name, type, parameters);
    net->connect(input, 0, id, 0);
    return id;
}

} // namespace

OpenCvNetwork::OpenCvNetwork(std::int32_t width, std::int32_t height)
    : image(height, width, CV_8UC3)
{
    cv::setNumThreads(1);
    cv::randu(image, 0, 255);
    int last = 0; // the network's input
    std::size_t head = kFirstHead;
    for (std::size_t layer = 0; layer < kFirstHead; ++layer) {
        const std::string number = std::to_string(layer);
        last = addConvolution(&net, layer, last, "layer" + number);
        last = addBehind(&net, last, "relu" + number, "ReLU", {});
        for (int i = 0; contains(kSources, layer) && i < 2; ++i, ++head) {
            heads.push_back("head" + std::to_string(head));
            addConvolution(&net, head, last, heads.back());
        }
        if (contains(kPooled, layer)) {
            cv::dnn::LayerParams pooling;
            pooling.set("pool", "MAX");
            pooling.set("kernel_size", 2);
            pooling.set("stride", 2);
            pooling.set("ceil_mode", false);
            last = addBehind(&net, last, "pool" + number, "Pooling", pooling);
        }
    }
    net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
}

void OpenCvNetwork::run()
{
    net.setInput(cv::dnn::blobFromImage(image));
    std::vector<cv::Mat> outputs;
    net.forward(outputs, heads);
}

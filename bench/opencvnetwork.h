#pragma once

#include <opencv2/dnn.hpp>

#include <cstdint>
#include <string>
#include <vector>

/// A network of the face network's shapes run by OpenCV's DNN module in 32-bit floats on one thread, from the
/// image's bytes to the eight heads: what one would use without kernels of one's own. Its weights are random:
/// the time does not depend on them.
class OpenCvNetwork
{
public:
    OpenCvNetwork(std::int32_t width, std::int32_t height);

    void run();

private:
    cv::Mat image;
    cv::dnn::Net net;
    std::vector<std::string> heads;
};

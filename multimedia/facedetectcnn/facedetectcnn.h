#pragma once

#include "multimedia/multimedia_global.h"

#include <array>
#include <cstdint>
#include <vector>

/// @file
/// The face detector: a small integer convolutional network on raw bytes, without Qt.
///
/// Images are blue, green, red bytes, 3 a pixel. A side below 63 pixels cannot pass the network's poolings:
/// such an image gives no faces and lines on the standard error stream. There is no scaling in here; the work
/// grows with the image (see docs/facedetect.md). Any number of threads may detect at once.

/// A face, in pixels of the image that was passed in.
struct FaceRect_
{
    float score;                     ///< probability, above 0.5
    std::int32_t x;                  ///< left
    std::int32_t y;                  ///< top
    std::int32_t w;                  ///< width
    std::int32_t h;                  ///< height
    std::array<std::int32_t, 10> lm; ///< x then y of the eyes, the nose and the corners of the mouth
};

/// Finds at most 100 faces, best first. They may reach beyond nothing but their landmarks.
///
/// @param rgbImageData  blue, green, red; null gives no faces and lines on the standard error stream
/// @param step          bytes from one row to the next
std::vector<FaceRect_> objectdetect_cnn(const unsigned char* rgbImageData, std::int32_t width,
                                        std::int32_t height, std::int32_t step);

/// `objectdetect_cnn` with its result in a block of the caller's, in the machine's byte order: the number of
/// faces (int32, at most 256), then 284 bytes a face, whose first 15 values of 16 bits are the score squared
/// times 100, x, y, w, h and the ten landmark values. The rest of each 284 bytes is left as it was.
///
/// @param resultBuffer  room for 72708 bytes
/// Gives the block, or null when it is null.
MULTIMEDIA_EXPORT std::int32_t* facedetect_cnn(unsigned char* resultBuffer, const unsigned char* rgbImageData,
                                               std::int32_t width, std::int32_t height, std::int32_t step);

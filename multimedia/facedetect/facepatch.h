#pragma once

#include "multimedia/facedetectcnn/facedetectcnn.h"

#include <QtGui/QImage>

#include <vector>

/// @file
/// The blur of `multimedia::faceMask`, for faces already found. Any thread.

namespace multimedia {

/// Paints a patch over each credible face of `image`, in list order, each onto the result of the former.
///
/// @param detectionImage  what the faces were found in, and what the patches' colours are taken from
/// @param faces           in pixels of `detectionImage`
/// Gives a null image when there is no memory for a patch.
QImage withFacesBlurred(QImage image, const QImage& detectionImage, const std::vector<FaceRect_>& faces);

/// Smears an image in place by an exponential filter that runs down, right, up and left; the smaller the
/// image, the weaker. `image` must be ARGB32_Premultiplied.
void smear(QImage* image);

} // namespace multimedia

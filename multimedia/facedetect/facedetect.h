#pragma once

#include "multimedia/facedetectcnn/facedetectcnn.h"
#include "multimedia/multimedia_global.h"

#include <QtGui/QImage>

#include <vector>

/// @file
/// Faces on a `QImage`. Both functions may run on any thread, any number at once, and never fail aloud: an
/// image in which nothing is found and one that is too small give the same answer.

namespace multimedia {

/// Finds the faces of an image, best first.
///
/// The image is brought down to 480 pixels times its device pixel ratio on its longer side first; the faces
/// are in the pixels of that smaller image.
MULTIMEDIA_EXPORT std::vector<FaceRect_> faceDetect(QImage image);

/// The image with every credible face blurred beyond recognition behind a soft-edged patch, in the same size
/// and format. What counts as credible rises with the fewer faces there are: a score over 0.95 to the power
/// of their number.
///
/// A null image means that a patch could not be made for want of memory: an image with a face left in it must
/// not pass for a blurred one.
MULTIMEDIA_EXPORT QImage faceMask(QImage image);

} // namespace multimedia

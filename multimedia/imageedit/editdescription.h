#pragma once

#include <QtCore/QRect>
#include <QtCore/QVariantMap>
#include <QtGui/QImage>

namespace multimedia {
class PictureReader;
}

namespace ImageEdit {

/// What the user did to a picture, as the client writes it down.
///
/// The crop is given in fractions of the picture as the user sees it, after it was mirrored and turned.
struct EditDescription
{
    explicit EditDescription(const QVariantMap& edit_info);

    /// The blurred picture stands in for the source.
    bool usesMaskPhoto() const { return need_mask_photo && !mask_photo_path.isEmpty(); }

    /// The part of a file of `size` pixels that is to be decoded. Whoever sets fractions outside 0 to 1 gets
    /// a rectangle that is empty or leaves the picture.
    QRect cropRect(const QSize& size) const;

    /// Reads the cropped part of the reader's file, its long side brought down to 2560 pixels. Null if it
    /// cannot be read.
    QImage readCropped(multimedia::PictureReader& reader) const;

    /// Mirrors and turns the picture and draws the overlay on it. The overlay's file is removed once it is
    /// drawn.
    QImage applied(QImage image) const;

    bool mirrored;
    bool need_mask_photo;
    int turns; ///< quarters, counter-clockwise
    QString mask_photo_path;
    QString overlay_path; ///< what the user drew, in the pixels of the source
    double x1;
    double y1;
    double x2;
    double y2;

private:
    void drawOverlay(QImage& image) const;
};

} // namespace ImageEdit

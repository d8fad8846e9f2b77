#pragma once

#include "multimedia/multimedia_global.h"

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtGui/QImage>
#include <QtQuick/QQuickImageProvider>

#include <memory>
#include <mutex>

/// Answers QML's requests for "image://videoimageprovider/<id>", and keeps the images.
///
/// Ids are "edit", "watermark" and the decimal numbers of the frames of the strip; any other id, the empty
/// one included, answers the newest frame. Images come at their stored size.
///
/// An engine deletes the providers it was given, so each engine gets a copy of its own; all copies share one
/// store, which lives as long as the last of them. All functions may be called from any thread.
class MULTIMEDIA_EXPORT VideoImageProvider : public QQuickImageProvider
{
public:
    VideoImageProvider();
    VideoImageProvider(const VideoImageProvider& other);
    VideoImageProvider& operator=(const VideoImageProvider&) = delete;
    ~VideoImageProvider() override;

    /// Null if nothing is stored under the id and there is no newest frame.
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;

    /// Finds the last key frame at or before a time, or the first of all if there is none before.
    ///
    /// @param pts      milliseconds; a negative one counts as beyond the last key frame
    /// @param keyPts   time of the key frame, in milliseconds
    /// @param imageId  its id
    /// @return false, with both left alone, if there is no key frame at all
    bool getPreviewImage(long long pts, long long& keyPts, QString& imageId) const;

    /// Stores a frame under `id`, makes it the newest, and enters a key frame under its time.
    void setFrame(const QString& id, const QImage& image, long long time, bool keyframe);
    void setEditImage(const QImage& image);
    /// Forgets all frames; the edit image stays.
    void clear();

private:
    /// Guarded by `mutex`.
    struct Images
    {
        std::mutex mutex;
        QImage m_currentImage;
        QImage m_editImage;
        QImage m_watermarkImage;
        QMap<QString, QImage> m_images;
        QMap<unsigned long, QString> m_keyFrames;
    };

    const std::shared_ptr<Images> d;
};

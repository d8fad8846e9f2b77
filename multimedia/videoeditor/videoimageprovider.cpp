#include "multimedia/videoeditor/videoimageprovider.h"

VideoImageProvider::VideoImageProvider()
    : QQuickImageProvider(QQmlImageProviderBase::Image)
    , d(std::make_shared<Images>())
{}

VideoImageProvider::VideoImageProvider(const VideoImageProvider& other)
    : QQuickImageProvider(QQmlImageProviderBase::Image)
    , d(other.d)
{}

VideoImageProvider::~VideoImageProvider() = default;

QImage VideoImageProvider::requestImage(const QString& id, QSize* /*size*/, const QSize& /*requestedSize*/)
{
    std::lock_guard lock(d->mutex);
    if (id == QLatin1String("edit"))
        return d->m_editImage;
    if (id == QLatin1String("watermark"))
        return d->m_watermarkImage;
    return d->m_images.value(id, d->m_currentImage);
}

bool VideoImageProvider::getPreviewImage(long long pts, long long& keyPts, QString& imageId) const
{
    std::lock_guard lock(d->mutex);
    if (d->m_keyFrames.isEmpty())
        return false;
    auto frame = d->m_keyFrames.upperBound(static_cast<unsigned long>(pts));
    if (frame != d->m_keyFrames.begin())
        --frame;
    keyPts = static_cast<long long>(frame.key());
    imageId = frame.value();
    return true;
}

void VideoImageProvider::setFrame(const QString& id, const QImage& image, long long time, bool keyframe)
{
    std::lock_guard lock(d->mutex);
    d->m_currentImage = image;
    d->m_images[id] = image;
    if (keyframe)
        d->m_keyFrames[static_cast<unsigned long>(time)] = id;
}

void VideoImageProvider::setEditImage(const QImage& image)
{
    std::lock_guard lock(d->mutex);
    d->m_editImage = image;
}

void VideoImageProvider::clear()
{
    std::lock_guard lock(d->mutex);
    d->m_currentImage = {};
    d->m_images.clear();
    d->m_keyFrames.clear();
}

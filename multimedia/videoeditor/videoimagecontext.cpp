#include "multimedia/videoeditor/videoimagecontext.h"

#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>

VideoImageContext::VideoImageContext(QObject* parent)
    : QObject(parent)
{}

void VideoImageContext::bindQmlEngine(QQmlEngine* engine)
{
    if (!engine)
        return;
    engine->rootContext()->setContextProperty(QStringLiteral("ImageContext"), this);
    engine->addImageProvider(QStringLiteral("videoimageprovider"), new VideoImageProvider(m_provider));
}

QImage VideoImageContext::getImage(const QString& id)
{
    return m_provider.requestImage(id, nullptr, {});
}

void VideoImageContext::setEditImage(const QImage& image)
{
    m_provider.setEditImage(image);
}

void VideoImageContext::clear()
{
    m_provider.clear();
}

qlonglong VideoImageContext::setImage(const QImage& image, qlonglong index, qlonglong time, bool keyframe)
{
    m_provider.setFrame(QStringLiteral("%1").arg(index), image, time, keyframe);
    m_imagePts = index;
    m_keyFrame = keyframe;
    return index;
}

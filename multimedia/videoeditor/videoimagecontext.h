#pragma once

#include "multimedia/multimedia_global.h"
#include "multimedia/videoeditor/videoimageprovider.h"

#include <QtCore/QObject>
#include <QtGui/QImage>

#include <atomic>

class QQmlEngine;

/// The images of the video that is being edited, for QML: the context property "ImageContext" and the image
/// provider "videoimageprovider" of every engine it is bound to.
///
/// Images may be stored and asked for from any thread; engines are bound on their own.
class MULTIMEDIA_EXPORT VideoImageContext : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qlonglong imagePts READ getImagePts)
    Q_PROPERTY(bool keyFrame READ isKeyFrame)

public:
    explicit VideoImageContext(QObject* parent = nullptr);

    /// Must outlive the QML of the engine. Null does nothing.
    void bindQmlEngine(QQmlEngine* engine);

    /// As QML would get it, see `VideoImageProvider`.
    QImage getImage(const QString& id);
    /// The image that answers to "edit"; it outlives `clear`.
    void setEditImage(const QImage& image);

    /// Forgets all frames.
    Q_INVOKABLE void clear();
    /// Number of the newest frame, also after `clear`.
    Q_INVOKABLE qlonglong getImagePts() const { return m_imagePts; }
    /// Whether the newest frame is a key frame, also after `clear`.
    Q_INVOKABLE bool isKeyFrame() const { return m_keyFrame; }

public Q_SLOTS:
    /// Stores a frame.
    ///
    /// @param index  running number, which is its id
    /// @param time   milliseconds
    /// @return `index`
    qlonglong setImage(const QImage& image, qlonglong index, qlonglong time, bool keyframe);

private:
    VideoImageProvider m_provider;
    std::atomic<qlonglong> m_imagePts{0};
    std::atomic<bool> m_keyFrame{false};
};

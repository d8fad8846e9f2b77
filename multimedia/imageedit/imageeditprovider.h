#pragma once

#include "multimedia/imageedit/imageedittask.h"
#include "multimedia/multimedia_global.h"
#include "quillon/editfilefilter.h"
#include "quillon/editstate.h"

#include <QtCore/QFuture>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QSize>
#include <QtCore/QThreadPool>
#include <QtCore/QVariantMap>

#include <atomic>
#include <memory>

namespace multimedia {
class CurrentRequest;
class ProcessEnd;
} // namespace multimedia

namespace ImageEdit {

/// The picture that is being edited on screen, and the edits of files.
///
/// The geometry properties only keep what QML sets; pixels are changed when the edit is committed, by
/// `doEdit` or `doEditSync`. The blur of faces goes: `editImage` looks for faces and sets `faceBlurEnabled`;
/// `faceMaskDetect` writes the blurred picture into a temporary file and sets `faceBlur` and `faceBlurPath`;
/// a further `faceMaskDetect` only flips `faceBlur`. Faces are looked for in the picture as EXIF data turn
/// it; the file lies as its source does and asks for the same turn. Temporary files are left to whoever was
/// given their names.
///
/// Only pictures whose content is JPEG, PNG or BMP, of at most 100 megapixels, are edited on screen; others
/// are ignored. Sizes are looked at before pixels are read.
///
/// One object, made on first use on the main thread, which owns it; it lives until the process ends. What is
/// at work is waited for when the application object is destroyed; edits that have not begun are dropped.
/// Getters may be called from any thread, all else on the owner's thread. The job behind `faceMaskDetect`
/// emits `faceBlurChanged`, `faceBlurPathChanged` and `faceMaskFinished` on a thread of the global pool;
/// other signals come on the owner's thread.
class MULTIMEDIA_EXPORT ImageEditProvider : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString srcPath READ srcPath)
    Q_PROPERTY(QSize imageSize READ imageSize NOTIFY imageSizeChanged)
    Q_PROPERTY(double rotation READ rotation WRITE setRotation NOTIFY rotationChanged)
    Q_PROPERTY(bool mirrored READ mirrored WRITE setMirrored NOTIFY mirroredChanged)
    Q_PROPERTY(ScaleMode scaleMode READ scaleMode WRITE setScaleMode NOTIFY scaleModeChanged)
    Q_PROPERTY(bool faceBlurEnabled READ faceBlurEnabled NOTIFY faceBlurEnabledChanged)
    Q_PROPERTY(bool faceBlur READ faceBlur WRITE setFaceBlur NOTIFY faceBlurChanged)
    Q_PROPERTY(QString faceBlurPath READ faceBlurPath NOTIFY faceBlurPathChanged)

public:
    /// The ratio of the crop, width to height. Only kept here.
    enum ScaleMode {
        S_ORIGINAL = 0,
        S_1_1 = 1,
        S_2_3 = 2,
        S_3_4 = 3,
        S_3_5 = 4,
        S_4_5 = 5,
        S_5_7 = 6,
        S_9_16 = 7,
        S_16_9 = 8,
    };
    Q_ENUM(ScaleMode)

    static ImageEditProvider* instance();
    ~ImageEditProvider() override;

    QString srcPath() const;
    /// Of the file, before any turn that EXIF data ask for; (-1, -1) when nothing is edited.
    QSize imageSize() const;
    /// Degrees.
    double rotation() const;
    bool mirrored() const;
    ScaleMode scaleMode() const;
    /// The picture has at least one face.
    bool faceBlurEnabled() const;
    bool faceBlur() const;
    /// The file with the blurred picture.
    QString faceBlurPath() const;

public Q_SLOTS:
    /// Starts an edit of a file in the pool. Its end is told by the request's `clipCallback`, with stage 5
    /// and the code of `ImageEditTask::editFinish`, on this object's thread. The keys of `editInfo` are those
    /// of `EditDescription`.
    void doEdit(const EditFileFilterPtr& filterPtr);
    /// Does the same at once, on the caller's thread. A blurred picture is cropped and limited in size like a
    /// source, other than by `doEdit`.
    ///
    /// @return whether the result was saved
    bool doEditSync(const QString& srcPath, QString& desPath, const QVariantMap& editInfo);
    /// Tells the newest edit of that file to end; it still reports.
    EditState cancelEdit(const QString& fileId);

    /// The switch for the blur; see above. Does nothing while an earlier request is at work.
    void faceMaskDetect(const QString& filePath);
    /// A temporary copy of at most 640 pixels a side or, if none is needed or can be made, `srcPath`.
    QString readThumbImage(const QString& srcPath);
    /// A text form of a thumbnail of at most 32 pixels a side, empty on failure.
    QString readThumbBytes(const QString& thumbPath);

    /// Makes the picture at `srcPath` the one that is edited. `imageSize` is not used: the file tells it. The
    /// picture itself is read on a thread of the global pool.
    void editImage(const QString& srcPath, QSize imageSize = QSize());
    /// Brings all properties back to their defaults. A search for faces and a blur at work go on, and change
    /// nothing here, even when the same picture is edited anew.
    void editReset();
    void setImageSize(QSize size);
    void setRotation(double value);
    void setMirrored(bool on);
    void setScaleMode(ScaleMode mode);
    void setFaceBlurEnabled(bool enabled);
    void setFaceBlur(bool on);

Q_SIGNALS:
    /// @param blurPath  empty if not `succ`
    void faceMaskFinished(QString filePath, QString blurPath, bool succ);
    /// For the client to emit.
    void imageEditCanceled(QString srcPath);
    void imageSizeChanged(QSize imageSize);
    void rotationChanged(double rotation);
    void mirroredChanged(bool mirrored);
    void scaleModeChanged(ScaleMode scaleMode);
    void faceBlurEnabledChanged(bool faceBlurEnabled);
    void faceBlurChanged(bool faceBlur);
    void faceBlurPathChanged(QString faceBlurPath);

private:
    /// What QML sees; written by the owner's thread and the mask job.
    struct State
    {
        QString src_path;
        QSize image_size;
        double rotation = 0.0;
        bool mirrored = false;
        ScaleMode scale_mode = S_ORIGINAL;
        bool face_blur_enabled = false;
        bool face_blur = false;
        QString face_blur_path;
    };

    ImageEditProvider();

    /// Drops edits that have not begun and waits for what is at work.
    void finishJobs();
    template<typename T>
    T read(T State::*member) const;
    template<typename T>
    bool replace(T State::*member, const T& value);
    void setFaceBlurPath(const QString& path);
    void onEditFinish(const EditFileFilterPtr& filter, const ImageEditTask::CancelFlag& flag, int code);
    void maskFaces(const QString& file_path, const QByteArray& format, quint64 session);
    void finishMask(const QString& file_path, const QString& blur_path, quint64 session);

    QThreadPool m_editPool;
    QMap<QString, ImageEditTask::CancelFlag> m_edits; ///< by file id; the owner's thread only
    QFuture<void> m_maskJob;                          ///< the owner's thread only
    std::atomic<bool> m_maskBusy{false};              ///< cleared before the job reports
    QList<QFuture<void>> m_detections;                ///< that may be at work; the owner's thread only
    const std::unique_ptr<multimedia::CurrentRequest>
        m_session; ///< from one `editImage` to the next, or a reset
    mutable QMutex m_mutex;
    State m_state; ///< guarded by `m_mutex`
    std::unique_ptr<multimedia::ProcessEnd> m_processEnd;
};

} // namespace ImageEdit

#include "multimedia/imageedit/imageeditprovider.h"

#include "multimedia/base/processend.h"
#include "multimedia/base/warning.h"
#include "multimedia/facedetect/facedetect.h"
#include "multimedia/imageedit/editdescription.h"
#include "multimedia/imageedit/imagefile.h"
#include "quillon/util.h"

#include <QtConcurrent/QtConcurrentRun>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QStandardPaths>
#include <QtGui/QImage>
#include <QtQml/QQmlEngine>

#include <utility>

namespace ImageEdit {
namespace {

/// The stage that `clipCallback` is told.
constexpr int kEditStage = 5;

QByteArray formatOf(const QString& path)
{
    return PictureReader(path).format();
}

bool isEditable(const QByteArray& format)
{
    return format == "jpg" || format == "png" || format == "jpeg" || format == "bmp";
}

QString temporaryPath(const QByteArray& suffix)
{
    return QStandardPaths::writableLocation(QStandardPaths::TempLocation) + QDir::separator() + Util::uuid() +
           QLatin1Char('.') + QString::fromLatin1(suffix);
}

} // namespace

ImageEditProvider* ImageEditProvider::instance()
{
    static ImageEditProvider provider;
    return &provider;
}

ImageEditProvider::ImageEditProvider()
{
    QQmlEngine::setObjectOwnership(this, QQmlEngine::CppOwnership);
    qRegisterMetaType<EditFileFilterPtr>("EditFileFilterPtr");
    qRegisterMetaType<EditState>("EditState");
    qRegisterMetaType<QString>("QString&"); // doEditSync is called from QML too
    m_editPool.setObjectName(QStringLiteral("image_edit_thread_pool"));
    connect(&m_faces, &QFutureWatcherBase::finished, this, &ImageEditProvider::onFacesDetected);
    m_processEnd = std::make_unique<multimedia::ProcessEnd>([this] { finishJobs(); });
}

ImageEditProvider::~ImageEditProvider()
{
    finishJobs();
}

void ImageEditProvider::finishJobs()
{
    m_editPool.clear();
    m_editPool.waitForDone();
    m_maskJob.waitForFinished();
    m_faces.cancel();
    m_faces.waitForFinished();
}

void ImageEditProvider::doEdit(const EditFileFilterPtr& filterPtr)
{
    if (!filterPtr || !filterPtr->file) {
        multimedia::warning("doEdit", "request names no file");
        return;
    }
    auto* task = new ImageEditTask(filterPtr);
    m_edits.insert(filterPtr->file->fileId(), task->cancelFlag());
    connect(task, &ImageEditTask::editFinish, this, &ImageEditProvider::onEditFinish, Qt::QueuedConnection);
    m_editPool.start(task, 0);
}

void ImageEditProvider::onEditFinish(const EditFileFilterPtr& filter, int code)
{
    m_edits.remove(filter->file->fileId());
    if (filter->clipCallback)
        filter->clipCallback(kEditStage, code);
}

bool ImageEditProvider::doEditSync(const QString& srcPath, QString& desPath, const QVariantMap& editInfo)
{
    const EditDescription description(editInfo);
    PictureReader reader(description.usesMaskPhoto() ? description.mask_photo_path : srcPath);
    return saveImage(description.applied(description.readCropped(reader)), desPath);
}

EditState ImageEditProvider::cancelEdit(const QString& fileId)
{
    const auto edit = m_edits.constFind(fileId);
    if (edit == m_edits.constEnd())
        return EditState::None;
    **edit = true;
    return EditState::Cancelled;
}

void ImageEditProvider::faceMaskDetect(const QString& filePath)
{
    if (filePath == srcPath() && faceBlurEnabled() && !faceBlurPath().isEmpty()) {
        setFaceBlur(!faceBlur());
        return;
    }
    const QByteArray format = formatOf(filePath);
    if (!isEditable(format) || m_maskBusy)
        return;
    // The last job has reported and has nothing left to do but to return.
    m_maskJob.waitForFinished();
    m_maskBusy = true;
    m_maskJob = QtConcurrent::run([this, filePath, format] { maskFaces(filePath, format); });
}

void ImageEditProvider::maskFaces(const QString& file_path, const QByteArray& format)
{
    const QString blur_path = temporaryPath(format);
    QImageIOHandler::Transformations turn;
    QImage image = toUpright(loadImage(file_path, &turn), turn);
    const bool ok = !image.isNull() &&
                    saveStored(toStored(multimedia::faceMask(std::move(image)), turn), turn, blur_path);
    finishMask(file_path, ok ? blur_path : QString(), ok);
}

void ImageEditProvider::finishMask(const QString& file_path, const QString& blur_path, bool ok)
{
    bool blur_changed = false;
    bool path_changed = false;
    {
        const QMutexLocker lock(&m_mutex);
        // The user may have left the picture, at any time up to here.
        if (file_path == m_state.src_path) {
            blur_changed = std::exchange(m_state.face_blur, ok) != ok;
            path_changed = std::exchange(m_state.face_blur_path, blur_path) != blur_path;
        }
    }
    if (blur_changed)
        Q_EMIT faceBlurChanged(ok);
    if (path_changed)
        Q_EMIT faceBlurPathChanged(blur_path);
    m_maskBusy = false;
    Q_EMIT faceMaskFinished(file_path, blur_path, ok);
}

QString ImageEditProvider::readThumbImage(const QString& srcPath)
{
    const QString thumb_path = temporaryPath(formatOf(srcPath));
    const bool is_made =
        Util::instance()->scaleThumbImage(Util::toLocalFile(srcPath), thumb_path, {640, 640}, 640, false);
    return is_made ? thumb_path : srcPath;
}

QString ImageEditProvider::readThumbBytes(const QString& thumbPath)
{
    QByteArray bytes;
    Util::scaleThumbBytes(Util::toLocalFile(thumbPath), 32, bytes);
    return QString::fromUtf8(bytes.constData()); // up to the first NUL
}

void ImageEditProvider::editImage(const QString& srcPath, QSize)
{
    PictureReader reader(srcPath);
    reader.setAutoTransform(true);
    if (!isEditable(reader.format()) || !isReadable(reader.size()))
        return;
    if (!this->srcPath().isEmpty())
        editReset();
    replace(&State::src_path, srcPath);
    setImageSize(reader.size());
    QImageIOHandler::Transformations turn;
    const QImage image = loadImage(srcPath, &turn);
    m_faces.setFuture(
        QtConcurrent::run([image, turn] { return multimedia::faceDetect(toUpright(image, turn)); }));
}

void ImageEditProvider::onFacesDetected()
{
    if (!m_faces.isCanceled())
        setFaceBlurEnabled(!m_faces.result().empty());
}

void ImageEditProvider::editReset()
{
    replace(&State::src_path, QString());
    setImageSize({});
    setRotation(0.0);
    setMirrored(false);
    setScaleMode(S_ORIGINAL);
    setFaceBlurEnabled(false);
    setFaceBlur(false);
    setFaceBlurPath({});
}

template<typename T>
T ImageEditProvider::read(T State::*member) const
{
    const QMutexLocker lock(&m_mutex);
    return m_state.*member;
}

/// Whether the value was another one.
template<typename T>
bool ImageEditProvider::replace(T State::*member, const T& value)
{
    const QMutexLocker lock(&m_mutex);
    return std::exchange(m_state.*member, value) != value;
}

QString ImageEditProvider::srcPath() const
{
    return read(&State::src_path);
}

QSize ImageEditProvider::imageSize() const
{
    return read(&State::image_size);
}

double ImageEditProvider::rotation() const
{
    return read(&State::rotation);
}

bool ImageEditProvider::mirrored() const
{
    return read(&State::mirrored);
}

ImageEditProvider::ScaleMode ImageEditProvider::scaleMode() const
{
    return read(&State::scale_mode);
}

bool ImageEditProvider::faceBlurEnabled() const
{
    return read(&State::face_blur_enabled);
}

bool ImageEditProvider::faceBlur() const
{
    return read(&State::face_blur);
}

QString ImageEditProvider::faceBlurPath() const
{
    return read(&State::face_blur_path);
}

void ImageEditProvider::setImageSize(QSize size)
{
    if (replace(&State::image_size, size))
        Q_EMIT imageSizeChanged(size);
}

void ImageEditProvider::setRotation(double value)
{
    if (qFuzzyCompare(rotation(), value))
        return;
    replace(&State::rotation, value);
    Q_EMIT rotationChanged(value);
}

void ImageEditProvider::setMirrored(bool on)
{
    if (replace(&State::mirrored, on))
        Q_EMIT mirroredChanged(on);
}

void ImageEditProvider::setScaleMode(ScaleMode mode)
{
    if (replace(&State::scale_mode, mode))
        Q_EMIT scaleModeChanged(mode);
}

void ImageEditProvider::setFaceBlurEnabled(bool enabled)
{
    if (replace(&State::face_blur_enabled, enabled))
        Q_EMIT faceBlurEnabledChanged(enabled);
}

void ImageEditProvider::setFaceBlur(bool on)
{
    if (replace(&State::face_blur, on))
        Q_EMIT faceBlurChanged(on);
}

void ImageEditProvider::setFaceBlurPath(const QString& path)
{
    if (replace(&State::face_blur_path, path))
        Q_EMIT faceBlurPathChanged(path);
}

} // namespace ImageEdit

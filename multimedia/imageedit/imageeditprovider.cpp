#include "multimedia/imageedit/imageeditprovider.h"

#include "multimedia/base/currentrequest.h"
#include "multimedia/base/picturefile.h"
#include "multimedia/base/processend.h"
#include "multimedia/base/warning.h"
#include "multimedia/facedetect/facedetect.h"
#include "multimedia/facedetect/facepatch.h"
#include "multimedia/imageedit/editdescription.h"
#include "quillon/util.h"

#include <QtConcurrent/QtConcurrentRun>
#include <QtCore/QBuffer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QStandardPaths>
#include <QtGui/QImage>
#include <QtGui/QImageReader>
#include <QtGui/QImageWriter>
#include <QtQml/QQmlEngine>

#include <algorithm>
#include <utility>

namespace ImageEdit {

using namespace multimedia;

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

/// Has Qt make the static objects that the jobs use, where else the first job would: at the exit those would
/// go before the jobs have ended.
void makeStaticObjects()
{
    QImage image(64, 64, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    multimedia::withFacesBlurred(image, image, {{1.0F, 16, 16, 32, 32, {}}});
    QBuffer stored;
    stored.open(QIODevice::WriteOnly);
    QImageWriter(&stored, "jpg").write(image);
    PictureReader(stored.data()).read();
}

} // namespace

ImageEditProvider* ImageEditProvider::instance()
{
    static ImageEditProvider provider;
    return &provider;
}

ImageEditProvider::ImageEditProvider()
    : m_session(std::make_unique<multimedia::CurrentRequest>())
{
    QQmlEngine::setObjectOwnership(this, QQmlEngine::CppOwnership);
    qRegisterMetaType<EditFileFilterPtr>("EditFileFilterPtr");
    qRegisterMetaType<EditState>("EditState");
    qRegisterMetaType<QString>("QString&"); // doEditSync is called from QML too
    m_editPool.setObjectName(QStringLiteral("image_edit_thread_pool"));
    makeStaticObjects();
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
    for (QFuture<void>& detection : m_detections)
        detection.waitForFinished();
}

void ImageEditProvider::doEdit(const EditFileFilterPtr& filterPtr)
{
    if (!filterPtr || !filterPtr->file) {
        multimedia::warning("doEdit", "request names no file");
        return;
    }
    auto* task = new ImageEditTask(filterPtr);
    const ImageEditTask::CancelFlag flag = task->cancelFlag();
    m_edits.insert(filterPtr->file->fileId(), flag);
    connect(
        task, &ImageEditTask::editFinish, this,
        [this, flag](const EditFileFilterPtr& filter, int code) { onEditFinish(filter, flag, code); },
        Qt::QueuedConnection);
    m_editPool.start(task, 0);
}

void ImageEditProvider::onEditFinish(const EditFileFilterPtr& filter, const ImageEditTask::CancelFlag& flag,
                                     int code)
{
    const auto edit = m_edits.find(filter->file->fileId());
    if (edit != m_edits.end() && *edit == flag) // else a newer one of the same file
        m_edits.erase(edit);
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
    m_maskJob = QtConcurrent::run(
        [this, filePath, format, session = m_session->number()] { maskFaces(filePath, format, session); });
}

void ImageEditProvider::maskFaces(const QString& file_path, const QByteArray& format, quint64 session)
{
    const QString blur_path = temporaryPath(format);
    QImageIOHandler::Transformations turn;
    QImage image = toUpright(loadImage(file_path, &turn), turn);
    const bool ok = !image.isNull() &&
                    saveStored(toStored(multimedia::faceMask(std::move(image)), turn), turn, blur_path);
    finishMask(file_path, ok ? blur_path : QString(), session);
}

void ImageEditProvider::finishMask(const QString& file_path, const QString& blur_path, quint64 session)
{
    const bool ok = !blur_path.isEmpty();
    bool blur_changed = false;
    bool path_changed = false;
    {
        const QMutexLocker lock(&m_mutex);
        // The user may have left the picture, at any time up to here.
        if (file_path == m_state.src_path && m_session->isCurrent(session)) {
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
    const PictureReader reader(srcPath);
    const QString thumb_path = temporaryPath(reader.format());
    const bool is_made =
        reader.isReadable() &&
        Util::instance()->scaleThumbImage(Util::toLocalFile(srcPath), thumb_path, {640, 640}, 640, false);
    return is_made ? thumb_path : srcPath;
}

QString ImageEditProvider::readThumbBytes(const QString& thumbPath)
{
    QByteArray bytes;
    if (PictureReader(thumbPath).isReadable())
        Util::scaleThumbBytes(Util::toLocalFile(thumbPath), 32, bytes);
    return QString::fromUtf8(bytes.constData()); // up to the first NUL
}

void ImageEditProvider::editImage(const QString& srcPath, QSize)
{
    PictureReader reader(srcPath);
    reader.setAutoTransform(true);
    if (!isEditable(reader.format()) || !reader.isReadable())
        return;
    if (!this->srcPath().isEmpty())
        editReset();
    replace(&State::src_path, srcPath);
    setImageSize(reader.size());
    const auto detect = [this, srcPath, session = m_session->begin()] {
        if (!m_session->isCurrent(session))
            return;
        QImageIOHandler::Transformations turn;
        const QImage image = loadImage(srcPath, &turn);
        const bool has_faces = !multimedia::faceDetect(toUpright(image, turn)).empty();
        m_session->post(session, this, [this, has_faces] { setFaceBlurEnabled(has_faces); });
    };
    m_detections.erase(std::remove_if(m_detections.begin(), m_detections.end(),
                                      [](const QFuture<void>& detection) { return detection.isFinished(); }),
                       m_detections.end());
    m_detections.append(QtConcurrent::run(detect));
}

void ImageEditProvider::editReset()
{
    m_session->end();
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

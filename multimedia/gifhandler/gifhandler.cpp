#include "multimedia/gifhandler/gifhandler.h"

#include "multimedia/base/currentrequest.h"
#include "multimedia/base/processend.h"
#include "multimedia/gifhandler/compressgif.h"

#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QMutexLocker>
#include <QtCore/QPointer>
#include <QtCore/QThread>

#include <utility>

namespace {

GifHandlerContextPtr compression(const QString& compressId, const QString& srcFilePath,
                                 const QString& destFilePath, GifCompressLevel level, const QSize& targetSize)
{
    auto context = GifHandlerContextPtr::create();
    context->compressId = compressId;
    context->srcFilePath = srcFilePath;
    context->targetSize = targetSize;
    context->destFilePath = destFilePath;
    context->compressLevel = level;
    return context;
}

} // namespace

GifHandler::GifHandler(QObject* parent)
    : QObject(parent)
    , m_syncCompress(std::make_unique<CompressGif>())
    , m_run(std::make_unique<multimedia::CurrentRequest>())
{
    qRegisterMetaType<GifHandlerContextPtr>("GifHandlerContextPtr");
    m_processEnd = std::make_unique<multimedia::ProcessEnd>([this] { end(); });
}

GifHandler::~GifHandler()
{
    end();
}

void GifHandler::end()
{
    cancelAllCompressGifs();
    if (m_thread) {
        m_thread->quit();
        m_thread->wait();
        delete std::exchange(m_thread, nullptr);
        m_worker = nullptr; // went with its thread
    }
    QMutexLocker until_sync_run_ended(&m_syncMutex);
}

void GifHandler::addCompressGif(const GifHandlerContextPtr& context)
{
    if (!context) {
        qWarning() << "no request to compress";
        return;
    }
    context->sync = false;
    context->cancelled = false;
    m_queue.append(context);
    m_ids.insert(context->compressId);
    if (m_queue.size() == 1)
        handleCompress();
}

void GifHandler::compressGif(const QString& compressId, const QString& srcFilePath,
                             const QString& destFilePath, GifCompressLevel level, const QSize& targetSize)
{
    if (compressId.isEmpty() || m_ids.contains(compressId) || !checkPath(srcFilePath, destFilePath)) {
        qWarning() << "compress request refused" << compressId << srcFilePath << destFilePath;
        Q_EMIT sigCompressComplete(compressId, false);
        return;
    }
    addCompressGif(compression(compressId, srcFilePath, destFilePath, level, targetSize));
}

void GifHandler::compressBatchGifs(const QVariant& value)
{
    const QVariantList list = value.toList();
    for (const QVariant& element : list) {
        const QVariantMap map = element.toMap();
        compressGif(map.value(QStringLiteral("compressId")).toString(),
                    map.value(QStringLiteral("srcFilePath")).toString(),
                    map.value(QStringLiteral("destFilePath")).toString(),
                    map.value(QStringLiteral("compressLevel")).toInt(),
                    map.value(QStringLiteral("targetSize")).toSize());
    }
}

bool GifHandler::compressGifSync(const QString& compressId, const QString& srcFilePath,
                                 const QString& destFilePath, GifCompressLevel level, const QSize& targetSize)
{
    return runSync(compression(compressId, srcFilePath, destFilePath, level, targetSize));
}

bool GifHandler::gifTranscodeToMP4(const QString& compressId, const QString& srcFilePath,
                                   const QString& destFilePath)
{
    const auto context = GifHandlerContextPtr::create();
    context->compressId = compressId;
    context->srcFilePath = srcFilePath;
    context->destFilePath = destFilePath;
    context->transcodeToMP4 = true;
    return runSync(context);
}

bool GifHandler::runSync(const GifHandlerContextPtr& context)
{
    if (!checkPath(context->srcFilePath, context->destFilePath)) {
        qWarning() << "compress request refused" << context->srcFilePath << context->destFilePath;
        return false;
    }
    context->sync = true;
    QMutexLocker lock(&m_syncMutex);
    return m_syncCompress->doCompressGif(context);
}

bool GifHandler::checkPath(const QString& srcFilePath, const QString& destFilePath)
{
    if (srcFilePath.isEmpty() || destFilePath.isEmpty() || !QFileInfo::exists(srcFilePath))
        return false;
    const QDir folder = QFileInfo(destFilePath).absoluteDir();
    return folder.exists() || folder.mkpath(folder.absolutePath());
}

void GifHandler::handleCompress()
{
    if (m_queue.isEmpty())
        return;
    CompressGif* worker = compresser();
    const auto run = [this, worker, context = m_queue.first(), number = m_run->begin()] {
        const bool result = worker->doCompressGif(context);
        m_run->post(number, this, [this, result] { slotCompressResult(result); });
    };
    QMetaObject::invokeMethod(worker, run, Qt::QueuedConnection);
}

CompressGif* GifHandler::compresser()
{
    if (m_worker)
        return m_worker;
    m_worker = new CompressGif;
    m_thread = new QThread;
    m_worker->moveToThread(m_thread);
    m_thread->start(QThread::InheritPriority);
    connect(m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    return m_worker;
}

void GifHandler::slotCompressResult(bool ret)
{
    if (m_queue.isEmpty())
        return;
    const GifHandlerContextPtr head = m_queue.first();
    // A cancel that came while the files were opened counts as no failure there; a caller sees one cancel.
    const QPointer<GifHandler> self(this);
    Q_EMIT sigCompressComplete(head->compressId, ret && !head->cancelled);
    // Whoever was told may have emptied the queue and begun another, or deleted the handler.
    if (!self || m_queue.isEmpty() || m_queue.first() != head)
        return;
    m_ids.remove(head->compressId);
    m_queue.removeFirst();
    handleCompress();
}

void GifHandler::cancelCompressGif(const QString& compressId)
{
    if (m_queue.isEmpty())
        return;
    if (m_queue.first()->compressId == compressId)
        m_queue.first()->cancelled = true;
    else
        removeCompressGif(compressId);
}

void GifHandler::removeCompressGif(const QString& compressId)
{
    for (int i = 1; i < m_queue.size(); ++i) {
        if (m_queue[i]->compressId == compressId) {
            m_queue.removeAt(i);
            m_ids.remove(compressId);
            return;
        }
    }
}

void GifHandler::cancelBatchGifs(const QList<QString>& compressIds)
{
    for (const QString& id : compressIds)
        cancelCompressGif(id);
}

void GifHandler::cancelAllCompressGifs()
{
    if (!m_queue.isEmpty())
        m_queue.first()->cancelled = true;
    m_run->end();
    m_syncCompress->cancelCompress();
    m_queue.clear();
    m_ids.clear();
}

void GifHandler::cancelCompressGifSync(const QString& /*compressId*/)
{
    m_syncCompress->cancelCompress();
}

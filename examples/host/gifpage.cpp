#include "examples/host/gifpage.h"

#include "examples/host/files.h"

#include <QtConcurrent/QtConcurrentRun>
#include <QtCore/QFile>
#include <QtGui/QImageReader>

GifPage::GifPage(QObject* parent)
    : QObject(parent)
{
    connect(&handler, &GifHandler::sigCompressComplete, this,
            [this](const QString&, bool good) { end(good); });
    connect(&transcoding, &QFutureWatcherBase::finished, this, [this] { end(transcoding.result()); });
}

GifPage::~GifPage()
{
    handler.cancelAllCompressGifs();
    transcoding.waitForFinished();
}

QSize GifPage::size(const QString& file) const
{
    QImageReader reader(file);
    reader.setDecideFormatFromContent(true);
    return reader.format() == "gif" ? reader.size() : QSize();
}

void GifPage::compress(const QString& file, const QSize& to)
{
    if (busy())
        return;
    begin(QStringLiteral("gif"));
    handler.compressGif(target, file, target, 0, to);
}

void GifPage::toVideo(const QString& file)
{
    if (busy())
        return;
    begin(QStringLiteral("mp4"));
    transcoding.setFuture(
        QtConcurrent::run([this, file, to = target] { return handler.gifTranscodeToMP4(to, file, to); }));
}

void GifPage::cancel()
{
    if (!busy())
        return;
    cancelled = true;
    handler.cancelCompressGif(target);
    handler.cancelCompressGifSync(target);
}

void GifPage::begin(const QString& suffix)
{
    target = Files::temporary(suffix);
    cancelled = false;
    Q_EMIT busyChanged();
}

void GifPage::end(bool good)
{
    const QString file = target;
    const bool complete = good && !cancelled;
    if (!complete)
        QFile::remove(file);
    target.clear();
    Q_EMIT busyChanged();
    Q_EMIT finished(complete ? file : QString(), cancelled);
}

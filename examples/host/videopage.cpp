#include "examples/host/videopage.h"

#include "examples/host/files.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "quillon/util.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <QtCore/QFileInfo>
#include <QtCore/QPointer>

#include <memory>

void VideoPage::clip(const QString& file, double start_ms, double end_ms)
{
    if (busy())
        return;
    file_id = Util::uuid();
    Q_EMIT busyChanged();
    // The request must not outlive the file that it names, so it owns it.
    const auto source = std::make_shared<BaseFile>(file_id, file);
    const auto request = EditFileFilterPtr::create();
    request->file = source.get();
    // The container that has room for the streams is the one they come from.
    request->savePath = Files::temporary(QFileInfo(file).suffix());
    request->editInfo = {{QStringLiteral("startTime"), qlonglong(start_ms)},
                         {QStringLiteral("endTime"), qlonglong(end_ms)}};
    request->clipCallback = [self = QPointer<VideoPage>(this), source, path = request->savePath](int,
                                                                                                 int code) {
        if (self)
            self->finish(code, path);
    };
    VideoEditor::instance()->clip(request);
}

void VideoPage::cancel()
{
    VideoEditor::instance()->cancel(file_id);
}

QString VideoPage::codecName(int codec) const
{
    const QString name = QString::fromLatin1(avcodec_get_name(AVCodecID(codec)));
    return name == QLatin1String("hevc")   ? QStringLiteral("H.265")
           : name == QLatin1String("h264") ? QStringLiteral("H.264")
                                           : name.toUpper();
}

void VideoPage::finish(int code, const QString& file)
{
    if (!busy())
        return;
    file_id.clear();
    Q_EMIT busyChanged();
    Q_EMIT clipped(code == 0 ? file : QString(), code == 1);
}

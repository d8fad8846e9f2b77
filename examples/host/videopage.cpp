#include "examples/host/videopage.h"

#include "multimedia/videoeditor/videoeditor.h"
#include "quillon/util.h"

#include <QtCore/QDir>

#include <memory>

void VideoPage::clip(const QString& file, double start_ms, double end_ms)
{
    // The request must not outlive the file that it names, so it owns it.
    const auto source = std::make_shared<BaseFile>(Util::uuid(), file);
    const auto request = EditFileFilterPtr::create();
    request->file = source.get();
    request->savePath = QDir::temp().filePath(Util::uuid() + QStringLiteral(".mp4"));
    request->editInfo = {{QStringLiteral("startTime"), qlonglong(start_ms)},
                         {QStringLiteral("endTime"), qlonglong(end_ms)}};
    const QString path = request->savePath;
    request->clipCallback = [this, source, path](int, int code) {
        Q_EMIT clipped(code == 0 ? path : QString());
    };
    VideoEditor::instance()->clip(request);
}

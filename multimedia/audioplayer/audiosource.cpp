#include "multimedia/audioplayer/audiosource.h"

#include "multimedia/base/warning.h"

#include <QtCore/QByteArray>
#include <QtCore/QLoggingCategory>

namespace multimedia {

namespace {
/// Of an address.
constexpr std::chrono::seconds kLongestOpening(100);

void logFailure(const char* call, int code, const char* path = "")
{
    qCDebug(MultimediaCategoryLogging, "%s falied: %s %s", call, ffmpegErrorString(code).c_str(), path);
}
} // namespace

bool openSound(MediaSource& source, const QByteArray& path, AVIOInterruptCB cancelled)
{
    SourceOptions options;
    options.cancelled = cancelled;
    if (path.startsWith("http")) {
        options.origin = SourceOrigin::Http;
        options.time_limit = kLongestOpening;
        options.network_timeout_us = std::chrono::microseconds(kLongestOpening).count();
    }
    int code = source.open(path.toStdString(), options);
    if (code < 0) {
        logFailure("avformat_open_input", code, path.constData());
        return false;
    }
    code = source.findStreams();
    if (code < 0) {
        logFailure("avformat_find_stream_info", code);
        source.close();
        return false;
    }
    code = source.select(AVMEDIA_TYPE_AUDIO);
    if (code < 0) {
        logFailure("av_find_best_stream", code);
        source.close();
        return false;
    }
    source.limitTime({});
    return true;
}

} // namespace multimedia

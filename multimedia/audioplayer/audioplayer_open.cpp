#include "multimedia/audioplayer/audioplayer_p.h"

#include "multimedia/base/openinput.h"
#include "multimedia/base/warning.h"

#include <QtCore/QLoggingCategory>

namespace {
constexpr qint64 kOpenTimeoutUs = 100'000'000;

void logFailure(const char* call, int code, const QByteArray& path = {})
{
    qCDebug(MultimediaCategoryLogging, "%s falied: %s %s", call, ffmpegErrorString(code).c_str(),
            path.constData());
}
} // namespace

bool initFormat(multimedia::InputPtr& out, int& streamIndex, const QByteArray& path,
                AVIOInterruptCB interrupt)
{
    multimedia::InputOptions options;
    options.origin =
        path.startsWith("http") ? multimedia::InputOrigin::Http : multimedia::InputOrigin::LocalFile;
    options.interrupt = interrupt;
    options.timeout_us = kOpenTimeoutUs;
    int code = multimedia::openInput(out, path.toStdString(), options);
    if (code < 0) {
        logFailure("avformat_open_input", code, path);
        return false;
    }
    code = avformat_find_stream_info(out.get(), nullptr);
    if (code < 0) {
        logFailure("avformat_find_stream_info", code);
        return false;
    }
    code = av_find_best_stream(out.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (code < 0) {
        logFailure("av_find_best_stream", code);
        return false;
    }
    streamIndex = code;
    return true;
}

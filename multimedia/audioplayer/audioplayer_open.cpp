#include "multimedia/audioplayer/audioplayer_p.h"

#include "multimedia/base/openinput.h"
#include "multimedia/base/warning.h"

#include <QtCore/QDateTime>
#include <QtCore/QLoggingCategory>

std::atomic<bool> g_needToInterruptOpen = false;
std::atomic<bool> g_interruptOpened = false;
std::atomic<qint64> g_startTime = 0;

namespace {
constexpr qint64 kOpenTimeoutUs = 100'000'000;
constexpr qint64 kReadTimeoutMs = 20'000;

void logFailure(const char* call, int code, const QByteArray& path = {})
{
    qCDebug(MultimediaCategoryLogging, "%s falied: %s %s", call, ffmpegErrorString(code).c_str(),
            path.constData());
}
} // namespace

int interrupt_callback(void* /*unused*/)
{
    if (g_needToInterruptOpen) {
        g_interruptOpened = true;
        return 1;
    }
    const qint64 start_time = g_startTime;
    if (start_time == 0 || QDateTime::currentMSecsSinceEpoch() - start_time <= kReadTimeoutMs)
        return 0;
    g_startTime = 0;
    return 1;
}

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

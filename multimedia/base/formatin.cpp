#include "multimedia/base/formatin.h"

#include "multimedia/base/captureinput.h"
#include "multimedia/base/mediasource.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavdevice/avdevice.h>
}

#include <QtCore/QLoggingCategory>

#include <chrono>
#include <utility>

namespace multimedia {

namespace {
/// Between two passes that could not read: one frame of a recording.
constexpr std::chrono::milliseconds kRetryPause(40);
} // namespace

FormatHandle FormatIn::createVideo(VideoInfo info)
{
    const CaptureInput input = captureInput(info.frame_rate, info.video_index);
    Dictionary dictionary;
    for (const auto& [key, value] : input.options) {
        const int code = dictionary.set(key.c_str(), value.c_str());
        if (code < 0)
            warning("createVideo", "error in set opetions " + key, code);
    }
    InputPtr context;
    const int code = MediaSource::openDevice(context, input.format, input.device, dictionary);
    if (code < 0) {
        warning("createVideo", "error in open video format", code);
        return {};
    }
    return {context.release(), destory};
}

FormatHandle FormatIn::createFile(FileInfo info)
{
    MediaSource source;
    const int code = source.open(info.path());
    if (code < 0) {
        warning("createFile", "error in open file format", code);
        return {};
    }
    source.limitTime({});
    return {source.release().release(), destory};
}

void FormatIn::destory(AVFormatContext* format)
{
    InputPtr input(format);
}

FormatIn::FormatIn(Params params)
    : params(std::move(params))
    , worker([this] { return run(); })
{}

FormatIn::~FormatIn()
{
    stop();
    worker.stop();
}

void FormatIn::start()
{
    std::lock_guard lock(mutex);
    running = true;
    worker.start();
}

void FormatIn::stop()
{
    std::lock_guard lock(mutex);
    running = false;
    stopped.notify_all();
}

bool FormatIn::run()
{
    {
        std::lock_guard lock(mutex);
        if (!running)
            return false;
    }
    if (params.format) {
        readPacket();
    } else {
        warning("run", "empty format");
        pause();
    }
    std::lock_guard lock(mutex);
    return running;
}

void FormatIn::readPacket()
{
    PacketHandle packet = createPacket();
    int code = AVERROR(ENOMEM);
    if (packet) {
        BlockingSection blocking;
        code = av_read_frame(params.format.get(), packet.get());
    }
    read_failed = code < 0 && code != AVERROR(EAGAIN);
    if (code == 0) {
        deliver(packet.get());
    } else if (code == AVERROR_EOF) {
        endOfFormat(std::move(packet));
    } else {
        warning("run", "error in read frame", code);
        pause();
    }
}

void FormatIn::deliver(AVPacket* packet) const
{
    const AVMediaType type = params.format->streams[packet->stream_index]->codecpar->codec_type;
    std::function<void(PacketHandle)> next;
    if (type == AVMEDIA_TYPE_VIDEO)
        next = params.on_video;
    else if (type == AVMEDIA_TYPE_AUDIO)
        next = params.on_audio;
    if (!next)
        return;
    PacketHandle reference = createPacket();
    const int code = reference ? av_packet_ref(reference.get(), packet) : AVERROR(ENOMEM);
    if (code < 0) {
        warning("run", "error in read frame", code);
        return;
    }
    next(std::move(reference));
}

void FormatIn::endOfFormat(PacketHandle packet)
{
    qCDebug(MultimediaCategoryLogging, "[%s]: end of format", "run");
    if (params.on_video)
        params.on_video(std::exchange(packet, nullptr));
    if (params.on_audio)
        params.on_audio(std::move(packet)); // null when the line above took it
    std::lock_guard lock(mutex);
    running = false;
}

void FormatIn::pause()
{
    BlockingSection blocking;
    std::unique_lock lock(mutex);
    stopped.wait_for(lock, kRetryPause, [this] { return !running; });
}

} // namespace multimedia

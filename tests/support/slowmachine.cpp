#include "tests/support/slowmachine.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <thread>
#include <utility>

namespace {

template<typename Function>
Function* real(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

SlowMachine& SlowMachine::instance()
{
    static SlowMachine machine;
    return machine;
}

void SlowMachine::set(Hindrance before_capture, Hindrance before_encode)
{
    std::lock_guard lock(mutex);
    capture = std::move(before_capture);
    encode = std::move(before_encode);
}

void SlowMachine::call(const Hindrance& hindrance)
{
    Hindrance copy;
    {
        std::lock_guard lock(mutex);
        copy = hindrance;
    }
    if (copy)
        copy();
}

SlowMachine::Hindrance SlowMachine::every(std::chrono::milliseconds interval)
{
    auto next = std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
    return [interval, next] {
        std::this_thread::sleep_until(*next);
        *next = std::max(*next + interval, std::chrono::steady_clock::now());
    };
}

SlowMachine::Hindrance SlowMachine::inBursts(std::chrono::milliseconds hole, std::chrono::milliseconds period)
{
    auto next = std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
    return [hole, period, next] {
        if (std::chrono::steady_clock::now() < *next)
            return;
        std::this_thread::sleep_for(hole);
        *next = std::chrono::steady_clock::now() + period - hole;
    };
}

extern "C" {

int avformat_open_input(AVFormatContext** context, const char* url, const AVInputFormat* format,
                        AVDictionary** options)
{
    static const auto open = real(&avformat_open_input, "avformat_open_input");
    if (const char* rate = SlowMachine::instance().capture_rate; rate && options && format)
        av_dict_set(options, "framerate", rate, 0);
    return open(context, url, format, options);
}

int av_read_frame(AVFormatContext* context, AVPacket* packet)
{
    static const auto read = real(&av_read_frame, "av_read_frame");
    if (std::strcmp(context->iformat->name, "x11grab") == 0)
        SlowMachine::instance().beforeCapture();
    return read(context, packet);
}

int avcodec_send_frame(AVCodecContext* codec, const AVFrame* frame)
{
    static const auto send = real(&avcodec_send_frame, "avcodec_send_frame");
    if (codec->codec_type == AVMEDIA_TYPE_VIDEO)
        SlowMachine::instance().beforeEncode();
    return send(codec, frame);
}

const AVCodec* avcodec_find_encoder_by_name(const char* name)
{
    static const auto find = real(&avcodec_find_encoder_by_name, "avcodec_find_encoder_by_name");
    return SlowMachine::instance().has_h264 ? find(name) : nullptr;
}
}

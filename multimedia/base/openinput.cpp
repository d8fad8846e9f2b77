#include "multimedia/base/openinput.h"

#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/opt.h>
}

#include <cstring>
#include <filesystem>
#include <system_error>

namespace multimedia {

namespace {
constexpr auto kMaxStreams = "256";
constexpr auto kProbeBytes = "5000000";
constexpr auto kAnalyzeDurationUs = "5000000";
constexpr int64_t kMaxPixels = 100'000'000;
constexpr auto kFileScheme = "file:";
constexpr auto kHttpProtocols = "http,https,tcp,tls,httpproxy";

/// `AVFormatContext::io_open`: the source itself, once.
int openOnlyItself(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                   AVDictionary** options)
{
    if (context->pb || std::strcmp(url, context->url) != 0 || (flags & AVIO_FLAG_WRITE)) {
        warning("openInput", std::string("input reaches for ") + url);
        return AVERROR(EACCES);
    }
    const bool local = std::strncmp(url, kFileScheme, std::strlen(kFileScheme)) == 0;
    const int code = av_dict_set(options, "protocol_whitelist", local ? "file" : kHttpProtocols, 0);
    return code < 0 ? code : avio_open2(io, url, flags, &context->interrupt_callback, options);
}

/// The list of protocols holds for demuxers that pass `io_open` by; there is no protocol of that name.
int setContextOptions(AVFormatContext* context)
{
    int code = av_opt_set(context, "protocol_whitelist", "none", 0);
    if (code >= 0)
        code = av_opt_set(context, "max_streams", kMaxStreams, 0);
    if (code >= 0)
        code = av_opt_set(context, "probesize", kProbeBytes, 0);
    if (code >= 0)
        code = av_opt_set(context, "analyzeduration", kAnalyzeDurationUs, 0);
    return code;
}

/// FFmpeg would show a text as the film of a terminal.
bool isText(const AVFormatContext& context)
{
    return std::strcmp(context.iformat->name, "tty") == 0;
}

bool isRegularFile(const std::string& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

bool isHttpUrl(const std::string& path)
{
    return av_stristart(path.c_str(), "http://", nullptr) || av_stristart(path.c_str(), "https://", nullptr);
}
} // namespace

int openInput(InputPtr& input, const std::string& path, const InputOptions& options)
{
    input.reset();
    const bool local = options.origin == InputOrigin::LocalFile;
    if (local && !isRegularFile(path))
        return AVERROR(ENOENT);
    if (!local && !isHttpUrl(path))
        return AVERROR(EINVAL);

    AVFormatContext* context = avformat_alloc_context();
    if (!context)
        return AVERROR(ENOMEM);
    context->io_open = openOnlyItself;
    context->interrupt_callback = options.interrupt;

    Dictionary protocol_options;
    int code = setContextOptions(context);
    // A lost connection is made anew once, at the place of its end; further attempts are the caller's.
    if (code >= 0 && !local)
        code = protocol_options.set("reconnect", "1");
    if (code >= 0 && !local)
        code = protocol_options.set("reconnect_delay_max", "0");
    if (code >= 0 && options.timeout_us > 0)
        code = protocol_options.set("timeout", std::to_string(options.timeout_us).c_str());
    if (code < 0) {
        avformat_free_context(context);
        return code;
    }
    const std::string url = local ? kFileScheme + path : path;
    code = avformat_open_input(&context, url.c_str(), nullptr, protocol_options.address());
    input.reset(context);
    if (code < 0 || !isText(*context))
        return code;
    input.reset();
    return AVERROR_INVALIDDATA;
}

CodecContextPtr openDecoder(const AVStream& stream)
{
    const AVCodec* decoder = avcodec_find_decoder(stream.codecpar->codec_id);
    CodecContextPtr codec(decoder ? avcodec_alloc_context3(decoder) : nullptr);
    if (!codec || avcodec_parameters_to_context(codec.get(), stream.codecpar) < 0)
        return {};
    codec->max_pixels = kMaxPixels;
    return avcodec_open2(codec.get(), decoder, nullptr) < 0 ? CodecContextPtr() : std::move(codec);
}

} // namespace multimedia

#include "multimedia/base/mediasource.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/mediaformat.h"
#include "multimedia/base/regularfile.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cerrno>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace multimedia {

namespace {

constexpr auto kMaxStreams = "256";
/// What is read to learn what the streams are, at most.
constexpr int64_t kProbeBytes = 5'000'000;
constexpr int64_t kAnalyzeDurationUs = 5'000'000;
/// Of one frame and channel.
constexpr int64_t kMaxSamples = 1 << 22;
constexpr auto kHttpProtocols = "http,https,tcp,tls,httpproxy";

bool isHttpUrl(const std::string& path)
{
    return av_stristart(path.c_str(), "http://", nullptr) || av_stristart(path.c_str(), "https://", nullptr);
}

int64_t sizeOf(int descriptor)
{
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 ? int64_t(status.st_size) : 0;
}

int refuse(const char* what)
{
    warning("MediaSource", what);
    return AVERROR(ERANGE);
}

/// Nothing is known yet where a value is 0.
int checkAudio(int rate, int channels)
{
    if (rate != 0 && (rate < MediaSource::kLowestRate || rate > MediaSource::kHighestRate))
        return refuse("sample rate out of bounds");
    return channels < 0 || channels > MediaSource::kMostChannels ? refuse("too many channels") : 0;
}

int setDecoderBounds(Dictionary& dictionary, int64_t max_pixels)
{
    const int code = dictionary.set("max_pixels", std::to_string(max_pixels).c_str());
    return code < 0 ? code : dictionary.set("max_samples", std::to_string(kMaxSamples).c_str());
}

/// The decoders that a stream of sound may be learnt with.
const std::string& audioDecoders()
{
    static const std::string names = [] {
        std::string list;
        void* position = nullptr;
        while (const AVCodec* codec = av_codec_iterate(&position)) {
            if (codec->type == AVMEDIA_TYPE_AUDIO && av_codec_is_decoder(codec))
                list += (list.empty() ? "" : ",") + std::string(codec->name);
        }
        return list;
    }();
    return names;
}

int setInputOptions(Dictionary& dictionary, const SourceOptions& options)
{
    std::vector<std::pair<const char*, std::string>> entries = {
        {"format_whitelist", kMediaFormats},
        // For demuxers that pass `io_open` by; there is no protocol of that name.
        {"protocol_whitelist", "none"},
        {"max_streams", kMaxStreams},
        {"probesize", std::to_string(kProbeBytes)},
        {"analyzeduration", std::to_string(kAnalyzeDurationUs)},
    };
    // A lost connection is made anew once, at the place of its end; further attempts are the caller's.
    if (options.origin == SourceOrigin::Http)
        entries.insert(entries.end(), {{"reconnect", "1"}, {"reconnect_delay_max", "0"}});
    if (options.network_timeout_us > 0)
        entries.emplace_back("timeout", std::to_string(options.network_timeout_us));
    int code = 0;
    for (const auto& [key, value] : entries) {
        if (code >= 0)
            code = dictionary.set(key, value.c_str());
    }
    return code;
}

/// @param context  taken over; null for a new one
int openFormat(InputPtr& input, AVFormatContext* context, const char* url, const AVInputFormat* demuxer,
               Dictionary& options)
{
    const int code = avformat_open_input(&context, url, demuxer, options.address());
    input.reset(context);
    return code;
}

} // namespace

/// What the reads of an input poll, and what it reads.
struct MediaSource::Guard
{
    explicit Guard(const SourceOptions& options)
        : options(options)
    {
        limit(options.time_limit);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard()
    {
        if (io)
            av_freep(&io->buffer);
        avio_context_free(&io);
        if (descriptor >= 0)
            ::close(descriptor);
    }

    void limit(std::chrono::milliseconds time)
    {
        is_limited = time.count() > 0;
        deadline = std::chrono::steady_clock::now() + time;
    }
    bool isOver() const
    {
        const AVIOInterruptCB& cancelled = options.cancelled;
        return (cancelled.callback && cancelled.callback(cancelled.opaque)) ||
               (is_limited && std::chrono::steady_clock::now() > deadline);
    }
    bool hasShrunk() const { return descriptor >= 0 && sizeOf(descriptor) < size; }

    const SourceOptions options;
    std::string url;           ///< what `openOnlyItself` opens
    int descriptor = -1;       ///< of a local file
    AVIOContext* io = nullptr; ///< reads it
    int64_t size = 0;          ///< of it when it was opened
    int probe_score = 0;       ///< of a local file
    bool is_limited = false;
    std::chrono::steady_clock::time_point deadline;

    /// Makes `io`. The file is the one that was looked at, though another may have got its name since.
    int openIo()
    {
        constexpr int kBufferBytes = 32 * 1024;
        auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
        io =
            buffer ? avio_alloc_context(buffer, kBufferBytes, 0, this, readFile, nullptr, seekFile) : nullptr;
        if (!io)
            av_free(buffer);
        return io ? 0 : AVERROR(ENOMEM);
    }
    static int readFile(void* guard, uint8_t* bytes, int count)
    {
        const auto* self = static_cast<const Guard*>(guard);
        if (self->isOver())
            return AVERROR_EXIT;
        const ssize_t got = ::read(self->descriptor, bytes, size_t(count));
        if (got < 0)
            return AVERROR(errno);
        return got > 0 ? int(got) : AVERROR_EOF;
    }
    static int64_t seekFile(void* guard, int64_t offset, int whence)
    {
        const auto* self = static_cast<const Guard*>(guard);
        if (whence & AVSEEK_SIZE)
            return sizeOf(self->descriptor);
        const off_t position = ::lseek(self->descriptor, offset, whence & ~AVSEEK_FORCE);
        return position < 0 ? AVERROR(errno) : position;
    }

    /// `AVIOInterruptCB::callback`.
    static int poll(void* guard) { return static_cast<Guard*>(guard)->isOver() ? 1 : 0; }

    /// `AVFormatContext::io_open`: the source itself, once. FFmpeg is never told its name.
    static int openOnlyItself(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                              AVDictionary** options)
    {
        const auto* self = static_cast<const Guard*>(context->opaque);
        if (context->pb || !self || *url != '\0' || (flags & AVIO_FLAG_WRITE)) {
            warning("MediaSource", std::string("input reaches for ") + url);
            return AVERROR(EACCES);
        }
        const int code =
            av_dict_set(options, "protocol_whitelist", self->descriptor >= 0 ? "file" : kHttpProtocols, 0);
        return code < 0 ? code
                        : avio_open2(io, self->url.c_str(), flags, &context->interrupt_callback, options);
    }
};

int MediaSource::openDevice(InputPtr& input, const std::string& format, const std::string& device,
                            Dictionary& options)
{
    const AVInputFormat* demuxer = format.empty() ? nullptr : av_find_input_format(format.c_str());
    // Without a demuxer FFmpeg would take the device for the name of a file.
    return demuxer ? openFormat(input, nullptr, device.c_str(), demuxer, options) : AVERROR_DEMUXER_NOT_FOUND;
}

int MediaSource::makeDecoder(CodecContextPtr& decoder, const AVStream& stream, int64_t max_pixels)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    decoder.reset();
    if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
        const int code = checkAudio(parameters.sample_rate, channelCount(parameters));
        if (code < 0)
            return code;
    }
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    if (!codec)
        return AVERROR_DECODER_NOT_FOUND;
    CodecContextPtr made(avcodec_alloc_context3(codec));
    int code = made ? avcodec_parameters_to_context(made.get(), &parameters) : AVERROR(ENOMEM);
    if (code < 0)
        return code;
    made->max_pixels = max_pixels;
    made->max_samples = kMaxSamples;
    made->pkt_timebase = stream.time_base;
    code = avcodec_open2(made.get(), codec, nullptr);
    if (code >= 0)
        decoder = std::move(made);
    return code;
}

MediaSource::MediaSource(InputPtr opened)
    : input(std::move(opened))
    , guard(static_cast<Guard*>(input->opaque))
{}

void MediaSource::close()
{
    packet.reset();
    decoder.reset();
    input.reset();
    guard = nullptr;
    selected = -1;
}

int MediaSource::open(const std::string& path, const SourceOptions& options)
try {
    close();
    auto made = std::make_unique<Guard>(options);
    const int code = openContext(path, *made);
    if (!input)
        return made->isOver() ? AVERROR_EXIT : code;
    guard = made.release();
    return code;
} catch (const std::bad_alloc&) {
    return AVERROR(ENOMEM);
}

int MediaSource::openContext(const std::string& path, Guard& made)
{
    const AVInputFormat* demuxer = nullptr;
    if (made.options.origin == SourceOrigin::LocalFile) {
        made.descriptor = openRegularFile(path);
        if (made.descriptor < 0)
            return made.descriptor;
        made.size = sizeOf(made.descriptor);
        made.url = "file:/proc/self/fd/" + std::to_string(made.descriptor);
        demuxer = recognise(made.descriptor, made.probe_score);
        if (!demuxer)
            return AVERROR_INVALIDDATA;
    } else if (isHttpUrl(path)) {
        made.url = path;
    } else {
        return AVERROR(EINVAL);
    }

    Dictionary dictionary;
    int code = setInputOptions(dictionary, made.options);
    if (code >= 0 && made.descriptor >= 0 && !made.options.is_given_away)
        code = made.openIo();
    if (code < 0)
        return code;
    AVFormatContext* context = avformat_alloc_context();
    if (!context)
        return AVERROR(ENOMEM);
    const bool is_guarded = made.options.cancelled.callback || made.is_limited;
    if (is_guarded)
        context->interrupt_callback = {Guard::poll, &made};
    context->opaque = &made;
    context->io_open = Guard::openOnlyItself;
    if (made.io) {
        context->pb = made.io;
        context->flags |= AVFMT_FLAG_CUSTOM_IO;
    }
    if (made.options.completes_times)
        context->flags |= AVFMT_FLAG_GENPTS;

    code = openFormat(input, context, "", demuxer, dictionary);
    if (code < 0)
        return code;
    if (char* url = av_strdup(path.c_str())) { // for those who tell what they read
        av_free(context->url);
        context->url = url;
    }
    return 0;
}

int MediaSource::findStreams()
try {
    int code = guard->options.origin == SourceOrigin::LocalFile ? meetStreams() : 0;
    // Streams that nobody has met yet get decoders without bounds. Addresses are read once, and for their
    // sound.
    if (code >= 0 && guard->options.origin == SourceOrigin::Http && (input->ctx_flags & AVFMTCTX_NOHEADER))
        code = av_opt_set(input.get(), "codec_whitelist", audioDecoders().c_str(), 0);
    if (code < 0)
        return code;
    const size_t count = std::max(input->nb_streams, 1U);
    std::vector<Dictionary> bounds(count);
    std::vector<AVDictionary*> dictionaries(count);
    for (size_t i = 0; code >= 0 && i < count; ++i) {
        code = setDecoderBounds(bounds[i], guard->options.max_pixels);
        dictionaries[i] = bounds[i].release();
    }
    if (code >= 0)
        code = avformat_find_stream_info(input.get(), dictionaries.data());
    for (AVDictionary*& dictionary : dictionaries)
        av_dict_free(&dictionary);
    return isInterrupted() ? AVERROR_EXIT : code;
} catch (const std::bad_alloc&) {
    return AVERROR(ENOMEM);
}

/// Where streams turn up in the middle of a file, it is read twice.
int MediaSource::meetStreams()
{
    if (!(input->ctx_flags & AVFMTCTX_NOHEADER))
        return 0;
    const int64_t begin = avio_tell(input->pb);
    int64_t bytes = 0;
    int code = hasPacket() ? 0 : AVERROR(ENOMEM);
    while (code >= 0 && bytes <= kProbeBytes) {
        code = read(*packet);
        bytes += packet->size;
        av_packet_unref(packet.get());
    }
    if (isInterrupted())
        return AVERROR_EXIT;
    const int64_t position = avio_seek(input->pb, begin, SEEK_SET);
    return position < 0 ? int(position) : avformat_flush(input.get());
}

bool MediaSource::hasPacket()
{
    if (!packet)
        packet = createPacket();
    return packet != nullptr;
}

int MediaSource::select(AVMediaType type)
{
    const int index = av_find_best_stream(input.get(), type, -1, -1, nullptr, 0);
    if (index >= 0)
        selected = index;
    return index;
}

int MediaSource::openDecoder()
{
    return makeDecoder(decoder, *stream(), guard ? guard->options.max_pixels : kMaxPixels);
}

int MediaSource::read(AVPacket& target)
{
    const int code = av_read_frame(input.get(), &target);
    if (code < 0 && isInterrupted())
        return AVERROR_EXIT;
    if (code == AVERROR_EOF && guard && guard->hasShrunk()) {
        warning("MediaSource", "file was cut while it was read");
        return AVERROR(EIO);
    }
    if (code < 0 || target.size <= kLargestPacket)
        return code;
    av_packet_unref(&target);
    return refuse("packet too large");
}

int MediaSource::decode(AVFrame& frame)
{
    for (;;) {
        int code = avcodec_receive_frame(decoder.get(), &frame);
        if (code >= 0)
            return stream()->codecpar->codec_type == AVMEDIA_TYPE_AUDIO
                       ? checkAudio(frame.sample_rate, channelCount(frame))
                       : 0;
        if (code == AVERROR(EAGAIN))
            code = sendNext();
        if (code < 0 && code != AVERROR_INVALIDDATA)
            return code;
    }
}

/// `AVERROR_INVALIDDATA` is the packet's fault, any other error the file's.
int MediaSource::sendNext()
{
    if (!hasPacket())
        return AVERROR(ENOMEM);
    if (isInterrupted())
        return AVERROR_EXIT;
    int code = read(*packet);
    if (code == AVERROR_EOF)
        return avcodec_send_packet(decoder.get(), nullptr);
    if (code < 0)
        return code == AVERROR_INVALIDDATA ? AVERROR(EIO) : code;
    if (packet->stream_index == selected)
        code = avcodec_send_packet(decoder.get(), packet.get());
    av_packet_unref(packet.get());
    return code;
}

void MediaSource::limitTime(std::chrono::milliseconds time)
{
    guard->limit(time);
}

bool MediaSource::isInterrupted() const
{
    return guard && guard->isOver();
}

int MediaSource::probeScore() const
{
    return guard->descriptor >= 0 ? guard->probe_score : input->probe_score;
}

int64_t MediaSource::duration() const
{
    return input->duration == AV_NOPTS_VALUE ? 0 : input->duration / 1000;
}

InputPtr MediaSource::release()
{
    return std::move(input);
}

AVFormatContext* MediaSource::releaseBare()
{
    delete static_cast<Guard*>(std::exchange(input->opaque, nullptr));
    guard = nullptr;
    return input.release();
}

void detail::InputDeleter::operator()(AVFormatContext* context) const
{
    // It is polled until the last read.
    const std::unique_ptr<MediaSource::Guard> guard(static_cast<MediaSource::Guard*>(context->opaque));
    avformat_close_input(&context);
}

} // namespace multimedia

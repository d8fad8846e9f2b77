#include "multimedia/screensource_linux/pipewirestream.h"

#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <QtCore/QFileInfo>
#include <QtCore/QLoggingCategory>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <spa/utils/result.h>
#include <unistd.h>
#include <utility>

namespace multimedia {

namespace {

constexpr int kPixelBytes = 4;
constexpr uint32_t kLargestSide = 16384;
const char* const kNoLongerShared = "the desktop shares the screen no longer";
const char* const kNoFormat = "the desktop has offered no format that can be read in memory";

struct PixelFormat
{
    spa_video_format of_desktop;
    AVPixelFormat ours;
};

/// Of a screen nothing shines through, whatever the fourth byte says.
constexpr std::array kPixelFormats = {
    PixelFormat{SPA_VIDEO_FORMAT_BGRx, AV_PIX_FMT_BGR0}, PixelFormat{SPA_VIDEO_FORMAT_BGRA, AV_PIX_FMT_BGR0},
    PixelFormat{SPA_VIDEO_FORMAT_RGBx, AV_PIX_FMT_RGB0}, PixelFormat{SPA_VIDEO_FORMAT_RGBA, AV_PIX_FMT_RGB0},
    PixelFormat{SPA_VIDEO_FORMAT_xRGB, AV_PIX_FMT_0RGB}, PixelFormat{SPA_VIDEO_FORMAT_xBGR, AV_PIX_FMT_0BGR},
};

template<typename Meta>
const Meta* findMeta(const spa_buffer* buffer, spa_meta_type type)
{
    return static_cast<const Meta*>(spa_buffer_find_meta_data(buffer, type, sizeof(Meta)));
}

bool isCorrupt(const spa_buffer* buffer)
{
    const auto* header = findMeta<spa_meta_header>(buffer, SPA_META_Header);
    return (buffer->datas[0].chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) ||
           (header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED));
}

const spa_pod* buildMeta(spa_pod_builder& builder, spa_meta_type type, std::size_t size)
{
    return static_cast<const spa_pod*>(
        spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                                   SPA_POD_Id(type), SPA_PARAM_META_size, SPA_POD_Int(int(size))));
}

/// An application in a box of its own reaches PipeWire by the desktop only.
bool isSandboxed()
{
    return QFileInfo::exists(QStringLiteral("/.flatpak-info")) || qEnvironmentVariableIsSet("SNAP");
}

timespec toTimespec(int64_t duration_ns)
{
    return {time_t(duration_ns / SPA_NSEC_PER_SEC), long(duration_ns % SPA_NSEC_PER_SEC)};
}

} // namespace

struct PipeWireStream::Hooks
{
    spa_hook core{};
    spa_hook registry{};
    spa_hook stream{};
};

/// What PipeWire calls, with the stream as `data`.
struct PipeWireStream::Events
{
    static PipeWireStream& self(void* data) { return *static_cast<PipeWireStream*>(data); }

    static void error(void* data, uint32_t id, int, int code, const char* message)
    {
        self(data).onError(id, code, message);
    }
    static void globalRemoved(void* data, uint32_t id) { self(data).onRemoved(id); }
    static void stateChanged(void* data, pw_stream_state, pw_stream_state state, const char* error)
    {
        self(data).onState(state, error);
    }
    static void paramChanged(void* data, uint32_t id, const spa_pod* param)
    {
        if (id == SPA_PARAM_Format && param)
            self(data).onFormat(param);
    }
    static void process(void* data) { self(data).onProcess(); }
    static void patienceEnds(void* data, uint64_t) { self(data).onPatience(); }
    static void alarm(void* data, uint64_t) { self(data).params.on_alarm(); }

    static pw_core_events core()
    {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.error = error;
        return events;
    }
    static pw_registry_events registry()
    {
        pw_registry_events events{};
        events.version = PW_VERSION_REGISTRY_EVENTS;
        events.global_remove = globalRemoved;
        return events;
    }
    static pw_stream_events stream()
    {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.state_changed = stateChanged;
        events.param_changed = paramChanged;
        events.process = process;
        return events;
    }
};

PipeWireStream::PipeWireStream(Params given)
    : params(std::move(given))
    , hooks(std::make_unique<Hooks>())
{
    static std::once_flag initialised;
    std::call_once(initialised, [] { pw_init(nullptr, nullptr); });
    loop = pw_thread_loop_new("screen", nullptr);
    context = loop ? pw_context_new(pw_thread_loop_get_loop(loop), nullptr, 0) : nullptr;
    if (!context || pw_thread_loop_start(loop) < 0)
        return;
    locked([this] {
        patience = pw_loop_add_timer(pw_thread_loop_get_loop(loop), Events::patienceEnds, this);
        alarm = pw_loop_add_timer(pw_thread_loop_get_loop(loop), Events::alarm, this);
    });
}

PipeWireStream::~PipeWireStream()
{
    if (!loop)
        return;
    pw_thread_loop_stop(loop);
    if (stream) { // nobody is to hear how it ends
        spa_hook_remove(&hooks->stream);
        pw_stream_destroy(stream);
    }
    if (registry) {
        spa_hook_remove(&hooks->registry);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    }
    if (core) {
        spa_hook_remove(&hooks->core);
        pw_core_disconnect(core);
    }
    if (context)
        pw_context_destroy(context);
    for (spa_source* timer : {patience, alarm}) {
        if (timer)
            pw_loop_destroy_source(pw_thread_loop_get_loop(loop), timer);
    }
    pw_thread_loop_destroy(loop);
}

/// The desktop would ask the user all the same, and then never answer.
std::string PipeWireStream::problem() const
{
    if (!context || !alarm)
        return "libpipewire cannot be set up: are its modules and its client.conf installed?";
    pw_thread_loop_lock(loop);
    pw_core* tried = pw_context_connect(context, nullptr, 0);
    if (tried)
        pw_core_disconnect(tried);
    pw_thread_loop_unlock(loop);
    return tried || isSandboxed() ? "" : "PipeWire does not run";
}

void PipeWireStream::locked(const std::function<void()>& function)
{
    pw_thread_loop_lock(loop);
    function();
    pw_thread_loop_unlock(loop);
}

void PipeWireStream::connect(int descriptor, uint32_t node)
{
    static const pw_core_events core_events = Events::core();
    static const pw_registry_events registry_events = Events::registry();
    static const pw_stream_events stream_events = Events::stream();
    pw_thread_loop_lock(loop);
    shared_node = node;
    setPatience(true);
    core = pw_context_connect_fd(context, descriptor, nullptr, 0);
    if (core) {
        pw_core_add_listener(core, &hooks->core, &core_events, this);
        registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
        if (registry)
            pw_registry_add_listener(registry, &hooks->registry, &registry_events, this);
        stream = pw_stream_new(core, "screen",
                               pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture",
                                                 PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    }
    int code = stream ? 0 : -errno;
    if (stream) {
        pw_stream_add_listener(stream, &hooks->stream, &stream_events, this);
        std::array<uint8_t, 2048> bytes = {};
        spa_pod_builder builder = SPA_POD_BUILDER_INIT(bytes.data(), uint32_t(bytes.size()));
        std::array formats = {buildFormat(builder, true), buildFormat(builder, false)};
        code = pw_stream_connect(stream, PW_DIRECTION_INPUT, node,
                                 pw_stream_flags(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                 PW_STREAM_FLAG_DONT_RECONNECT),
                                 formats.data(), uint32_t(formats.size()));
    }
    pw_thread_loop_unlock(loop);
    if (code < 0)
        params.on_end(std::string("PipeWire cannot be reached: ") + spa_strerror(code));
}

/// Without modifiers, so that no picture comes as a handle of the graphics card.
const spa_pod* PipeWireStream::buildFormat(spa_pod_builder& builder, bool limits_rate) const
{
    spa_pod_frame object{};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), 0);
    spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_format, 0);
    spa_pod_frame choice{};
    spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
    spa_pod_builder_id(&builder, kPixelFormats[0].of_desktop); // the default, then all
    for (const PixelFormat& format : kPixelFormats)
        spa_pod_builder_id(&builder, format.of_desktop);
    spa_pod_builder_pop(&builder, &choice);
    const spa_rectangle usual = {1920, 1080};
    const spa_rectangle smallest = {1, 1};
    const spa_rectangle largest = {kLargestSide, kLargestSide};
    const spa_fraction none = {0, 1};
    const spa_fraction most = {1000, 1};
    const spa_fraction wanted = {uint32_t(std::max(1, params.frame_rate)), 1};
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size,
                        SPA_POD_CHOICE_RANGE_Rectangle(&usual, &smallest, &largest),
                        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&none, &none, &most), 0);
    if (limits_rate)
        spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_maxFramerate,
                            SPA_POD_CHOICE_RANGE_Fraction(&wanted, &none, &wanted), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &object));
}

void PipeWireStream::onError(uint32_t id, int code, const char* message)
{
    if (id == PW_ID_CORE && code == -EPIPE)
        params.on_end("PipeWire has ended");
    else // of a node that has gone, for one; the state of the stream says what comes of it
        qCDebug(MultimediaCategoryLogging, "[screen]: %s", message);
}

/// PipeWire 1 leaves a stream paused whose node has gone.
void PipeWireStream::onRemoved(uint32_t id)
{
    if (id == shared_node)
        params.on_end(kNoLongerShared);
}

void PipeWireStream::onState(int state, const char* error)
{
    qCDebug(MultimediaCategoryLogging, "[screen]: stream %s",
            pw_stream_state_as_string(pw_stream_state(state)));
    const std::string reason = error ? error : "";
    if (state == PW_STREAM_STATE_ERROR && !has_format && reason == "no more input formats") // PipeWire 1
        params.on_end(kNoFormat);
    else if (state == PW_STREAM_STATE_ERROR)
        params.on_end("the stream of the screen has failed: " + reason);
    else if (state == PW_STREAM_STATE_UNCONNECTED && was_linked)
        params.on_end(kNoLongerShared);
    was_linked = was_linked || state == PW_STREAM_STATE_STREAMING;
    // It pauses for a moment while the screen gets another mode.
    if (has_picture)
        setPatience(state != PW_STREAM_STATE_STREAMING);
}

void PipeWireStream::onPatience()
{
    const std::string time = " within " + std::to_string(kPatience_s) + " s";
    if (has_picture)
        params.on_end("the stream of the screen has stopped");
    else if (has_format)
        params.on_end("no picture has come" + time);
    else
        params.on_end(kNoFormat + time);
}

void PipeWireStream::onFormat(const spa_pod* format)
{
    spa_video_info_raw info{};
    if (spa_format_video_raw_parse(format, &info) < 0)
        return;
    const auto* found =
        std::find_if(kPixelFormats.begin(), kPixelFormats.end(),
                     [&info](const PixelFormat& candidate) { return candidate.of_desktop == info.format; });
    if (found == kPixelFormats.end() || info.size.width > kLargestSide || info.size.height > kLargestSide)
        return;
    has_format = true;
    pixel_format = found->ours;
    size = {int(info.size.width), int(info.size.height)};
    qCDebug(MultimediaCategoryLogging, "[screen]: pictures of %d x %d", size.width(), size.height());

    std::array<uint8_t, 1024> bytes = {};
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(bytes.data(), uint32_t(bytes.size()));
    std::array answers = {
        static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int(1 << SPA_DATA_MemFd | 1 << SPA_DATA_MemPtr))),
        buildMeta(builder, SPA_META_Header, sizeof(spa_meta_header)),
        buildMeta(builder, SPA_META_VideoCrop, sizeof(spa_meta_region)),
        buildMeta(builder, SPA_META_VideoTransform, sizeof(spa_meta_videotransform)),
    };
    pw_stream_update_params(stream, answers.data(), uint32_t(answers.size()));
}

/// Of what has come meanwhile only the newest counts.
void PipeWireStream::onProcess()
{
    pw_buffer* newest = nullptr;
    DesktopPicture picture;
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
        if (!toPicture(buffer->buffer, picture)) {
            pw_stream_queue_buffer(stream, buffer);
            continue;
        }
        if (newest)
            pw_stream_queue_buffer(stream, newest);
        newest = buffer;
    }
    if (!newest)
        return;
    if (!std::exchange(has_picture, true))
        setPatience(false);
    params.on_picture(picture);
    pw_stream_queue_buffer(stream, newest);
}

/// False, and `picture` as it was, when there is nothing to be seen in the buffer.
bool PipeWireStream::toPicture(void* pipewire_buffer, DesktopPicture& picture) const
{
    const auto* buffer = static_cast<const spa_buffer*>(pipewire_buffer);
    if (buffer->n_datas == 0 || !buffer->datas[0].data || !buffer->datas[0].chunk || isCorrupt(buffer))
        return false;
    const spa_data& data = buffer->datas[0];
    const int64_t line = int64_t(size.width()) * kPixelBytes;
    const int64_t stride = data.chunk->stride > 0 ? data.chunk->stride : line;
    const int64_t needed = stride * (size.height() - 1) + line;
    // An empty chunk tells of the pointer only.
    if (size.isEmpty() || data.chunk->size == 0 || stride < line ||
        data.chunk->offset + needed > int64_t(data.maxsize))
        return false;
    DesktopPicture found;
    found.data = static_cast<const uint8_t*>(data.data) + data.chunk->offset;
    found.stride = int(stride);
    found.size = size;
    found.pixel_format = pixel_format;
    const auto* crop = findMeta<spa_meta_region>(buffer, SPA_META_VideoCrop);
    if (crop && spa_meta_region_is_valid(crop))
        found.crop = QRect(crop->region.position.x, crop->region.position.y, int(crop->region.size.width),
                           int(crop->region.size.height)) &
                     QRect({0, 0}, size);
    if (const auto* transform = findMeta<spa_meta_videotransform>(buffer, SPA_META_VideoTransform))
        found.transform = transform->transform;
    picture = found;
    return true;
}

void PipeWireStream::setAlarm()
{
    timespec when = toTimespec(SPA_NSEC_PER_SEC / std::max(1, params.frame_rate));
    pw_loop_update_timer(pw_thread_loop_get_loop(loop), alarm, &when, nullptr, false);
}

/// The limit of how long nothing may come, where that would say that nothing will.
void PipeWireStream::setPatience(bool is_waiting)
{
    timespec when = toTimespec(is_waiting ? kPatience_s * SPA_NSEC_PER_SEC : 0);
    pw_loop_update_timer(pw_thread_loop_get_loop(loop), patience, &when, nullptr, false);
}

} // namespace multimedia

// stubportal MODE: a desktop's portal with screens of its own, for what a real one cannot be made to do. It
// wants a session bus and PipeWire, and prints "ready" once it stands. README.md tells the modes.

#include <QtCore/QCoreApplication>
#include <QtCore/QRect>
#include <QtCore/QTimer>
#include <QtCore/QUuid>
#include <QtDBus/QtDBus>

#include <array>
#include <cstdio>
#include <memory>
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

/// (ii)
struct IntPair
{
    int first = 0;
    int second = 0;
};
Q_DECLARE_METATYPE(IntPair)

/// (ua{sv})
struct SharedStream
{
    uint node = 0;
    QVariantMap facts;
};
Q_DECLARE_METATYPE(SharedStream)

namespace {

template<typename First, typename Second>
QDBusArgument& write(QDBusArgument& argument, const First& first, const Second& second)
{
    argument.beginStructure();
    argument << first << second;
    argument.endStructure();
    return argument;
}

template<typename First, typename Second>
const QDBusArgument& read(const QDBusArgument& argument, First& first, Second& second)
{
    argument.beginStructure();
    argument >> first >> second;
    argument.endStructure();
    return argument;
}

} // namespace

static QDBusArgument& operator<<(QDBusArgument& argument, const IntPair& pair)
{
    return write(argument, pair.first, pair.second);
}
static const QDBusArgument& operator>>(const QDBusArgument& argument, IntPair& pair)
{
    return read(argument, pair.first, pair.second);
}
static QDBusArgument& operator<<(QDBusArgument& argument, const SharedStream& stream)
{
    return write(argument, stream.node, stream.facts);
}
static const QDBusArgument& operator>>(const QDBusArgument& argument, SharedStream& stream)
{
    return read(argument, stream.node, stream.facts);
}

namespace {

constexpr int kPictures_ns = 40'000'000;
constexpr int kPixelBytes = 4;
constexpr int kPadding = 64; ///< bytes behind each line
constexpr QRect kCrop(40, 30, 560, 340);
constexpr int kEndsAfter_ms = 1000;

QString mode;
pw_thread_loop* loop = nullptr;

struct Colour
{
    uint8_t red, green, blue;
};

/// A screen: its colour all over, its upper left quarter white, and a black bar that moves.
class Screen
{
public:
    Screen(pw_core* core, const QRect& geometry, Colour colour);

    uint32_t node() const { return pw_stream_get_node_id(stream); }
    void disconnect() { pw_stream_disconnect(stream); }

    const QRect geometry;

private:
    static Screen& self(void* data) { return *static_cast<Screen*>(data); }
    static pw_stream_events events();

    void onFormat();
    void onState(pw_stream_state state);
    void onProcess();
    void paint(uint8_t* pixels, const QRect& visible) const;
    const spa_pod* buildFormat(spa_pod_builder& builder) const;
    int stride() const { return size.width() * kPixelBytes + kPadding; }

    const Colour colour;
    const QSize size;
    int number = 0; ///< of the next picture
    pw_stream* stream = nullptr;
    spa_source* timer = nullptr;
    spa_hook hook{};
};

Screen::Screen(pw_core* core, const QRect& geometry, Colour colour)
    : geometry(geometry)
    , colour(colour)
    , size(geometry.size())
{
    static const pw_stream_events stream_events = events();
    pw_thread_loop_lock(loop);
    timer = pw_loop_add_timer(
        pw_thread_loop_get_loop(loop),
        [](void* data, uint64_t) { pw_stream_trigger_process(self(data).stream); }, this);
    stream = pw_stream_new(core, "stub", pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", nullptr));
    pw_stream_add_listener(stream, &hook, &stream_events, this);
    std::array<uint8_t, 1024> bytes = {};
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(bytes.data(), uint32_t(bytes.size()));
    const spa_pod* format = buildFormat(builder);
    pw_stream_connect(stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                      pw_stream_flags(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS), &format, 1);
    pw_thread_loop_unlock(loop);
    while (node() == SPA_ID_INVALID)
        QThread::msleep(2);
}

pw_stream_events Screen::events()
{
    pw_stream_events made{};
    made.version = PW_VERSION_STREAM_EVENTS;
    made.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char*) {
        self(data).onState(state);
    };
    made.param_changed = [](void* data, uint32_t id, const spa_pod* param) {
        if (param && id == SPA_PARAM_Format)
            self(data).onFormat();
    };
    made.process = [](void* data) { self(data).onProcess(); };
    return made;
}

const spa_pod* Screen::buildFormat(spa_pod_builder& builder) const
{
    const spa_rectangle pixels = {uint32_t(size.width()), uint32_t(size.height())};
    const spa_fraction any = {0, 1};
    const spa_fraction most = {60, 1};
    const spa_fraction least = {1, 1};
    spa_pod_frame object{};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
                        SPA_POD_Id(mode == "rgba" ? SPA_VIDEO_FORMAT_RGBA : SPA_VIDEO_FORMAT_BGRx), 0);
    if (mode == "dmabuf") {
        spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
        spa_pod_builder_long(&builder, 0);
    }
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&pixels),
                        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&any), SPA_FORMAT_VIDEO_maxFramerate,
                        SPA_POD_CHOICE_RANGE_Fraction(&most, &least, &most), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &object));
}

void Screen::onFormat()
{
    std::array<uint8_t, 1024> bytes = {};
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(bytes.data(), uint32_t(bytes.size()));
    const auto meta = [&builder](spa_meta_type type, std::size_t length) {
        return static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(type),
            SPA_PARAM_META_size, SPA_POD_Int(int(length))));
    };
    std::array params = {
        static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
            SPA_PARAM_BUFFERS_size, SPA_POD_Int(stride() * size.height()), SPA_PARAM_BUFFERS_stride,
            SPA_POD_Int(stride()), SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int(1 << SPA_DATA_MemFd))),
        meta(SPA_META_Header, sizeof(spa_meta_header)), meta(SPA_META_VideoCrop, sizeof(spa_meta_region))};
    pw_stream_update_params(stream, params.data(), mode == "crop" ? 3 : 2);
}

void Screen::onState(pw_stream_state state)
{
    timespec first = {0, state == PW_STREAM_STATE_STREAMING ? 1 : 0};
    timespec interval = {0, kPictures_ns};
    pw_loop_update_timer(pw_thread_loop_get_loop(loop), timer, &first, &interval, false);
}

void Screen::onProcess()
{
    pw_buffer* queued = pw_stream_dequeue_buffer(stream);
    if (!queued)
        return;
    spa_data& data = queued->buffer->datas[0];
    if (data.data) {
        paint(static_cast<uint8_t*>(data.data), mode == "crop" ? kCrop : QRect({0, 0}, size));
        data.chunk->offset = 0;
        data.chunk->size = uint32_t(stride() * size.height());
        data.chunk->stride = stride();
        data.chunk->flags = SPA_CHUNK_FLAG_NONE;
        if (mode == "corrupt" && number % 4 == 1)
            data.chunk->flags = SPA_CHUNK_FLAG_CORRUPTED;
        if (mode == "corrupt" && number % 4 == 3) // would be read behind its end
            data.chunk->stride *= 2;
        auto* crop = static_cast<spa_meta_region*>(
            spa_buffer_find_meta_data(queued->buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
        if (crop) {
            crop->region.position = {kCrop.x(), kCrop.y()};
            crop->region.size = {uint32_t(kCrop.width()), uint32_t(kCrop.height())};
        }
        ++number;
    }
    pw_stream_queue_buffer(stream, queued);
}

/// What is not to be seen is green, whatever the reason.
void Screen::paint(uint8_t* pixels, const QRect& visible) const
{
    constexpr int kBar = 20;
    const bool is_bad = mode == "corrupt" && number % 2 == 1;
    const QRect corner(visible.topLeft(), visible.size() / 2);
    const QRect bar(visible.left() + number * kBar % visible.width(), visible.center().y(), kBar,
                    visible.height() / 2);
    for (int y = 0; y < size.height(); ++y) {
        uint8_t* pixel = pixels + std::ptrdiff_t(y) * stride();
        for (int x = 0; x < size.width(); ++x, pixel += kPixelBytes) {
            Colour shown = colour;
            if (is_bad || !visible.contains(x, y))
                shown = {0, 255, 0};
            else if (corner.contains(x, y))
                shown = {255, 255, 255};
            else if (bar.contains(x, y))
                shown = {0, 0, 0};
            const bool red_first = mode == "rgba";
            pixel[0] = red_first ? shown.red : shown.blue;
            pixel[1] = shown.green;
            pixel[2] = red_first ? shown.blue : shown.red;
            pixel[3] = 0;
        }
    }
}

/// The interface: every call is answered at once, as if its user were very quick.
class Portal : public QDBusVirtualObject
{
public:
    explicit Portal(pw_core* core);

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override;

private:
    static QString pathOf(const char* kind, const QDBusMessage& message, const QString& token);
    static void respond(const QDBusConnection& bus, const QDBusMessage& message, uint code,
                        const QVariantMap& results = {});
    void createSession(const QDBusConnection& bus, const QDBusMessage& message);
    void selectSources(const QDBusConnection& bus, const QDBusMessage& message);
    void start(const QDBusConnection& bus, const QDBusMessage& message);
    static QDBusUnixFileDescriptor openPipeWire();
    QVariant streams() const;

    std::vector<std::unique_ptr<Screen>> screens;
    QString session;
    bool persists = false;
};

Portal::Portal(pw_core* core)
{
    if (mode == "two") {
        screens.push_back(std::make_unique<Screen>(core, QRect(800, 0, 320, 240), Colour{40, 40, 200}));
        screens.push_back(std::make_unique<Screen>(core, QRect(0, 0, 800, 600), Colour{200, 40, 40}));
    } else {
        screens.push_back(std::make_unique<Screen>(core, QRect(0, 0, 640, 400), Colour{200, 40, 40}));
    }
}

QVariantMap optionsOf(const QDBusMessage& message)
{
    return qdbus_cast<QVariantMap>(message.arguments().constLast());
}

QString Portal::pathOf(const char* kind, const QDBusMessage& message, const QString& token)
{
    return QStringLiteral("/org/freedesktop/portal/desktop/%1/%2/%3")
        .arg(QLatin1String(kind), message.service().mid(1).replace('.', '_'), token);
}

void Portal::respond(const QDBusConnection& bus, const QDBusMessage& message, uint code,
                     const QVariantMap& results)
{
    const QString path =
        pathOf("request", message, optionsOf(message)[QStringLiteral("handle_token")].toString());
    bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(path))));
    if (mode == "silent" && message.member() == "Start")
        return;
    QDBusMessage response = QDBusMessage::createSignal(path, QStringLiteral("org.freedesktop.portal.Request"),
                                                       QStringLiteral("Response"));
    response << code << results;
    bus.send(response);
}

void Portal::createSession(const QDBusConnection& bus, const QDBusMessage& message)
{
    session =
        pathOf("session", message, optionsOf(message)[QStringLiteral("session_handle_token")].toString());
    respond(bus, message, 0, {{QStringLiteral("session_handle"), session}});
}

void Portal::selectSources(const QDBusConnection& bus, const QDBusMessage& message)
{
    const QVariantMap options = optionsOf(message);
    persists = options[QStringLiteral("persist_mode")].toUInt() == 2;
    const QString token = options[QStringLiteral("restore_token")].toString();
    if ((mode == "v1" && (persists || !token.isEmpty())) || (!token.isEmpty() && QUuid(token).isNull()))
        bus.send(message.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.InvalidArgument"),
                                          QStringLiteral("no such token")));
    else
        respond(bus, message, 0);
}

void Portal::start(const QDBusConnection& bus, const QDBusMessage& message)
{
    if (mode == "cancel" || mode == "denied") {
        respond(bus, message, mode == "cancel" ? 1 : 2);
        return;
    }
    QVariantMap results = {{QStringLiteral("streams"), streams()}};
    if (persists)
        results[QStringLiteral("restore_token")] = QUuid::createUuid().toString(QUuid::WithoutBraces);
    respond(bus, message, 0, results);
    if (mode == "closed") {
        QTimer::singleShot(kEndsAfter_ms, this, [this, bus] {
            bus.send(QDBusMessage::createSignal(session, QStringLiteral("org.freedesktop.portal.Session"),
                                                QStringLiteral("Closed")));
        });
    } else if (mode == "ending") {
        QTimer::singleShot(kEndsAfter_ms, this, [this] {
            pw_thread_loop_lock(loop);
            screens.front()->disconnect();
            pw_thread_loop_unlock(loop);
        });
    }
}

QVariant Portal::streams() const
{
    const auto pair = [](int first, int second) { return QVariant::fromValue(IntPair{first, second}); };
    QList<SharedStream> list;
    for (const auto& screen : screens)
        list += {screen->node(),
                 {{QStringLiteral("position"), pair(screen->geometry.x(), screen->geometry.y())},
                  {QStringLiteral("size"), pair(screen->geometry.width(), screen->geometry.height())}}};
    return QVariant::fromValue(list);
}

QDBusUnixFileDescriptor Portal::openPipeWire()
{
    const QByteArray path = qgetenv("XDG_RUNTIME_DIR") + "/pipewire-0";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
    const int connection = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        qWarning("PipeWire does not answer");
    QDBusUnixFileDescriptor given;
    given.giveFileDescriptor(connection);
    return given;
}

bool Portal::handleMessage(const QDBusMessage& message, const QDBusConnection& bus)
{
    const QString method = message.member();
    if (method == "GetAll")
        bus.send(message.createReply(QVariantMap{{QStringLiteral("version"), mode == "v1" ? 1U : 4U},
                                                 {QStringLiteral("AvailableSourceTypes"), 3U},
                                                 {QStringLiteral("AvailableCursorModes"), 3U}}));
    else if (method == "CreateSession")
        createSession(bus, message);
    else if (method == "SelectSources")
        selectSources(bus, message);
    else if (method == "Start")
        start(bus, message);
    else if (method == "OpenPipeWireRemote")
        bus.send(message.createReply(QVariant::fromValue(openPipeWire())));
    else
        return false;
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    qDBusRegisterMetaType<IntPair>();
    qDBusRegisterMetaType<SharedStream>();
    qDBusRegisterMetaType<QList<SharedStream>>();
    mode = application.arguments().value(1);
    pw_init(nullptr, nullptr);
    loop = pw_thread_loop_new("stub", nullptr);
    pw_context* context = pw_context_new(pw_thread_loop_get_loop(loop), nullptr, 0);
    pw_thread_loop_start(loop);
    pw_thread_loop_lock(loop);
    pw_core* core = pw_context_connect(context, nullptr, 0);
    pw_thread_loop_unlock(loop);
    if (!core) {
        std::fprintf(stderr, "stubportal: no PipeWire\n");
        return 1;
    }
    Portal portal(core);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerVirtualObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                                   QDBusConnection::SubPath) ||
        !bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"))) {
        std::fprintf(stderr, "stubportal: no session bus, or another portal on it\n");
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    return QCoreApplication::exec();
}

#include "multimedia/screensource_linux/screencast.h"

#include "multimedia/screensource_linux/sharetoken.h"
#include "quillon/util.h"

#include <QtCore/QRect>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusObjectPath>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusPendingReply>
#include <QtDBus/QDBusServiceWatcher>
#include <QtDBus/QDBusUnixFileDescriptor>

#include <algorithm>
#include <fcntl.h>
#include <utility>
#include <vector>

namespace multimedia {

namespace {

using namespace std::chrono_literals;

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kScreenCast = QStringLiteral("org.freedesktop.portal.ScreenCast");
const QString kRequest = QStringLiteral("org.freedesktop.portal.Request");
const QString kSession = QStringLiteral("org.freedesktop.portal.Session");
constexpr auto kAnswerTime = 25s;

// Of the portal's interface.
constexpr uint kMonitor = 1;
constexpr uint kCursorEmbedded = 2;
constexpr uint kPersistUntilRevoked = 2;
constexpr uint kVersionWithTokens = 4;
constexpr uint kDone = 0;
constexpr uint kCancelled = 1;

struct Stream
{
    uint32_t node = 0;
    QPoint position; ///< logical pixels, as the size; not every desktop tells the truth
    QSize size;
};

QPoint toPoint(const QVariant& pair)
{
    int x = 0;
    int y = 0;
    if (pair.canConvert<QDBusArgument>()) {
        const auto argument = pair.value<QDBusArgument>();
        argument.beginStructure();
        argument >> x >> y;
        argument.endStructure();
    }
    return {x, y};
}

std::vector<Stream> readStreams(const QVariant& list)
{
    std::vector<Stream> streams;
    if (!list.canConvert<QDBusArgument>())
        return streams;
    const auto argument = list.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        Stream stream;
        QVariantMap facts;
        argument.beginStructure();
        argument >> stream.node >> facts;
        argument.endStructure();
        stream.position = toPoint(facts["position"]);
        const QPoint size = toPoint(facts["size"]);
        stream.size = {size.x(), size.y()};
        streams.push_back(stream);
    }
    argument.endArray();
    return streams;
}

/// The stream that shows the screen, as far as that can be told; else the first one.
const Stream& choose(const std::vector<Stream>& streams, const ScreenList::Screen& screen)
{
    const auto at_its_place = [&screen](const Stream& stream) {
        return QRect(stream.position, stream.size) == screen.geometry;
    };
    const auto of_its_pixels = [&screen](const Stream& stream) {
        return stream.size == screen.geometry.size() * screen.pixel_ratio;
    };
    auto found = std::find_if(streams.begin(), streams.end(), at_its_place);
    if (found == streams.end())
        found = std::find_if(streams.begin(), streams.end(), of_its_pixels);
    return found == streams.end() ? streams.front() : *found;
}

} // namespace

ScreenCast::ScreenCast(Params given)
    : params(std::move(given))
    , name(QStringLiteral("screen_") + Util::instance()->createTmpId(16))
    , bus(QString())
    , deadline(this)
{
    deadline.setSingleShot(true);
    deadline.setInterval(kAnswerTime);
    connect(&deadline, &QTimer::timeout, this, [this] { end("the desktop portal does not answer"); });
}

ScreenCast::~ScreenCast()
{
    has_ended = true;
    bus = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name);
}

void ScreenCast::ask()
{
    bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    if (!bus.isConnected()) {
        end("no session bus, and so no desktop portal to ask for the screen");
        return;
    }
    bus.connect({}, QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(onBusLost()));
    readFacts();
}

void ScreenCast::readFacts()
{
    call(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"), {kScreenCast},
         [this](const QDBusMessage& reply) {
             if (reply.type() == QDBusMessage::ErrorMessage) {
                 end("this desktop has no portal that shares screens: " + reply.errorMessage().toStdString());
                 return;
             }
             const auto facts = qdbus_cast<QVariantMap>(reply.arguments().value(0));
             version = facts[QStringLiteral("version")].toUInt();
             cursor_modes = facts[QStringLiteral("AvailableCursorModes")].toUInt();
             if (facts[QStringLiteral("AvailableSourceTypes")].toUInt() & kMonitor)
                 createSession();
             else
                 end("the desktop portal has no backend that shares screens");
         });
    auto* watcher = new QDBusServiceWatcher(kService, bus, QDBusServiceWatcher::WatchForUnregistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { end("the desktop portal has ended"); });
}

void ScreenCast::createSession()
{
    request(QStringLiteral("CreateSession"), {}, {{QStringLiteral("session_handle_token"), name}},
            [this](uint code, const QVariantMap& results) {
                session_path = results[QStringLiteral("session_handle")].toString();
                if (code != kDone || session_path.isEmpty()) {
                    end("the desktop portal makes no session");
                    return;
                }
                bus.connect(kService, session_path, kSession, QStringLiteral("Closed"), this,
                            SLOT(onSessionClosed()));
                if (version >= kVersionWithTokens)
                    token = shareToken(params.screen.name);
                selectSources();
            });
}

void ScreenCast::selectSources()
{
    QVariantMap options = {{QStringLiteral("types"), kMonitor}, {QStringLiteral("multiple"), false}};
    if (cursor_modes & kCursorEmbedded)
        options[QStringLiteral("cursor_mode")] = kCursorEmbedded;
    if (version >= kVersionWithTokens)
        options[QStringLiteral("persist_mode")] = kPersistUntilRevoked;
    if (!token.isEmpty())
        options[QStringLiteral("restore_token")] = token;
    request(QStringLiteral("SelectSources"), {session()}, options, [this](uint code, const QVariantMap&) {
        if (code == kDone)
            start();
        else
            end("the desktop portal lets no screen be chosen");
    });
}

void ScreenCast::start()
{
    request(QStringLiteral("Start"), {session(), QString()}, {},
            [this](uint code, const QVariantMap& results) {
                if (version >= kVersionWithTokens)
                    keepShareToken(params.screen.name, results[QStringLiteral("restore_token")].toString());
                if (code == kDone)
                    onStarted(results);
                else if (code == kCancelled)
                    end("the user has cancelled the sharing of the screen");
                else
                    end("the desktop has denied the sharing of the screen");
            });
    deadline.stop(); // a user answers
}

void ScreenCast::onStarted(const QVariantMap& results)
{
    const std::vector<Stream> streams = readStreams(results[QStringLiteral("streams")]);
    if (streams.empty())
        end("the desktop portal shares no screen");
    else
        openRemote(choose(streams, params.screen).node);
}

void ScreenCast::openRemote(uint32_t node)
{
    call(kScreenCast, QStringLiteral("OpenPipeWireRemote"), {session(), QVariantMap()},
         [this, node](const QDBusMessage& reply) {
             const QDBusPendingReply<QDBusUnixFileDescriptor> opened = reply;
             const int descriptor = opened.isValid() ? opened.value().fileDescriptor() : -1;
             const int own = descriptor < 0 ? -1 : ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
             if (own < 0)
                 end("the desktop portal opens no way to PipeWire: " + reply.errorMessage().toStdString());
             else
                 params.on_shared(own, node);
         });
}

void ScreenCast::call(const QString& interface, const QString& method, const QVariantList& arguments,
                      const Then& then)
{
    QDBusMessage message = QDBusMessage::createMethodCall(kService, kPath, interface, method);
    message.setArguments(arguments);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, then] {
        watcher->deleteLater();
        if (!has_ended)
            then(watcher->reply());
    });
}

/// A call that a signal answers, of an object whose path is known beforehand.
void ScreenCast::request(const QString& method, QVariantList arguments, QVariantMap options,
                         const ThenResults& then)
{
    const QString handle = name + QString::number(++requests);
    request_path = kPath + QStringLiteral("/request/") +
                   bus.baseService().mid(1).replace(QLatin1Char('.'), QLatin1Char('_')) + QLatin1Char('/') +
                   handle;
    bus.connect(kService, request_path, kRequest, QStringLiteral("Response"), this,
                SLOT(onResponse(uint, QVariantMap)));
    awaited = then;
    deadline.start();
    options[QStringLiteral("handle_token")] = handle;
    arguments += options;
    call(kScreenCast, method, arguments, [this, method](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ErrorMessage)
            return;
        if (method == QLatin1String("SelectSources") && !token.isEmpty()) { // it may be the token's fault
            token.clear();
            keepShareToken(params.screen.name, {});
            selectSources();
            return;
        }
        end("the desktop portal refuses " + method.toStdString() + ": " + reply.errorMessage().toStdString());
    });
}

void ScreenCast::onResponse(uint code, const QVariantMap& results)
{
    bus.disconnect(kService, request_path, kRequest, QStringLiteral("Response"), this,
                   SLOT(onResponse(uint, QVariantMap)));
    deadline.stop();
    const ThenResults then = std::exchange(awaited, nullptr);
    if (then && !has_ended)
        then(code, results);
}

void ScreenCast::onSessionClosed()
{
    end("the desktop has ended the sharing of the screen");
}

void ScreenCast::onBusLost()
{
    end("the session bus has ended");
}

QVariant ScreenCast::session() const
{
    return QVariant::fromValue(QDBusObjectPath(session_path));
}

void ScreenCast::end(const std::string& why)
{
    deadline.stop();
    if (!std::exchange(has_ended, true))
        params.on_end(why);
}

} // namespace multimedia

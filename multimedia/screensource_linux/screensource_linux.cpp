#include "multimedia/screensource/screensource.h"

#include "multimedia/base/screenlist.h"
#include "multimedia/base/warning.h"
#include "multimedia/screensource/capturesource.h"
#ifdef MULTIMEDIA_HAS_PIPEWIRE
#    include "multimedia/screensource_linux/portalsource.h"

#    include <QtDBus/QDBusConnection>
#endif

#include <QtCore/QLoggingCategory>
#include <QtGui/QGuiApplication>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <xcb/xcb.h>

namespace multimedia {

namespace {

/// An X server of Debian 12 names its screens XWAYLAND0 and so on where it shows its windows on a Wayland
/// desktop; newer ones give them their names on that desktop, and have an extension of that name.
bool isXwayland()
{
    if (ScreenList::instance().screen(0).name.startsWith(QLatin1String("XWAYLAND")))
        return true;
    constexpr char kExtension[] = "XWAYLAND";
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    const std::unique_ptr<xcb_query_extension_reply_t, decltype(&std::free)> reply(
        xcb_query_extension_reply(
            connection, xcb_query_extension(connection, uint16_t(std::strlen(kExtension)), kExtension),
            nullptr),
        std::free);
    xcb_disconnect(connection);
    return reply && reply->present;
}

/// The environment is the last to be asked: an X server inside of a Wayland desktop hands it on.
bool isWaylandDesktop()
{
    const QString platform = QGuiApplication::platformName();
    if (platform.startsWith(QLatin1String("wayland")))
        return true;
    if (platform == QLatin1String("xcb"))
        return isXwayland();
    return qgetenv("XDG_SESSION_TYPE") == "wayland";
}

bool mustAskTheDesktop()
{
    static const bool must_ask = isWaylandDesktop();
    return must_ask;
}

#ifndef MULTIMEDIA_HAS_PIPEWIRE
/// Black pictures of a Wayland desktop would look like a recording.
class RefusedSource : public ScreenSource
{
public:
    explicit RefusedSource(const Params&)
    {
        warning("screen", "built without PipeWire: no screen of a Wayland desktop can be seen");
    }
    State state() const override { return State::Ended; }
    QRect area() const override { return {}; }
    void open() override {}
    void start() override {}
    void stop() override {}
    bool canDeliver() const override { return false; }
};
using PortalSource = RefusedSource;
#endif

} // namespace

void watchDesktop()
{
    ScreenList::instance();
    if (!mustAskTheDesktop())
        return;
#ifdef MULTIMEDIA_HAS_PIPEWIRE
    // QtDBus goes with the process after all that is made later, what ends recordings for one.
    QDBusConnection(QStringLiteral("none"));
#endif
}

std::unique_ptr<ScreenSource> createScreenSource(ScreenSource::Params params)
{
    if (mustAskTheDesktop())
        return std::make_unique<PortalSource>(std::move(params));
    return std::make_unique<CaptureSource>(std::move(params));
}

} // namespace multimedia

#include "multimedia/devicemgr_linux/pulseserver.h"

#include "multimedia/base/warning.h"

#include <pulse/pulseaudio.h>

#include <QtCore/QLoggingCategory>

#include <algorithm>
#include <utility>

namespace DeviceManager {

namespace {
constexpr int kFirstConnectDelayMs = 100;
constexpr int kLongestConnectDelayMs = 2000;

/// The fields that sinks and sources have in common.
template<typename Info>
AudioDevice makeDevice(const Info& info)
{
    AudioDevice device;
    device.UID = QString::fromUtf8(info.name);
    device.name = device.UID;
    device.manufacturer = QString::fromUtf8(pa_proplist_gets(info.proplist, PA_PROP_DEVICE_VENDOR_NAME));
    device.description = QString::fromUtf8(info.description);
    device.sourceName =
        info.active_port ? QString::fromUtf8(info.active_port->description) : device.description;
    device.deviceID = static_cast<int>(info.index);
    return device;
}

bool same(const AudioDevice& a, const AudioDevice& b)
{
    return a.UID == b.UID && a.manufacturer == b.manufacturer && a.description == b.description &&
           a.sourceName == b.sourceName && a.deviceID == b.deviceID &&
           a.inputChannelCount == b.inputChannelCount && a.outputChannelCount == b.outputChannelCount;
}

bool same(const QList<AudioDevice>& a, const QList<AudioDevice>& b)
{
    return std::equal(a.cbegin(), a.cend(), b.cbegin(), b.cend(),
                      [](const AudioDevice& left, const AudioDevice& right) { return same(left, right); });
}

/// The answer matters through its callback only.
void forget(pa_operation* operation)
{
    if (operation)
        pa_operation_unref(operation);
}
} // namespace

PulseServer& PulseServer::instance()
{
    static PulseServer server;
    return server;
}

PulseServer::PulseServer()
    : loop(pa_threaded_mainloop_new())
    , connect_delay_ms(kFirstConnectDelayMs)
{
    if (!loop) {
        qCDebug(MultimediaCategoryLogging, "no main loop for the sound server");
        return;
    }
    connect();
    if (pa_threaded_mainloop_start(loop) < 0)
        qCDebug(MultimediaCategoryLogging, "no thread for the sound server");
}

PulseServer::~PulseServer()
{
    if (!loop)
        return;
    pa_threaded_mainloop_stop(loop);
    disconnect();
    if (connect_timer)
        pa_threaded_mainloop_get_api(loop)->time_free(connect_timer);
    pa_threaded_mainloop_free(loop);
}

PulseServer::Picture PulseServer::picture() const
{
    const std::lock_guard lock(mutex);
    return current;
}

void PulseServer::setChangeHandler(ChangeHandler new_handler)
{
    const std::lock_guard lock(mutex);
    handler = std::move(new_handler);
}

void PulseServer::connect()
{
    context = pa_context_new(pa_threaded_mainloop_get_api(loop), "device list");
    if (!context) {
        scheduleConnect();
        return;
    }
    pa_context_set_state_callback(
        context, [](pa_context*, void* self) { static_cast<PulseServer*>(self)->handleState(); }, this);
    pa_context_set_subscribe_callback(
        context,
        [](pa_context*, pa_subscription_event_type_t, uint32_t, void* self) {
            static_cast<PulseServer*>(self)->refresh();
        },
        this);
    // A failure comes through the state callback, at once or later.
    pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
}

void PulseServer::disconnect()
{
    if (!context)
        return;
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(std::exchange(context, nullptr));
}

void PulseServer::scheduleConnect()
{
    timeval due = {};
    pa_timeval_add(pa_gettimeofday(&due), connect_delay_ms * PA_USEC_PER_MSEC);
    connect_delay_ms = std::min(2 * connect_delay_ms, kLongestConnectDelayMs);
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop);
    if (connect_timer) {
        api->time_restart(connect_timer, &due);
        return;
    }
    connect_timer = api->time_new(
        api, &due,
        [](pa_mainloop_api*, pa_time_event*, const timeval*, void* self) {
            auto* server = static_cast<PulseServer*>(self);
            // Not earlier: a context must not be let go of in its own callback.
            server->disconnect();
            server->connect();
        },
        this);
}

void PulseServer::handleState()
{
    switch (pa_context_get_state(context)) {
    case PA_CONTEXT_READY: {
        connect_delay_ms = kFirstConnectDelayMs;
        refreshing = false; // the last server may have left questions unanswered
        constexpr auto kWatched = static_cast<pa_subscription_mask_t>(
            PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER);
        pa_operation* subscription = pa_context_subscribe(context, kWatched, nullptr, nullptr);
        if (!subscription)
            qCDebug(MultimediaCategoryLogging, "listen device property change error");
        forget(subscription);
        refresh();
        break;
    }
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        qCDebug(MultimediaCategoryLogging, "sound server is away: %s",
                pa_strerror(pa_context_errno(context)));
        publish({});
        scheduleConnect();
        break;
    default:
        break;
    }
}

void PulseServer::refresh()
{
    if (refreshing) {
        refresh_again = true;
        return;
    }
    refreshing = true;
    refresh_again = false;
    coming = {};
    // The server answers in the order of the questions, so the last answer ends the picture.
    forget(pa_context_get_server_info(
        context,
        [](pa_context*, const pa_server_info* info, void* self) {
            if (!info)
                return;
            auto* server = static_cast<PulseServer*>(self);
            server->coming.default_output = QString::fromUtf8(info->default_sink_name);
            server->coming.default_input = QString::fromUtf8(info->default_source_name);
        },
        this));
    forget(pa_context_get_sink_info_list(
        context,
        [](pa_context*, const pa_sink_info* info, int, void* self) {
            if (info)
                static_cast<PulseServer*>(self)->addOutput(*info);
        },
        this));
    forget(pa_context_get_source_info_list(
        context,
        [](pa_context*, const pa_source_info* info, int, void* self) {
            auto* server = static_cast<PulseServer*>(self);
            if (info)
                server->addInput(*info);
            else
                server->finishRefresh();
        },
        this));
}

void PulseServer::addOutput(const pa_sink_info& info)
{
    AudioDevice device = makeDevice(info);
    device.outputChannelCount = info.sample_spec.channels;
    coming.outputs.append(device);
}

void PulseServer::addInput(const pa_source_info& info)
{
    if (info.monitor_of_sink != PA_INVALID_INDEX)
        return;
    AudioDevice device = makeDevice(info);
    device.inputChannelCount = info.sample_spec.channels;
    coming.inputs.append(device);
}

void PulseServer::finishRefresh()
{
    refreshing = false;
    if (pa_context_get_state(context) != PA_CONTEXT_READY)
        return;
    publish(coming);
    if (refresh_again)
        refresh();
}

void PulseServer::publish(const Picture& picture)
{
    const std::lock_guard lock(mutex);
    Change change;
    change.devices = !same(picture.outputs, current.outputs) || !same(picture.inputs, current.inputs);
    change.default_output = picture.default_output != current.default_output;
    change.default_input = picture.default_input != current.default_input;
    current = picture;
    if (handler && (change.devices || change.default_output || change.default_input))
        handler(change);
}

} // namespace DeviceManager

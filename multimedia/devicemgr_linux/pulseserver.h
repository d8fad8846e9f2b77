#pragma once

#include "multimedia/base/processend.h"
#include "multimedia/devicemgr/audiodevice.h"

#include <QtCore/QList>
#include <QtCore/QString>

#include <functional>
#include <mutex>

struct pa_context;
struct pa_server_info;
struct pa_sink_info;
struct pa_source_info;
struct pa_threaded_mainloop;
struct pa_time_event;
struct timeval;

namespace DeviceManager {

/// A picture of the sound server's devices, kept up to date on a thread of its own.
///
/// Speaks to PulseAudio and to PipeWire's pulse service. Nobody waits for the server: until it has answered,
/// and whenever it is away, there are no devices. A lost server is looked for again after 100 ms, then at
/// twice the time up to every 2 s, until it is back.
class PulseServer
{
public:
    struct Picture
    {
        QList<AudioDevice> outputs;
        /// Without the monitors of outputs: those are no microphones.
        QList<AudioDevice> inputs;
        QString default_output; ///< may name a device that is not listed
        QString default_input;
    };
    struct Change
    {
        bool devices = false; ///< one came or went, or a field of one changed
        bool default_output = false;
        bool default_input = false;
    };
    using ChangeHandler = std::function<void(Change)>;

    /// Connects on first use; lives until the process ends.
    static PulseServer& instance();
    ~PulseServer();
    PulseServer(const PulseServer&) = delete;
    PulseServer& operator=(const PulseServer&) = delete;

    /// Any thread.
    Picture picture() const;
    /// `handler` is called on the server's thread after the picture has changed, must not block and must not
    /// call back into this object; an empty one ends that. Any thread; once this has returned the earlier
    /// handler is not called any more.
    void setChangeHandler(ChangeHandler handler);

private:
    PulseServer();

    void connect();
    void disconnect();
    void scheduleConnect();
    void handleState();
    void refresh();
    void addOutput(const pa_sink_info& info);
    void addInput(const pa_source_info& info);
    void finishRefresh();
    void publish(const Picture& picture);

    pa_threaded_mainloop* loop = nullptr;
    // What follows belongs to the loop's thread.
    pa_context* context = nullptr;
    pa_time_event* connect_timer = nullptr;
    int connect_delay_ms;
    bool refreshing = false;
    bool refresh_again = false; ///< something changed while the answers to the last questions were coming
    Picture coming;

    mutable std::mutex mutex;
    Picture current;       ///< guarded by `mutex`
    ChangeHandler handler; ///< guarded by `mutex`, also while called

    /// Who is told of changes may be gone before this object is.
    const multimedia::ProcessEnd process_end{[this] { setChangeHandler({}); }};
};

} // namespace DeviceManager

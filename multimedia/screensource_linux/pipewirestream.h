#pragma once

#include "multimedia/screensource_linux/screenpart.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

struct pw_context;
struct pw_core;
struct pw_registry;
struct pw_stream;
struct pw_thread_loop;
struct spa_pod;
struct spa_pod_builder;
struct spa_source;

namespace multimedia {

/// The pictures of one node of PipeWire, read in shared memory on a thread of its own.
///
/// All callables come from that thread. Whatever comes from another one at the same time as they do stands
/// inside of `locked`. Pictures that are marked as corrupt, or that do not fit in their buffer, are skipped.
class PipeWireStream
{
public:
    struct Params
    {
        int frame_rate = 0; ///< pictures per second that are wanted at most; the desktop may send more
        std::function<void(const DesktopPicture&)> on_picture;
        std::function<void()> on_alarm;
        std::function<void(const std::string& why)> on_end; ///< nothing will come any more; once or more
    };

    explicit PipeWireStream(Params params);
    ~PipeWireStream();
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;

    /// Why nothing can come of it on this system; empty when something can.
    std::string problem() const;
    /// Once. If no picture comes within `kPatience_s`, `on_end` says so.
    ///
    /// @param descriptor  of the connection that the desktop has opened; the stream takes it
    void connect(int descriptor, uint32_t node);
    /// Runs `function` while no callable runs.
    void locked(const std::function<void()>& function);
    /// Has `on_alarm` called once, one picture's time from now. From a callable or inside of `locked`.
    void setAlarm();

    static constexpr int kPatience_s = 5;

private:
    struct Events;
    struct Hooks;

    void onError(uint32_t id, int code, const char* message);
    void onRemoved(uint32_t id);
    void onState(int state, const char* error);
    void onFormat(const spa_pod* format);
    void onProcess();
    void onPatience();
    bool toPicture(void* buffer, DesktopPicture& picture) const;
    const spa_pod* buildFormat(spa_pod_builder& builder, bool limits_rate) const;
    void setPatience(bool is_waiting);

    const Params params;
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    pw_stream* stream = nullptr;
    spa_source* patience = nullptr;
    spa_source* alarm = nullptr;
    std::unique_ptr<Hooks> hooks;

    // The loop's thread only.
    uint32_t shared_node = 0;
    QSize size; ///< of the pictures, by the present format
    int pixel_format = -1;
    bool has_format = false;
    bool has_picture = false;
    bool was_linked = false;
};

} // namespace multimedia

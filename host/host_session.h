// The host's side of one plug-in instance: the two records it keeps for the plug-in (the
// persistent settings and the working record) and the callback that serves them.
//
// Selectors answered:
//   FREE            a bounded amount of free memory (64 MiB unless set)
//   ALOC            both blocks resized, contents kept
//   MMAL, MFRE      plain allocation for the kit
//   STAT            progress: each report goes to the progress sink; the host paces the reports by
//                   writing a future tick into the record; once an interrupt has been requested,
//                   every report is answered 4 (the user cancelled), which stops the render
//   ACHN            a channel in Channels(); the reference written back is the channel's address
//                   (an unknown type: 3)
//   GCHN            the channel's value at the frame, through a buffer of the session that stays
//                   valid until the next call; writes back the ID and type found (label channels:
//                   no data); a reference that is not a current channel: 3
//   SCHN            keys the channel at the frame; a reference, ID or type that does not match
//                   the channel, or no data: 3
//   RCHN            drops every channel
#ifndef VELLUX_HOST_HOST_SESSION_H
#define VELLUX_HOST_HOST_SESSION_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/channel_store.h"
#include "vellux/plugin_records.h"

namespace vellux::host {

// One progress report as the plug-in sent it.
struct ProgressReport {
    float position = 0.0f;      // 0.0 to 1.0
    std::string unit;           // what is counted ("Scanline")
    std::string heading;        // what is being done ("Drawing Flare")
    int32_t min = 0;
    int32_t max = 0;
    int32_t value = 0;
};
using ProgressSink = std::function<void(const ProgressReport&)>;

// The tick clock the plug-in paces its reports by: sixtieths of a second of the monotonic clock.
uint32_t HostTickCount();

class HostSession {
public:
    static constexpr int32_t kDefaultFreeBytes = 64 << 20;
    static constexpr int32_t kDefaultReportTicks = 6;   // about ten reports a second

    HostSession() = default;
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    // The header of the next command block: both records, the callback and this session.
    PluginInfoRec Info();

    const std::vector<uint8_t>& controlData() const { return control_; }
    std::span<const uint8_t> pluginData() const { return {plugin_.data(), plugin_.size()}; }
    void SetControlData(std::vector<uint8_t> bytes) { control_ = std::move(bytes); }
    void SetFreeBytes(int32_t bytes) { freeBytes_ = bytes; }

    // Progress: where reports go, how far apart they are wanted (0: after every row), and the
    // flag that, once set (e.g. by a signal handler), makes the next report stop the work.
    void SetProgressSink(ProgressSink sink) { progress_ = std::move(sink); }
    void SetReportTicks(int32_t ticks) { reportTicks_ = ticks; }
    void SetInterruptFlag(const std::atomic<bool>* flag) { interrupt_ = flag; }
    const ProgressSink& progressSink() const { return progress_; }
    int32_t reportTicks() const { return reportTicks_; }
    int32_t freeBytes() const { return freeBytes_; }
    const std::atomic<bool>* interruptFlag() const { return interrupt_; }

    // The file that answers the plug-in's request for `name` in the home folder while this
    // session's commands run (the flare table chosen for this instance); an empty path: none.
    void SetFileSubstitute(const std::string& name, const std::filesystem::path& file);
    const std::filesystem::path* FileSubstitute(const std::string& name) const;

    // The channels the plug-in has published, with their keys (a scene adds its keys here).
    ChannelStore& Channels() { return channels_; }
    const ChannelStore& Channels() const { return channels_; }
    int channelResets() const { return channelResets_; }   // RCHN requests so far

private:
    static int32_t Callback(IFFType selector, int32_t size, void* record);
    int32_t Answer(IFFType selector, int32_t size, void* record);
    int32_t Allocate(HostAllocateRec& rec);
    int32_t Status(HostStatusRec& rec);
    int32_t AddChannel(HostAddChannelRec& rec);
    int32_t GetChannel(HostGetChannelRec& rec);
    int32_t SetChannel(const HostSetChannelRec& rec);

    // The working record is grown to all the free memory while the plug-in fills it, then shrunk
    // at once, on every setup: its new bytes are left uninitialised, so growing costs address
    // space, not the time to clear (or, unoptimised, to visit) memory the plug-in never touches.
    class WorkingBlock {
    public:
        // Keeps the first min(old, new) bytes; memory that is not wanted is given back.
        void resize(size_t size);
        uint8_t* data() { return bytes_.get(); }
        const uint8_t* data() const { return bytes_.get(); }
        size_t size() const { return size_; }
        bool empty() const { return size_ == 0; }

    private:
        std::unique_ptr<uint8_t[]> bytes_;
        size_t size_ = 0;
    };
    std::vector<uint8_t> control_;
    WorkingBlock plugin_;
    int32_t freeBytes_ = kDefaultFreeBytes;
    ProgressSink progress_;
    int32_t reportTicks_ = kDefaultReportTicks;
    const std::atomic<bool>* interrupt_ = nullptr;
    ChannelStore channels_;
    std::map<std::string, std::filesystem::path> substitutes_;
    int channelResets_ = 0;
    alignas(double) uint8_t channelValue_[8] = {};   // GCHN's answer, until the next call
};

// The session whose plug-in command runs on this thread: the host's named services, which the
// plug-in calls without saying for whom, answer for it. Set around every command a host sends;
// each thread has its own, so instances on several threads keep their own tables.
class ActiveSessionScope {
public:
    explicit ActiveSessionScope(const HostSession& session);
    ~ActiveSessionScope();
    ActiveSessionScope(const ActiveSessionScope&) = delete;
    ActiveSessionScope& operator=(const ActiveSessionScope&) = delete;

private:
    const HostSession* previous_;
};
const HostSession* ActiveSession();   // null outside a command

}  // namespace vellux::host

#endif  // VELLUX_HOST_HOST_SESSION_H

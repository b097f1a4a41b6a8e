// The host's side of one plug-in instance: the two records it keeps for the plug-in (the
// persistent settings and the working record) and the callback that serves them.
//
// Selectors answered: FREE (a bounded amount, settable), ALOC (both blocks resized, contents
// kept), MMAL/MFRE, STAT (progress accepted). Channels are not kept yet: RCHN answers "not
// supported" (2), which the plug-in takes as a host without channels.
#ifndef VELLUX_HOST_HOST_SESSION_H
#define VELLUX_HOST_HOST_SESSION_H

#include <cstdint>
#include <vector>

#include "vellux/plugin_records.h"

namespace vellux::host {

class HostSession {
public:
    static constexpr int32_t kDefaultFreeBytes = 64 << 20;

    HostSession() = default;
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    // The header of the next command block: both records, the callback and this session.
    PluginInfoRec Info();

    const std::vector<uint8_t>& controlData() const { return control_; }
    const std::vector<uint8_t>& pluginData() const { return plugin_; }
    void SetControlData(std::vector<uint8_t> bytes) { control_ = std::move(bytes); }
    void SetFreeBytes(int32_t bytes) { freeBytes_ = bytes; }

private:
    static int32_t Callback(IFFType selector, int32_t size, void* record);
    int32_t Answer(IFFType selector, int32_t size, void* record);

    std::vector<uint8_t> control_;
    std::vector<uint8_t> plugin_;
    int32_t freeBytes_ = kDefaultFreeBytes;
};

}  // namespace vellux::host

#endif  // VELLUX_HOST_HOST_SESSION_H

// While a guard is alive, Ctrl-C (SIGINT) asks the running command to stop instead of ending the
// process (main holds one around every command):
// the handler only sets a flag, which the host turns into "user cancelled" at the plug-in's next
// progress report. The handler is one-shot, so a second Ctrl-C ends the process as usual. The
// previous handler comes back when the guard goes. One guard at a time.
#ifndef VELLUX_TOOLS_INTERRUPT_GUARD_H
#define VELLUX_TOOLS_INTERRUPT_GUARD_H

#include <signal.h>

#include <atomic>

namespace vellux::tool {

class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    static const std::atomic<bool>& Flag();
    static bool Requested() { return Flag().load(); }

private:
    struct sigaction previous_ {};
    bool installed_ = false;
};

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_INTERRUPT_GUARD_H

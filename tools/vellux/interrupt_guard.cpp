#include "tools/vellux/interrupt_guard.h"

namespace vellux::tool {

namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");
std::atomic<bool> sInterrupted{false};

extern "C" void OnInterrupt(int) { sInterrupted.store(true); }

}  // namespace

InterruptGuard::InterruptGuard() {
    sInterrupted.store(false);
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;
    installed_ = sigaction(SIGINT, &action, &previous_) == 0;
}

InterruptGuard::~InterruptGuard() {
    if (installed_) sigaction(SIGINT, &previous_, nullptr);
}

const std::atomic<bool>& InterruptGuard::Flag() { return sInterrupted; }

}  // namespace vellux::tool

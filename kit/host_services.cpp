// Local entries of the host's named services. See host_services.h.
#include "host_services.h"

#include <dlfcn.h>

#include <type_traits>

namespace {

// The host's definition of a service, or null. The name is looked up afresh on every call so a
// host may provide or withdraw services at any time.
template <typename Function>
Function FindHostService(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

// What an entry answers when the host lacks the service: 0, null, or nothing.
template <typename Result>
Result Neutral() {
    if constexpr (!std::is_void_v<Result>) return Result{};
}

}  // namespace

#define KV_SERVICE(Result, Name, Params, Args)                              \
    Result Name Params {                                                    \
        using HostFunction = Result(*) Params;                              \
        HostFunction host = FindHostService<HostFunction>(#Name);           \
        if (host == nullptr) return Neutral<Result>();                             \
        return host Args;                                                   \
    }
#include "host_services.def"
#undef KV_SERVICE

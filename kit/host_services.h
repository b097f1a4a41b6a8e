// The host's named services as seen from a plug-in: one local entry per service, 206 in all.
//
// Every entry looks its own name up in the running process (dlsym with the default search
// handle) on each call, nothing cached, and forwards its arguments. When the host does not export
// the name, the entry returns the neutral value: 0 for a number, null for a pointer or handle,
// nothing for a service without result. So a plug-in has no link-time reference to any host.
//
// The local entries are ordinary C++ functions: their symbols are mangled and hidden, so a lookup
// of the plain name can never find the entry itself, only the host's extern "C" definition.
// Signatures and families: see host_services.def.
#ifndef VELLUX_KIT_HOST_SERVICES_H
#define VELLUX_KIT_HOST_SERVICES_H

#include <cstddef>
#include <cstdint>

#include "host_service_types.h"

#define KV_SERVICE(Result, Name, Params, Args) Result Name Params;
#include "host_services.def"
#undef KV_SERVICE

namespace kv_services {
// Number of services in the table.
constexpr std::size_t kServiceCount = 0
#define KV_SERVICE(Result, Name, Params, Args) +1
#include "host_services.def"
#undef KV_SERVICE
    ;
static_assert(kServiceCount == 206, "the host offers 206 named services");
}  // namespace kv_services

#endif  // VELLUX_KIT_HOST_SERVICES_H

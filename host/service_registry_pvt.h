// Pieces every family of the host's exported services shares.
//
// - Registry: objects handed out by handle. Every handle is the first member of an object of
//   ours, kept in a registry keyed by the handle's address. A handle is looked up by address only,
//   never dereferenced, so a pointer the host did not hand out, or one already released, is
//   recognised and ignored.
// - VELLUX_CHECK_SIGNATURE(Name): the exported function must have exactly the signature the
//   plug-in calls it with (kit/host_services.def).
#ifndef VELLUX_HOST_SERVICE_REGISTRY_PVT_H
#define VELLUX_HOST_SERVICE_REGISTRY_PVT_H

#include <memory>
#include <type_traits>
#include <unordered_map>

#include "kit/host_service_types.h"

namespace vellux::host {

template <typename Object, typename Handle>
class Registry {
public:
    Handle* Add(std::unique_ptr<Object> object) {
        Handle* handle = &object->handle;
        handle->data = ++serial_;
        objects_.emplace(handle, std::move(object));
        return handle;
    }
    Object* Find(const Handle* handle) const {
        const auto found = objects_.find(handle);
        return found == objects_.end() ? nullptr : found->second.get();
    }
    void Remove(const Handle* handle) { objects_.erase(handle); }
    int Count() const { return int(objects_.size()); }

private:
    std::unordered_map<const Handle*, std::unique_ptr<Object>> objects_;
    int serial_ = 0;
};

namespace signatures {
#define KV_SERVICE(Result, Name, Params, Args) using Name = Result Params;
#include "kit/host_services.def"
#undef KV_SERVICE
}  // namespace signatures

}  // namespace vellux::host

#define VELLUX_CHECK_SIGNATURE(Name) \
    static_assert(std::is_same_v<decltype(::Name), vellux::host::signatures::Name>, #Name " differs from the table")

#ifndef VELLUX_HOST_EXPORT
#define VELLUX_HOST_EXPORT __attribute__((visibility("default")))
#endif

#endif  // VELLUX_HOST_SERVICE_REGISTRY_PVT_H

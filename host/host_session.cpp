#include "host/host_session.h"

#include <cstdlib>

namespace vellux::host {

namespace {
uint8_t* BlockOf(std::vector<uint8_t>& block) { return block.empty() ? nullptr : block.data(); }

template <typename Record>
Record* As(int32_t size, void* record) {
    return size == int32_t(sizeof(Record)) ? static_cast<Record*>(record) : nullptr;
}
}  // namespace

PluginInfoRec HostSession::Info() {
    PluginInfoRec info{};
    info.theControlData = BlockOf(control_);
    info.theControlDataSize = int32_t(control_.size());
    info.thePluginData = BlockOf(plugin_);
    info.thePluginDataSize = int32_t(plugin_.size());
    info.theHostProc = &HostSession::Callback;
    info.theHostReference = this;
    return info;
}

int32_t HostSession::Callback(IFFType selector, int32_t size, void* record) {
    if (record == nullptr || size < int32_t(sizeof(void*))) return kIncompatibleRecord;
    return (*static_cast<HostSession**>(record))->Answer(selector, size, record);
}

int32_t HostSession::Answer(IFFType selector, int32_t size, void* record) {
    if (selector == kHostFree) {
        auto* rec = As<HostFreeRec>(size, record);
        if (rec == nullptr) return kIncompatibleRecord;
        rec->theFreeSize = freeBytes_;
        return kNoError;
    }
    if (selector == kHostAllocate) {
        auto* rec = As<HostAllocateRec>(size, record);
        if (rec == nullptr || rec->theControlDataSize < 0 || rec->thePluginDataSize < 0) return kIncompatibleRecord;
        if (rec->thePluginDataSize > freeBytes_) return kMemoryError;
        // A block that shrinks gives its memory back: the working record is grown to all the
        // free memory while it is filled, and must not keep it afterwards.
        control_.resize(size_t(rec->theControlDataSize));
        plugin_.resize(size_t(rec->thePluginDataSize));
        control_.shrink_to_fit();
        plugin_.shrink_to_fit();
        rec->theControlData = BlockOf(control_);
        rec->theControlDataSize = int32_t(control_.size());
        rec->thePluginData = BlockOf(plugin_);
        rec->thePluginDataSize = int32_t(plugin_.size());
        return kNoError;
    }
    if (selector == kHostMemMalloc) {
        auto* rec = As<HostMemMallocRec>(size, record);
        if (rec == nullptr) return kIncompatibleRecord;
        rec->thePtr = std::malloc(rec->theSize);
        return rec->thePtr != nullptr ? kNoError : kMemoryError;
    }
    if (selector == kHostMemFree) {
        auto* rec = As<HostMemFreeRec>(size, record);
        if (rec == nullptr) return kIncompatibleRecord;
        std::free(rec->thePtr);
        return kNoError;
    }
    if (selector == kHostStatus) return As<HostStatusRec>(size, record) != nullptr ? kNoError : kIncompatibleRecord;
    return kUnsupportedCommand;
}

}  // namespace vellux::host

#include "host/host_session.h"

#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace vellux::host {

namespace {
template <typename Block>
uint8_t* BlockOf(Block& block) { return block.empty() ? nullptr : block.data(); }

template <typename Record>
Record* As(int32_t size, void* record) {
    return size == int32_t(sizeof(Record)) ? static_cast<Record*>(record) : nullptr;
}

std::string Text(const PStr255& pstr) { return std::string(reinterpret_cast<const char*>(pstr + 1), pstr[0]); }
}  // namespace

namespace {
thread_local const HostSession* tActiveSession = nullptr;
}  // namespace

ActiveSessionScope::ActiveSessionScope(const HostSession& session) : previous_(tActiveSession) {
    tActiveSession = &session;
}
ActiveSessionScope::~ActiveSessionScope() { tActiveSession = previous_; }
const HostSession* ActiveSession() { return tActiveSession; }

void HostSession::SetFileSubstitute(const std::string& name, const std::filesystem::path& file) {
    if (file.empty()) substitutes_.erase(name);
    else substitutes_[name] = file;
}

const std::filesystem::path* HostSession::FileSubstitute(const std::string& name) const {
    const auto found = substitutes_.find(name);
    return found == substitutes_.end() ? nullptr : &found->second;
}

uint32_t HostTickCount() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint32_t(uint64_t(now.tv_sec) * 60u + uint64_t(now.tv_nsec) * 60u / 1000000000u);
}

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
        return rec != nullptr ? Allocate(*rec) : kIncompatibleRecord;
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
    if (selector == kHostStatus) {
        auto* rec = As<HostStatusRec>(size, record);
        return rec != nullptr ? Status(*rec) : kIncompatibleRecord;
    }
    if (selector == kHostAddChannel) {
        auto* rec = As<HostAddChannelRec>(size, record);
        return rec != nullptr ? AddChannel(*rec) : kIncompatibleRecord;
    }
    if (selector == kHostGetChannel) {
        auto* rec = As<HostGetChannelRec>(size, record);
        return rec != nullptr ? GetChannel(*rec) : kIncompatibleRecord;
    }
    if (selector == kHostSetChannel) {
        auto* rec = As<HostSetChannelRec>(size, record);
        return rec != nullptr ? SetChannel(*rec) : kIncompatibleRecord;
    }
    if (selector == kHostResetChannel) {
        if (As<HostResetChannelRec>(size, record) == nullptr) return kIncompatibleRecord;
        channels_.Reset();
        ++channelResets_;
        return kNoError;
    }
    return kUnsupportedCommand;
}

int32_t HostSession::AddChannel(HostAddChannelRec& rec) {
    Channel* channel = channels_.Add(rec.theChannelID, rec.theChannelType, Text(rec.theChannelName),
                                     rec.theChannelDefault);
    rec.theChannelReference = channel;
    return channel != nullptr ? kNoError : kIncompatibleRecord;
}

int32_t HostSession::GetChannel(HostGetChannelRec& rec) {
    const Channel* channel = channels_.Find(rec.theChannelReference);
    if (channel == nullptr) return kIncompatibleRecord;
    rec.theChannelID = channel->id;
    rec.theChannelType = channel->type;
    const ChannelBytes value = ChannelStore::ValueAt(*channel, rec.theChannelFrame);
    static_assert(sizeof(channelValue_) >= sizeof(double) && sizeof(channelValue_) >= 3 * sizeof(int16_t));
    std::copy(value.begin(), value.end(), channelValue_);
    rec.theChannelData = value.empty() ? nullptr : channelValue_;
    return kNoError;
}

int32_t HostSession::SetChannel(const HostSetChannelRec& rec) {
    Channel* channel = channels_.Find(rec.theChannelReference);
    if (channel == nullptr || channel->id != rec.theChannelID || channel->type != rec.theChannelType ||
        channel->defaultValue.empty() || rec.theChannelData == nullptr)
        return kIncompatibleRecord;
    ChannelStore::SetKey(*channel, rec.theChannelFrame, rec.theChannelData);
    return kNoError;
}

void HostSession::WorkingBlock::resize(size_t size) {
    if (size == size_) return;
    std::unique_ptr<uint8_t[]> bytes = size == 0 ? nullptr : std::make_unique_for_overwrite<uint8_t[]>(size);
    if (size_ != 0 && size != 0) std::memcpy(bytes.get(), bytes_.get(), std::min(size, size_));
    bytes_ = std::move(bytes);
    size_ = size;
}

int32_t HostSession::Allocate(HostAllocateRec& rec) {
    if (rec.theControlDataSize < 0 || rec.thePluginDataSize < 0) return kIncompatibleRecord;
    if (rec.thePluginDataSize > freeBytes_) return kMemoryError;
    // A block that shrinks gives its memory back: the working record is grown to all the free
    // memory while it is filled, and must not keep it afterwards.
    control_.resize(size_t(rec.theControlDataSize));
    plugin_.resize(size_t(rec.thePluginDataSize));
    control_.shrink_to_fit();
    rec.theControlData = BlockOf(control_);
    rec.theControlDataSize = int32_t(control_.size());
    rec.thePluginData = BlockOf(plugin_);
    rec.thePluginDataSize = int32_t(plugin_.size());
    return kNoError;
}

int32_t HostSession::Status(HostStatusRec& rec) {
    if (progress_) {
        progress_({rec.theStatusPos, Text(rec.theStatusUnit), Text(rec.theStatusInfo), rec.theStatusMin,
                   rec.theStatusMax, rec.theStatusValue});
    }
    if (interrupt_ != nullptr && interrupt_->load(std::memory_order_relaxed)) return kUserCanceled;
    // Tick 0 asks for a report after every row; the plug-in compares ticks as unsigned numbers.
    rec.theStatusTick = reportTicks_ > 0 ? int32_t(HostTickCount() + uint32_t(reportTicks_)) : 0;
    return kNoError;
}

}  // namespace vellux::host

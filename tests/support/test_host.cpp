#include "support/test_host.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

std::string PStrText(const unsigned char* pstr) { return std::string(reinterpret_cast<const char*>(pstr + 1), pstr[0]); }

TestHost::TestHost() = default;

TestHost::~TestHost() {
    std::free(control_);
    std::free(plugin_);
}

PluginInfoRec TestHost::Info() const {
    PluginInfoRec info{};
    info.theControlData = control_;
    info.theControlDataSize = controlSize_;
    info.thePluginData = plugin_;
    info.thePluginDataSize = pluginSize_;
    info.theHostProc = withCallback ? &TestHost::Callback : nullptr;
    info.theHostReference = const_cast<TestHost*>(this);
    return info;
}

void TestHost::SetControl(const void* bytes, int32_t size) {
    SetControlSize(size);
    if (size > 0) std::memcpy(control_, bytes, size_t(size));
}

void TestHost::SetControlSize(int32_t size) {
    std::free(control_);
    control_ = size > 0 ? static_cast<uint8_t*>(std::calloc(size_t(size), 1)) : nullptr;
    controlSize_ = size;
}

extern "C" int32_t Main(IFFType command, int32_t theCommandRecSize, void* theCommandRec);

int32_t TestHost::SendRaw(IFFType command, int32_t size, void* block) { return Main(command, size, block); }

void TestHost::FailCall(IFFType selector, int n, int32_t code) { failures_.push_back({selector, n, code}); }

std::vector<IFFType> TestHost::Selectors() const {
    std::vector<IFFType> out;
    for (const Call& call : calls) out.push_back(call.selector);
    return out;
}

int TestHost::Count(IFFType selector) const {
    return int(std::count_if(calls.begin(), calls.end(), [&](const Call& c) { return c.selector == selector; }));
}

TestHost::Channel* TestHost::FindChannel(int32_t id) {
    for (auto& channel : channels)
        if (channel->id == id) return channel.get();
    return nullptr;
}

int32_t TestHost::Callback(IFFType selector, int32_t size, void* record) {
    auto* host = *static_cast<TestHost**>(record);
    return host->Answer(selector, size, record);
}

int32_t TestHost::Answer(IFFType selector, int32_t size, void* record) {
    Call call;
    call.selector = selector;
    call.size = size;
    for (Failure& failure : failures_) {
        if (failure.selector == selector && failure.remaining > 0 && --failure.remaining == 0) {
            calls.push_back(call);
            return failure.code;
        }
    }
    int32_t answer = kNoError;
    if (selector == kHostFree && size == int32_t(sizeof(HostFreeRec))) {
        static_cast<HostFreeRec*>(record)->theFreeSize = freeSize;
    } else if (selector == kHostAllocate && size == int32_t(sizeof(HostAllocateRec))) {
        auto& rec = *static_cast<HostAllocateRec*>(record);
        call.controlSize = rec.theControlDataSize;
        call.pluginSize = rec.thePluginDataSize;
        answer = Allocate(rec);
    } else if (selector == kHostMemMalloc && size == int32_t(sizeof(HostMemMallocRec))) {
        auto& rec = *static_cast<HostMemMallocRec*>(record);
        rec.thePtr = std::malloc(rec.theSize);
        ++liveMallocs;
    } else if (selector == kHostMemFree && size == int32_t(sizeof(HostMemFreeRec))) {
        std::free(static_cast<HostMemFreeRec*>(record)->thePtr);
        --liveMallocs;
    } else if (selector == kHostResetChannel && size == int32_t(sizeof(HostResetChannelRec))) {
        ++resets;
        if (rchnAnswer == kNoError) channels.clear();
        answer = rchnAnswer;
    } else if (selector == kHostAddChannel && size == int32_t(sizeof(HostAddChannelRec))) {
        auto& rec = *static_cast<HostAddChannelRec*>(record);
        auto channel = std::make_unique<Channel>();
        channel->id = rec.theChannelID;
        channel->type = rec.theChannelType;
        channel->name = PStrText(rec.theChannelName);
        const size_t bytes = rec.theChannelType == kChannelReal ? 8 : rec.theChannelType == kChannelColor ? 6 : 0;
        if (rec.theChannelDefault != nullptr && bytes > 0) {
            auto* from = static_cast<uint8_t*>(rec.theChannelDefault);
            channel->defaultValue.assign(from, from + bytes);
        }
        call.channelID = rec.theChannelID;
        call.name = channel->name;
        rec.theChannelReference = channel.get();
        channels.push_back(std::move(channel));
    } else if (selector == kHostSetChannel && size == int32_t(sizeof(HostSetChannelRec))) {
        auto& rec = *static_cast<HostSetChannelRec*>(record);
        auto* channel = static_cast<Channel*>(rec.theChannelReference);
        const size_t bytes = channel->defaultValue.size();
        auto* from = static_cast<uint8_t*>(rec.theChannelData);
        channel->keys[rec.theChannelFrame].assign(from, from + bytes);
        call.channelID = rec.theChannelID;
        call.frame = rec.theChannelFrame;
    } else if (selector == kHostGetChannel && size == int32_t(sizeof(HostGetChannelRec))) {
        auto& rec = *static_cast<HostGetChannelRec*>(record);
        call.channelID = rec.theChannelID;
        call.frame = rec.theChannelFrame;
        answer = GetChannel(rec);
    } else if (selector == kHostStatus && size == int32_t(sizeof(HostStatusRec))) {
        auto& rec = *static_cast<HostStatusRec*>(record);
        call.statusPos = rec.theStatusPos;
        call.statusValue = rec.theStatusValue;
        rec.theStatusTick = statTick;
        answer = statAnswer;
    } else {
        answer = kUnsupportedCommand;
    }
    calls.push_back(call);
    return answer;
}

// The value of a channel at a frame: its key there, else its default.
int32_t TestHost::GetChannel(HostGetChannelRec& rec) {
    auto* channel = static_cast<Channel*>(rec.theChannelReference);
    auto key = channel->keys.find(rec.theChannelFrame);
    channelValue_ = key != channel->keys.end() ? key->second : channel->defaultValue;
    rec.theChannelID = channel->id;
    rec.theChannelType = channel->type;
    rec.theChannelData = channelValue_.data();
    if (onGetChannel) onGetChannel(rec);
    return kNoError;
}

int32_t TestHost::Allocate(HostAllocateRec& rec) {
    if (rec.theControlData != control_ || rec.thePluginData != plugin_) return kIncompatibleRecord;
    Resize(&control_, &controlSize_, rec.theControlDataSize);
    Resize(&plugin_, &pluginSize_, rec.thePluginDataSize - allocateShortfall);
    rec.theControlData = control_;
    rec.theControlDataSize = controlSize_;
    rec.thePluginData = plugin_;
    rec.thePluginDataSize = pluginSize_;
    return kNoError;
}

// Always a new block: the contents up to the smaller size move, the rest is filled with a pattern.
void TestHost::Resize(uint8_t** block, int32_t* size, int32_t wanted) {
    if (wanted <= 0) {
        std::free(*block);
        *block = nullptr;
        *size = 0;
        return;
    }
    auto* fresh = static_cast<uint8_t*>(std::malloc(size_t(wanted)));
    std::memset(fresh, 0xCD, size_t(wanted));
    if (*block != nullptr) std::memcpy(fresh, *block, size_t(std::min(*size, wanted)));
    std::free(*block);
    *block = fresh;
    *size = wanted;
}

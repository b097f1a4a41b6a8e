#include "host/channel_store.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

namespace vellux::host {

namespace {
double RealOf(const ChannelBytes& bytes) {
    double value = 0.0;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

int16_t ComponentOf(const ChannelBytes& bytes, size_t index) {
    int16_t value = 0;
    std::memcpy(&value, bytes.data() + index * sizeof value, sizeof value);
    return value;
}

ChannelBytes Interpolate(IFFType type, const ChannelBytes& a, const ChannelBytes& b, double t) {
    ChannelBytes out(a.size());
    if (type == kChannelReal) {
        const double value = RealOf(a) + (RealOf(b) - RealOf(a)) * t;
        std::memcpy(out.data(), &value, sizeof value);
    } else if (type == kChannelColor) {
        for (size_t i = 0; i < 3; ++i) {
            const double from = ComponentOf(a, i), to = ComponentOf(b, i);
            // Between two int16 values, so the rounded result is an int16 as well.
            const auto value = int16_t(std::lround(from + (to - from) * t));
            std::memcpy(out.data() + i * sizeof value, &value, sizeof value);
        }
    }
    return out;
}
}  // namespace

std::optional<size_t> ChannelStore::ValueSize(IFFType type) {
    if (type == kChannelReal) return sizeof(double);
    if (type == kChannelColor) return 3 * sizeof(int16_t);
    if (type == kChannelLabel || type == kChannelEnd) return 0;
    return std::nullopt;
}

Channel* ChannelStore::Add(int32_t id, IFFType type, std::string name, const void* defaultValue) {
    const std::optional<size_t> size = ValueSize(type);
    if (!size) return nullptr;
    ChannelBytes value(*size);
    if (defaultValue != nullptr && *size > 0) std::memcpy(value.data(), defaultValue, *size);

    auto same = std::find_if(channels_.begin(), channels_.end(),
                             [&](const Channel& c) { return c.id == id && c.type == type; });
    Channel& channel = same != channels_.end() ? *same : channels_.emplace_back();
    channel.id = id;
    channel.type = type;
    channel.name = std::move(name);
    channel.defaultValue = std::move(value);
    return &channel;
}

Channel* ChannelStore::Find(const void* reference) {
    for (Channel& channel : channels_)
        if (&channel == reference) return &channel;
    return nullptr;
}

Channel* ChannelStore::FindByName(std::string_view name) {
    for (Channel& channel : channels_)
        if (channel.name == name) return &channel;
    return nullptr;
}

void ChannelStore::SetKey(Channel& channel, int32_t frame, const void* value) {
    ChannelBytes bytes(channel.defaultValue.size());
    if (!bytes.empty()) std::memcpy(bytes.data(), value, bytes.size());
    channel.keys[frame] = std::move(bytes);
}

ChannelBytes ChannelStore::ValueAt(const Channel& channel, int32_t frame) {
    const auto& keys = channel.keys;
    if (keys.empty()) return channel.defaultValue;
    const auto after = keys.lower_bound(frame);
    if (after == keys.end()) return std::prev(after)->second;
    if (after->first == frame || after == keys.begin()) return after->second;
    const auto before = std::prev(after);
    if (channel.modes.At(before->first) == Interpolation::linear) {
        const double t = (double(frame) - double(before->first)) / (double(after->first) - double(before->first));
        return Interpolate(channel.type, before->second, after->second, t);
    }
    ChannelBytes out(before->second.size());
    if (channel.type == kChannelReal) {
        const double value = std::clamp(CurveAt(keys, channel.modes, frame, RealOf), channel.low, channel.high);
        std::memcpy(out.data(), &value, sizeof value);
    } else if (channel.type == kChannelColor) {
        for (size_t i = 0; i < 3; ++i) {
            // Within the two keys' components, so the rounded result is an int16 as well.
            const double component = CurveAt(keys, channel.modes, frame, [i](const ChannelBytes& bytes) { return double(ComponentOf(bytes, i)); });
            const auto value = int16_t(std::lround(component));
            std::memcpy(out.data() + i * sizeof value, &value, sizeof value);
        }
    }
    return out;
}

}  // namespace vellux::host

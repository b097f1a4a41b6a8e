// The animation channels one plug-in instance has published to the host, with their keys.
//
// A channel is what the plug-in announced (ID, type, name, default value) plus keys by frame.
// Values are kept as the bytes the plug-in exchanges, in this machine's byte order:
//   REAL  one double (8 bytes)
//   CRGB  red, green, blue as signed 16-bit (6 bytes)
//   LABL, LEND  no value (0 bytes)
//
// Reading a frame: a channel without keys answers its default; before the first key the first
// key's value, after the last the last's; between two keys the interpolation the channel's modes
// give the segment (key_curve.h; linear unless asked otherwise), per component for CRGB, rounded
// to the nearest whole number. A smooth REAL value is kept within the channel's range.
//
// Channels live in a deque, so a channel never moves once added: its address is the reference
// handed to the plug-in, and stays valid until Reset.
#ifndef VELLUX_HOST_CHANNEL_STORE_H
#define VELLUX_HOST_CHANNEL_STORE_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/key_curve.h"
#include "vellux/plugin_records.h"

namespace vellux::host {

using ChannelBytes = std::vector<uint8_t>;

struct Channel {
    int32_t id = 0;
    IFFType type = 0;
    std::string name;
    ChannelBytes defaultValue;                  // ValueSize(type) bytes
    std::map<int32_t, ChannelBytes> keys;       // frame -> value, ValueSize(type) bytes each
    KeyModes modes;                             // how the value moves between keys
    double low = -HUGE_VAL, high = HUGE_VAL;    // a REAL setting's range
};

class ChannelStore {
public:
    // Bytes of one value of a channel type; nothing for a type the store does not know.
    static std::optional<size_t> ValueSize(IFFType type);

    // Adds a channel, or, when one with this ID and type exists, renames it and takes the new
    // default while keeping its keys (a plug-in that publishes again gets the same channel).
    // `defaultValue` may be null (zeros). Nothing for an unknown type.
    Channel* Add(int32_t id, IFFType type, std::string name, const void* defaultValue);

    // The channel behind a reference the plug-in hands back; null if it is not one of ours
    // (never dereferences `reference` to find out).
    Channel* Find(const void* reference);
    Channel* FindByName(std::string_view name);
    const std::deque<Channel>& All() const { return channels_; }

    // Keys `channel` at `frame` with ValueSize(channel.type) bytes from `value`.
    static void SetKey(Channel& channel, int32_t frame, const void* value);
    // The channel's value at `frame` (see the top of this header).
    static ChannelBytes ValueAt(const Channel& channel, int32_t frame);

    void Reset() { channels_.clear(); }

private:
    std::deque<Channel> channels_;
};

}  // namespace vellux::host

#endif  // VELLUX_HOST_CHANNEL_STORE_H

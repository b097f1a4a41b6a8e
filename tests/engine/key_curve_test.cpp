// Curves through keys: every interpolation through its keys; the smooth curve without kinks and
// without overshoot; a key's own interpolation over its channel's; and a channel's range.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "host/channel_store.h"
#include "host/key_curve.h"

namespace {

using vellux::host::CurveAt;
using vellux::host::Interpolation;
using vellux::host::KeyModes;
using Keys = std::map<int, double>;

double At(const Keys& keys, const KeyModes& modes, double t) {
    return CurveAt(keys, modes, t, [](double value) { return value; });
}

// Key sets of every shape: rising, falling, with turns and flat stretches, at uneven spacing.
const Keys kKeySets[] = {
    {{0, 0.0}, {10, 1.0}},
    {{1, 0.0}, {4, 0.2}, {5, 0.9}, {20, 1.0}},
    {{0, 5.0}, {3, -2.0}, {9, 7.5}, {10, 7.5}, {30, 0.0}},
    {{-5, 100.0}, {2, 400.0}, {6, 350.0}, {7, 900.0}, {40, 910.0}, {41, 0.0}},
    {{0, 1.0}, {8, 1.0}, {9, 1.0}, {20, 3.0}},
};

TEST(KeyCurve, EveryInterpolationPassesThroughItsKeysAndHoldsOutside) {
    for (const Interpolation mode : {Interpolation::linear, Interpolation::smooth, Interpolation::constant}) {
        for (const Keys& keys : kKeySets) {
            for (const auto& [frame, value] : keys) EXPECT_EQ(At(keys, {mode}, frame), value) << int(mode) << " at " << frame;
            EXPECT_EQ(At(keys, {mode}, keys.begin()->first - 3.5), keys.begin()->second);
            EXPECT_EQ(At(keys, {mode}, keys.rbegin()->first + 7), keys.rbegin()->second);
        }
    }
}

TEST(KeyCurve, SmoothHasNoKinkAtAnInnerKeyAndNoOvershoot) {
    const KeyModes smooth{Interpolation::smooth};
    for (const Keys& keys : kKeySets) {
        for (auto it = std::next(keys.begin()); std::next(it) != keys.end(); ++it) {
            // One-sided differences of second order on each side of the key.
            const double t = it->first, h = 1e-4;
            auto f = [&](double x) { return At(keys, smooth, x); };
            const double left = (3.0 * f(t) - 4.0 * f(t - h) + f(t - 2.0 * h)) / (2.0 * h);
            const double right = (-3.0 * f(t) + 4.0 * f(t + h) - f(t + 2.0 * h)) / (2.0 * h);
            EXPECT_NEAR(left, right, 1e-3 * (1.0 + std::abs(left))) << "key " << t;
        }
        // Each segment runs monotonically from its key to the next, so never past either.
        for (auto a = keys.begin(), b = std::next(a); b != keys.end(); ++a, ++b) {
            double previous = a->second;
            for (int step = 1; step <= 64; ++step) {
                const double value = At(keys, smooth, a->first + (b->first - a->first) * step / 64.0);
                EXPECT_GE(value, std::min(a->second, b->second));
                EXPECT_LE(value, std::max(a->second, b->second));
                EXPECT_TRUE(b->second >= a->second ? value >= previous : value <= previous) << a->first << "+" << step;
                previous = value;
            }
        }
    }
    // Not the straight line: the curve eases into a key where the slope changes.
    const Keys& bend = kKeySets[1];
    EXPECT_NE(At(bend, smooth, 4.5), At(bend, {Interpolation::linear}, 4.5));
}

TEST(KeyCurve, ConstantHoldsAndAKeyOverridesItsChannel) {
    const Keys& keys = kKeySets[3];
    for (double t = -5; t < 41; t += 0.25) {
        const double held = std::prev(keys.upper_bound(int(std::floor(t))))->second;
        EXPECT_EQ(At(keys, {Interpolation::constant}, t), held) << t;
    }
    // A smooth channel with a held key at 6: only the segment 6..7 holds.
    KeyModes modes{Interpolation::smooth, {{6, Interpolation::constant}}};
    EXPECT_EQ(At(keys, modes, 6.9), 350.0);
    for (const double t : {-1.0, 3.5, 20.0})
        EXPECT_EQ(At(keys, modes, t), At(keys, {Interpolation::smooth}, t)) << t;
    // And a linear key in it: the straight line on its segment alone.
    modes.byKey = {{2, Interpolation::linear}};
    EXPECT_EQ(At(keys, modes, 4.0), 375.0);
    EXPECT_NE(At(keys, modes, 20.0), At(keys, {Interpolation::linear}, 20.0));
}

TEST(KeyCurve, ChannelStoreKeepsSmoothValuesInTheChannelsRange) {
    using vellux::host::ChannelStore;
    ChannelStore store;
    vellux::host::Channel& dissolve = *store.Add(3, kChannelReal, "Dissolve", nullptr);
    for (const auto& [frame, value] : Keys{{0, 0.0}, {10, 3.0}, {20, 0.25}}) ChannelStore::SetKey(dissolve, frame, &value);
    dissolve.modes.all = Interpolation::smooth;
    dissolve.low = 0.0;
    dissolve.high = 1.0;
    auto real = [&](int frame) {
        double value = 0.0;
        std::memcpy(&value, ChannelStore::ValueAt(dissolve, frame).data(), sizeof value);
        return value;
    };
    for (int frame = 1; frame < 20; ++frame) {   // between the keys; the key at 10 is the file's
        if (frame == 10) continue;
        EXPECT_GE(real(frame), 0.0);
        EXPECT_LE(real(frame), 1.0);
    }

    // Colours: each component on its own curve, rounded to whole numbers.
    vellux::host::Channel& ring = *store.Add(6, kChannelColor, "Ring Color", nullptr);
    const int16_t from[3] = {0, -32768, 32767}, to[3] = {32767, 32767, -32768}, last[3] = {0, 0, 0};
    ChannelStore::SetKey(ring, 0, from);
    ChannelStore::SetKey(ring, 10, to);
    ChannelStore::SetKey(ring, 11, last);
    ring.modes.all = Interpolation::smooth;
    int16_t middle[3];
    std::memcpy(middle, ChannelStore::ValueAt(ring, 5).data(), sizeof middle);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(middle[i], std::lround(At({{0, from[i]}, {10, to[i]}, {11, last[i]}}, {Interpolation::smooth}, 5))) << i;
}

}  // namespace

// The star's streaks: one horizontal anamorphic streak, the rays of a star filter (a major set
// and a minor set between them), and a seeded spray of random rays. Each is a quadrilateral with
// edges prepared for scan conversion and the coefficients of its falloff along and across.
// Streaks of one kind are consecutive, in the order anamorphic, major, minor, random.
#ifndef VELLUX_PLUGIN_STREAKS_H
#define VELLUX_PLUGIN_STREAKS_H

#include <cstdint>

#include "plugin_data.h"

enum : uint32_t {
    kStreakAnamorphic = 0,
    kStreakMajor = 1,
    kStreakMinor = 2,
    kStreakRandom = 3,
    kStreakTwoSided = 0x80000000u,
};

// Builds every streak after the element tables; returns 0, or 1 when the tail is full.
int32_t BuildStreaks(ControlDataRec* theControl, PluginDataRec* theData, int32_t* theSize, int32_t* theBase);

// Appends one streak; 1 (nothing changed) when fewer than a streak's bytes are free.
int32_t AddStreak(PluginDataRec* theData, StreakElement** theStreakElement, int32_t* theSize, int32_t* theBase);

// Fills the geometry of a streak whose angle, length, width, colour and mode are set.
void CalcStreakInfo(ControlDataRec* theControl, PluginDataRec* theData, StreakElement* theStreak);

// Major and minor ray counts of a star filter.
struct StarRays {
    int32_t major;
    int32_t minor;
};
StarRays StarFilterRays(int32_t starFilter);

#endif  // VELLUX_PLUGIN_STREAKS_H

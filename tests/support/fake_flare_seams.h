// Test stand-ins for the flare table and the layout: a table of a chosen number of elements, a
// layout that uses a chosen number of bytes, and failures on demand.
#ifndef VELLUX_TESTS_FAKE_FLARE_SEAMS_H
#define VELLUX_TESTS_FAKE_FLARE_SEAMS_H

#include <cstdint>

struct FakeFlare {
    int32_t ringCount = 0;      // elements the table holds
    int32_t openResult = 0;     // answer of opening the table file
    int32_t readResult = 0;     // answer of reading it (after the elements that fit)
    int32_t layoutBytes = 0;    // bytes the layout writes after the elements
    int32_t streakCount = 0;    // streaks the layout reports
    int opens = 0;              // how often each step ran
    int reads = 0;
    int layouts = 0;
};

FakeFlare& Fake();              // the stand-ins' settings; ResetFake() before each test
void ResetFake();

#endif  // VELLUX_TESTS_FAKE_FLARE_SEAMS_H

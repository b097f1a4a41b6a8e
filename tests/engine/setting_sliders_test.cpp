// The slider spans front ends share: one for every number setting, inside what the setting takes.
#include <gtest/gtest.h>

#include "engine/setting_names.h"
#include "engine/setting_sliders.h"

namespace vellux::engine {

TEST(SettingSliders, EveryNumberSettingHasASpanInsideItsRange) {
    size_t numbers = 0;
    for (const SettingName& setting : SettingNames()) {
        const SliderSpan* span = FindSettingSlider(setting.name);
        const bool number = setting.kind == SettingKind::number || setting.kind == SettingKind::whole;
        ASSERT_EQ(span != nullptr, number) << setting.name;
        if (!number) continue;
        ++numbers;
        EXPECT_LT(span->min, span->max) << setting.name;
        // the slider's ends are values the setting takes (an excluded minimum is the slider's
        // bottom only as a limit: the frei0r filter steps above it)
        EXPECT_FALSE(RangeProblem(setting, span->max)) << setting.name;
        EXPECT_FALSE(RangeProblem(setting, span->min + 1e-3)) << setting.name;
    }
    EXPECT_EQ(numbers, SettingSliders().size());
}

}  // namespace vellux::engine

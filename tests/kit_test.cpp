// Small kit pieces: byte reversal, rectangles, result texts, general allocation and progress,
// and the service entries' forwarding to a host that provides a service.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "fake_services/fake_dialog_host.h"
#include "kit/byte_order.h"
#include "kit/host_services.h"
#include "kit/plugin_client.h"
#include "kit/pstring.h"
#include "kit/rect.h"
#include "support/test_host.h"

TEST(ByteOrder, ReversesInPlace) {
    uint32_t word = 0x11223344u;
    ReverseField(&word, 4);
    EXPECT_EQ(word, 0x44332211u);
    double value = 1.77;
    ReverseField(&value, 8);
    EXPECT_NE(value, 1.77);
    ReverseField(&value, 8);
    EXPECT_EQ(value, 1.77);
    unsigned char odd[3] = {1, 2, 3};
    ReverseField(odd, 3);
    EXPECT_EQ(odd[0], 3);
    EXPECT_EQ(odd[1], 2);
    ReverseField(odd, 0);
    ReverseField(odd, 1);
    EXPECT_EQ(odd[0], 3);
}

TEST(Rectangles, SetTakesLeftTopRightBottom) {
    L_Rect r;
    SetLRect(&r, 10, 20, 110, 70);
    EXPECT_EQ(std::tie(r.left, r.top, r.right, r.bottom, r.width, r.height),
              std::make_tuple(10, 20, 110, 70, 100u, 50u));
    SetLRect(&r, -32767, -32767, 32767, 32767);
    EXPECT_EQ(r.width, 65534u);
}

TEST(Rectangles, IntersectionRules) {
    L_Rect a, b, out;
    SetLRect(&a, 0, 0, 100, 50);
    SetLRect(&b, 60, 10, 200, 90);
    EXPECT_EQ(SectLRect(&a, &b, &out), 1);
    EXPECT_EQ(std::tie(out.left, out.top, out.right, out.bottom, out.width, out.height),
              std::make_tuple(60, 10, 100, 50, 40u, 40u));

    SetLRect(&b, 100, 0, 150, 50);             // touching only
    std::memset(&out, 0x3C, sizeof(out));
    EXPECT_EQ(SectLRect(&a, &b, &out), 0);
    EXPECT_EQ(out.left | out.top | out.right | out.bottom | int32_t(out.width) | int32_t(out.height), 0);

    EXPECT_EQ(SectLRect(&a, &a, &out), 1);     // with itself
    EXPECT_EQ(std::memcmp(&out, &a, sizeof(a)), 0);

    L_Rect inPlace = a;                         // dst aliasing a source
    SetLRect(&b, -10, 20, 30, 500);
    EXPECT_EQ(SectLRect(&inPlace, &b, &inPlace), 1);
    EXPECT_EQ(std::tie(inPlace.left, inPlace.top, inPlace.right, inPlace.bottom), std::make_tuple(0, 20, 30, 50));
}

TEST(PluginClient, DescribesResultCodes) {
    PStr255 text;
    DescribePluginError(4, text);
    EXPECT_EQ(PStrText(text), "The user canceled the plug-in operation");
    DescribePluginError(-7, text);
    EXPECT_EQ(text[0], 0);
}

TEST(PluginClient, GeneralAllocationAndProgressGoThroughTheGivenHost) {
    TestHost host;
    PluginInfoRec info = host.Info();
    int32_t result = kNoError;
    void* block = nullptr;
    KVPluginMalloc(&info, &result, 64, &block);
    ASSERT_EQ(result, kNoError);
    ASSERT_NE(block, nullptr);
    std::memset(block, 1, 64);
    KVPluginFree(&info, &result, block);
    EXPECT_EQ(host.liveMallocs, 0);

    HostStatusRec status{};
    KVPluginStatusSetup(&info, &status, PS("Scanline"), PS("Drawing Flare"), 0, 100, 0.25f, 25, &result);
    EXPECT_EQ(PStrText(status.theStatusUnit), "Scanline");
    EXPECT_EQ(status.theStatusMax, 100);
    EXPECT_EQ(host.Count(kHostStatus), 1);
    KVPluginStatusCheck(&info, &status, &result);
    KVPluginStatusFinish(&info, &status, &result);     // the host left the tick at 0: no report
    EXPECT_EQ(host.Count(kHostStatus), 1);
    host.statTick = 99;
    KVPluginStatusUpdate(&info, &status, 0.5f, 50, &result);
    KVPluginStatusFinish(&info, &status, &result);
    ASSERT_EQ(host.Count(kHostStatus), 3);
    EXPECT_EQ(host.calls.back().statusPos, 1.0f);
    EXPECT_EQ(host.calls.back().statusValue, 100);

    host.statAnswer = kUserCanceled;
    KVPluginStatusUpdate(&info, &status, 0.6f, 60, &result);
    EXPECT_EQ(result, kUserCanceled);
    KVPluginStatusUpdate(&info, &status, 0.7f, 70, &result);   // nothing more after an error
    EXPECT_EQ(host.Count(kHostStatus), 4);

    result = kNoError;
    info.theHostProc = nullptr;
    KVPluginMalloc(&info, &result, 8, &block);
    EXPECT_EQ(result, kIncompatibleRecord);
}

TEST(HostServiceEntries, ForwardToTheHostThatExportsTheName) {
    fake_host::Reset();
    fake_host::Dialog& dialog = fake_host::NewDialog();
    fake_host::Control& box = fake_host::AddControl(dialog, 7, cKV_CheckBox);
    box.value = 1;
    KV_Control* found = KV_FindControlByID(&dialog.handle, 7);
    EXPECT_EQ(found, &box.handle);
    EXPECT_EQ(KV_GetControlValue(found), 1);
    KV_SetControlValue(found, 0);
    EXPECT_EQ(box.value, 0);
    EXPECT_EQ(KV_CountControls(&dialog.handle), 1);
    EXPECT_EQ(KV_GetAPIVersion(), 0);            // not exported by this host: neutral
    EXPECT_EQ(KV_MakeCursor(3), nullptr);
}

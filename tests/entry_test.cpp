// The entry: dispatch, the administrative commands, and what every command does with a block
// that is too short, missing, or comes without a host callback.
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>

#include "fake_services/fake_dialog_host.h"
#include "plugin/commands.h"
#include "plugin/globals.h"
#include "support/plugin_fixture.h"

namespace {

const IFFType kAllCommands[] = {kCmdCheck,   kCmdDescribe,  kCmdFinishChannel, kCmdFinish,
                                kCmdGenerate, kCmdInitializeChannel, kCmdInformation, kCmdInitialize,
                                kCmdInterface, kCmdLoadChannel, kCmdSetup, kCmdUpdateChannel};

std::string Describe(int32_t code) {
    PluginDescribeRec block{};
    block.theResult = code;
    EXPECT_EQ(Main(kCmdDescribe, int32_t(sizeof(block)), &block), kNoError);
    return PStrText(block.theDescription);
}

}  // namespace

TEST_F(PluginTest, CheckAnswersForTheTwelveCommandsOnly) {
    for (IFFType command : kAllCommands) {
        PluginCheckRec block{};
        block.theCommand = command;
        EXPECT_EQ(host.Send(kCmdCheck, block), kNoError);
    }
    PluginCheckRec block{};
    block.theCommand = MakeIFF("RNDR");
    EXPECT_EQ(host.Send(kCmdCheck, block), kIncompatibleRecord);
    block.theCommand = kCmdGenerate;
    EXPECT_EQ(host.Send(kCmdCheck, block, int32_t(sizeof(block)) - 1), kIncompatibleRecord);
    EXPECT_EQ(kCommandCount, 12);
}

TEST(Describe, GivesTheResultTexts) {
    const std::pair<int32_t, const char*> texts[] = {
        {0, "No plug-in error"},
        {1, "Plug-in could not allocate needed memory"},
        {2, "Unsupported plug-in command was received"},
        {3, "Incompatible plug-in parameter record was received"},
        {4, "The user canceled the plug-in operation"},
        {5, "A plug-in command was received out of sequence"},
        {6, "Plug-in could not get a required resource"},
        {8, "A requested plug-in feature or mode is not supported"},
        {7, ""}, {9, ""}, {-1, ""}};
    for (auto [code, text] : texts) EXPECT_EQ(Describe(code), text) << code;

    PluginDescribeRec block{};
    block.theResult = 8;
    std::memset(block.theDescription, 0x77, sizeof(block.theDescription));
    EXPECT_EQ(Main(kCmdDescribe, int32_t(sizeof(block)) - 1, &block), kIncompatibleRecord);
    EXPECT_EQ(block.theDescription[0], 0x77);
}

TEST(Information, NamesThePlugIn) {
    PluginInformationRec block;
    std::memset(&block, 0x55, sizeof(block));
    std::memset(&block.theInfo, 0, sizeof(block.theInfo));
    EXPECT_EQ(Main(kCmdInformation, int32_t(sizeof(block)) - 1, &block), kIncompatibleRecord);
    EXPECT_EQ(block.thePluginVersion, 0x55555555);

    ASSERT_EQ(Main(kCmdInformation, int32_t(sizeof(block)), &block), kNoError);
    EXPECT_EQ(block.thePluginType, MakeIFF("VLUX"));
    EXPECT_EQ(block.thePluginVersion, 1);
    EXPECT_EQ(block.thePluginPermission, 0u);
    EXPECT_EQ(PStrText(block.thePluginName), "Corvane\xAA Vellux");
    EXPECT_EQ(PStrText(block.thePluginDescription),
              "This light effects plugin can simulate lens flares.  It is table driven and can create many "
              "different effects.");
    const std::string rights = PStrText(block.thePluginCopyright);
    EXPECT_NE(rights.find("Corvane"), std::string::npos);
    EXPECT_NE(rights.find("2026"), std::string::npos);
    const std::string author = PStrText(block.thePluginAuthor);
    EXPECT_EQ(author.rfind("Corvane|", 0), 0u);
}

TEST_F(PluginTest, TableFileNeverStaysOpenAfterACommand) {
    fake_host::Reset();
    ASSERT_EQ(Init(), kNoError);                        // opened for the rebuild, closed after it
    EXPECT_EQ(fake_host::Log().resourceFilesOpened, 1);
    EXPECT_EQ(fake_host::Log().resourceFilesClosed, 1);
    PluginInterfaceRec settings{};
    EXPECT_EQ(host.Send(kCmdInterface, settings), kNoError);   // no dialog resource: still closed
    EXPECT_EQ(fake_host::Log().resourceFilesClosed, fake_host::Log().resourceFilesOpened);
    EXPECT_EQ(resourceFile, nullptr);

    // A handle left behind by anything is dropped before the next command runs, whatever it is.
    resourceFile = fake_host::TheResourceFile();
    PluginFinishChannelRec block{};
    block.theInfo = host.Info();
    EXPECT_EQ(Main(MakeIFF("RNDR"), int32_t(sizeof(block)), &block), kUnsupportedCommand);
    EXPECT_EQ(resourceFile, nullptr);
    EXPECT_EQ(fake_host::Log().strayCalls, 0);
}

// Without a callback every command that needs the host is refused before it touches anything;
// CHCK needs none.
TEST_F(PluginTest, MissingCallback) {
    host.withCallback = false;
    PluginInitializeRec init{};
    PluginFinishRec finish{};
    PluginFlareSetupRec setup{};
    PluginInitializeChannelRec channels{};
    PluginCheckRec check{};
    check.theCommand = kCmdInitialize;
    EXPECT_EQ(host.Send(kCmdInitialize, init), kIncompatibleRecord);
    EXPECT_EQ(host.Send(kCmdFinish, finish), kIncompatibleRecord);
    EXPECT_EQ(host.Send(kCmdSetup, setup), kIncompatibleRecord);
    EXPECT_EQ(host.Send(kCmdInitializeChannel, channels), kIncompatibleRecord);
    EXPECT_EQ(host.Send(kCmdCheck, check), kNoError);
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(host.controlSize(), 0);
    host.withCallback = true;
    EXPECT_EQ(host.Send(kCmdFinish, finish), kNoError);
}

TEST_F(PluginTest, InitRebuildsTheWorkingRecordEveryTime) {
    Fake().ringCount = 1;
    Fake().layoutBytes = 8;
    ASSERT_EQ(Init(), kNoError);
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(Fake().reads, 2);
    EXPECT_EQ(Fake().layouts, 2);
    EXPECT_EQ(host.resets, 1);   // the settings were valid the second time
}

// Blocks shorter than their record, allocated to their exact size so that the sanitizer build
// catches any read past them, and no block at all.
TEST_F(PluginTest, ShortAndMissingBlocksAreRejectedUnread) {
    ASSERT_EQ(Init(), kNoError);
    host.ClearLog();
    for (int32_t i = 0; i < kCommandCount; ++i) {
        const CommandEntry& entry = kCommandTable[i];
        for (int32_t size : {entry.smallestSize - 1, int32_t(sizeof(PluginInfoRec)) - 1, 1}) {
            if (size < 0 || size >= entry.smallestSize) continue;
            auto block = std::make_unique<uint8_t[]>(size_t(size) + 1);   // +1: never a zero-sized array
            std::memset(block.get(), 0xA5, size_t(size));
            if (size >= int32_t(sizeof(PluginInfoRec))) {
                const PluginInfoRec info = host.Info();
                std::memcpy(block.get(), &info, sizeof(info));
            }
            std::vector<uint8_t> before(block.get(), block.get() + size);
            EXPECT_EQ(Main(entry.command, size, block.get()), kIncompatibleRecord) << size;
            EXPECT_TRUE(std::equal(before.begin(), before.end(), block.get())) << "block written";
        }
        EXPECT_EQ(Main(entry.command, entry.smallestSize, nullptr), kIncompatibleRecord);
    }
    EXPECT_EQ(Main(MakeIFF("RNDR"), 0, nullptr), kUnsupportedCommand);
    EXPECT_TRUE(host.calls.empty());
}

TEST_F(PluginTest, SetupTakesTheFrameIn) {
    Fake().layoutBytes = 16;   // a settled record: only the new layout asks for memory
    ASSERT_EQ(Init(), kNoError);
    PluginFlareSetupRec setup{};
    setup.theFrameRect = L_Rect{10, 20, 110, 220, 0, 0};
    setup.theFrameXScale = 100.0;
    setup.theFrameYScale = 90.0;
    setup.theFrameXCenter = 120.0;
    setup.theFrameYCenter = 60.0;
    setup.theLightFramePosition = DCoordinate{33.25, 44.5, 9.0};
    setup.theLightColor = ARGB{1, 2, 3, 4};
    setup.theLightIntensity = 0.75;
    setup.theLightFrameRadius = 12.0;
    host.ClearLog();
    ASSERT_EQ(host.Send(kCmdSetup, setup), kNoError);
    const PluginDataRec& d = data();
    const L_Rect& r = d.flareRect;
    EXPECT_EQ(std::tie(r.left, r.top, r.right, r.bottom, r.width, r.height),
              std::make_tuple(20, 10, 220, 110, 200u, 100u));
    EXPECT_EQ(std::tie(d.flareXScale, d.flareYScale, d.flareXCenter, d.flareYCenter, d.flareXPosition, d.flareYPosition,
                       d.flareLightIntensity, d.flareLightSize),
              std::make_tuple(100.0f, 90.0f, 120.0f, 60.0f, 33.25f, 44.5f, 0.75f, 0.0f));   // light size: flag 22 off
    EXPECT_EQ(std::tie(d.flareLightColor.a, d.flareLightColor.r, d.flareLightColor.g, d.flareLightColor.b),
              std::make_tuple(1, 2, 3, 4));
    EXPECT_EQ(d.flarePixelBuffer.bufferBase, nullptr);
    EXPECT_EQ(d.flarePixelBuffer.bufferRect.right, 220);
    EXPECT_EQ(Fake().layouts, 2);   // laid out again for this frame
    EXPECT_EQ(host.Selectors(), Seq({kHostFree, kHostAllocate, kHostAllocate}));
}

TEST_F(PluginTest, GlowFollowsTheLightSizeWhenAsked) {
    Fake().ringCount = 2;            // element types 1 and 2, outer radius 0.1
    ASSERT_EQ(Init(), kNoError);
    control().flareFlags |= kFlagFollowLightSize;
    PluginFlareSetupRec setup{};
    setup.theFrameXScale = setup.theFrameYScale = 400.0;   // the type-1 glow: 40 pixels
    setup.theLightFrameRadius = 20.0;
    ASSERT_EQ(host.Send(kCmdSetup, setup), kNoError);
    EXPECT_FLOAT_EQ(data().flareLightSize, 0.5f);
    setup.theLightFrameRadius = HUGE_VAL;
    ASSERT_EQ(host.Send(kCmdSetup, setup), kNoError);
    EXPECT_EQ(data().flareLightSize, 0.0f);

    TestHost noGlow;               // no type-1 element: the size stays 0, never infinite
    ResetFake();
    PluginInitializeRec init{};
    ASSERT_EQ(noGlow.Send(kCmdInitialize, init), kNoError);
    reinterpret_cast<ControlDataRec*>(noGlow.control())->flareFlags |= kFlagFollowLightSize;
    setup.theLightFrameRadius = 20.0;
    ASSERT_EQ(noGlow.Send(kCmdSetup, setup), kNoError);
    EXPECT_EQ(reinterpret_cast<PluginDataRec*>(noGlow.plugin())->flareLightSize, 0.0f);
}

TEST_F(PluginTest, GenerateChecksDepthBeforeTouchingTheRecords) {
    PluginFlareGenerateRec block{};
    block.theFlareBuffer.bufferDepth = 16;
    EXPECT_EQ(host.Send(kCmdGenerate, block), kUnsupportedFeature);
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(host.controlSize(), 0);
    for (int16_t depth : {int16_t(8), int16_t(32), int16_t(48)}) {
        block.theFlareBuffer.bufferDepth = depth;
        EXPECT_EQ(host.Send(kCmdGenerate, block), kNoError);
    }
    EXPECT_EQ(host.controlSize(), int32_t(sizeof(ControlDataRec)));
}

TEST_F(PluginTest, InterfaceNeedsAFullSettingsRecord) {
    fake_host::Reset();
    fake_host::DefineDialog(16001);
    PluginInterfaceRec block{};
    EXPECT_EQ(host.Send(kCmdInterface, block), kIncompatibleRecord);   // no settings record at all
    host.SetControlSize(int32_t(sizeof(ControlDataRec)) - 8);
    EXPECT_EQ(host.Send(kCmdInterface, block), kIncompatibleRecord);
    EXPECT_EQ(fake_host::Log().dialogsMade, 0);
    ASSERT_EQ(Init(), kNoError);
    EXPECT_EQ(host.Send(kCmdInterface, block), kNoError);
    EXPECT_EQ(fake_host::Log().dialogsMade, 1);
    EXPECT_EQ(fake_host::Log().dialogsDestroyed, 1);
}

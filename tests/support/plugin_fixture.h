// Fixture for tests that drive the plug-in through Main: a fresh recording host, the flare-table
// and layout stand-ins reset, and helpers that build real command blocks.
#ifndef VELLUX_TESTS_PLUGIN_FIXTURE_H
#define VELLUX_TESTS_PLUGIN_FIXTURE_H

#include <gtest/gtest.h>

#include <vector>

#include "plugin/plugin_data.h"
#include "support/fake_flare_seams.h"
#include "support/test_host.h"

class PluginTest : public ::testing::Test {
protected:
    void SetUp() override { ResetFake(); }

    int32_t Init() {
        PluginInitializeRec block{};
        return host.Send(kCmdInitialize, block);
    }
    int32_t InitChannels() {
        PluginInitializeChannelRec block{};
        return host.Send(kCmdInitializeChannel, block);
    }
    int32_t UpdateChannels(int32_t first, int32_t last) {
        PluginUpdateChannelRec block{};
        block.theStartFrame = first;
        block.theEndFrame = last;
        return host.Send(kCmdUpdateChannel, block);
    }
    int32_t LoadChannels(int32_t frame) {
        PluginLoadChannelRec block{};
        block.theFrame = frame;
        return host.Send(kCmdLoadChannel, block);
    }
    // A command that does nothing but validate the records.
    int32_t Validate() {
        PluginFlareGenerateRec block{};
        block.theFlareBuffer.bufferDepth = 48;
        return host.Send(kCmdGenerate, block);
    }
    ControlDataRec& control() { return *reinterpret_cast<ControlDataRec*>(host.control()); }
    PluginDataRec& data() { return *reinterpret_cast<PluginDataRec*>(host.plugin()); }

    TestHost host;
};

// Selector lists read naturally in assertions: Seq({kHostFree, kHostAllocate}).
inline std::vector<IFFType> Seq(std::initializer_list<IFFType> selectors) { return selectors; }

#endif  // VELLUX_TESTS_PLUGIN_FIXTURE_H

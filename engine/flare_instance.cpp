#include "engine/flare_instance.h"

#include <algorithm>

#include "engine/frame_bands.h"

namespace vellux::engine {

namespace {

Matrix4 Identity() {
    Matrix4 m{};
    m.m00 = m.m11 = m.m22 = m.m33 = 1.0;
    return m;
}

L_Rect Rect(int32_t left, int32_t top, int32_t right, int32_t bottom) {
    return {top, left, bottom, right, uint32_t(right - left), uint32_t(bottom - top)};
}

// The plug-in's texts are plain ASCII; anything else is shown as '?'.
std::string Text(const PStr255& pstr) {
    std::string text;
    for (int i = 1; i <= pstr[0]; ++i) text += pstr[i] < 0x80 ? char(pstr[i]) : '?';
    return text;
}

}  // namespace

std::vector<Band> SplitIntoBands(int32_t height, int32_t bandRows) {
    if (bandRows <= 0) bandRows = height;
    std::vector<Band> bands;
    for (int32_t top = 0; top < height; top += std::min(bandRows, height - top))
        bands.push_back({top, top + std::min(bandRows, height - top)});
    return bands;
}

PluginFlareSetupRec MakeFrameSetup(int32_t width, int32_t height, const FlareLight& light) {
    // Fields one by one: the record is packed, and a chained assignment would bind a reference
    // to a misaligned member.
    PluginFlareSetupRec setup{};
    const double scale = double(std::min(width, height));
    const Matrix4 identity = Identity();
    const DCoordinate position{light.x, light.y, 0.0};
    setup.theFrameRect = Rect(0, 0, width, height);
    setup.theFrameXScale = scale / light.pixelAspect;   // wide pixels: fewer of them per flare unit across
    setup.theFrameYScale = scale;
    setup.theFrameXCenter = width / 2.0;
    setup.theFrameYCenter = height / 2.0;
    setup.theCameraMatrix = identity;
    setup.theCameraRotMatrix = identity;
    setup.theCameraBlurMatrix = identity;
    setup.theLightMatrix = identity;
    setup.theLightRotMatrix = identity;
    setup.theLightBlurMatrix = identity;
    setup.theLightFramePosition = position;
    setup.theLightBlurFramePosition = position;
    setup.theLightColor = ARGB{255, light.color.red, light.color.green, light.color.blue};
    setup.theLightIntensity = light.intensity;
    setup.theLightFrameRadius = light.radius;
    setup.theCameraZoom = 1.0;
    setup.theCameraXScale = 1.0;
    setup.theCameraYScale = 1.0;
    return setup;
}

PluginInstance::PluginInstance(const host::PluginLibrary& plugin, host::HostSession& host)
    : plugin_(plugin), host_(host) {
    PluginInitializeRec init{};
    const int32_t result = Send(kCmdInitialize, init);
    if (result != kNoError) {
        const PluginError error = Failure(kCmdInitialize, result);   // described before FINI
        PluginFinishRec finish{};
        Send(kCmdFinish, finish);
        throw error;
    }
    open_ = true;
}

PluginInstance::~PluginInstance() {
    if (!open_) return;
    PluginFinishRec finish{};
    Send(kCmdFinish, finish);
}

template <typename Block>
int32_t PluginInstance::Send(IFFType command, Block& block) {
    block.theInfo = host_.Info();
    const host::ActiveSessionScope active(host_);   // the services answer for this instance
    return plugin_.Call(command, int32_t(sizeof(block)), &block);
}

void PluginInstance::Check(IFFType command, int32_t result) {
    if (result != kNoError) throw Failure(command, result);
}

PluginError PluginInstance::Failure(IFFType command, int32_t result) {
    PluginDescribeRec describe{};
    describe.theResult = result;
    const bool described = Send(kCmdDescribe, describe) == kNoError && describe.theDescription[0] > 0;
    const std::string text = described ? Text(describe.theDescription) : "result " + std::to_string(result);
    return PluginError(plugin_.path() + ": " + host::CodeText(command) + ": " + text + " (" + std::to_string(result) + ")",
                       result);
}

void PluginInstance::EditSettings(const SettingEdits& edits) {
    std::vector<uint8_t> control = host_.controlData();
    ApplySettingEdits(edits, control);
    host_.SetControlData(std::move(control));
}

namespace {
template <typename Block>
Block ChannelBlock(int32_t first, int32_t last) {
    Block block{};
    block.theStartFrame = first;
    block.theEndFrame = last;
    return block;
}
}  // namespace

void PluginInstance::InitializeChannels(int32_t first, int32_t last) {
    auto block = ChannelBlock<PluginInitializeChannelRec>(first, last);
    Check(kCmdInitializeChannel, Send(kCmdInitializeChannel, block));
}

void PluginInstance::UpdateChannels(int32_t first, int32_t last) {
    auto block = ChannelBlock<PluginUpdateChannelRec>(first, last);
    Check(kCmdUpdateChannel, Send(kCmdUpdateChannel, block));
}

void PluginInstance::LoadChannels(int32_t first, int32_t last, int32_t frame) {
    auto block = ChannelBlock<PluginLoadChannelRec>(first, last);
    block.theFrame = frame;
    Check(kCmdLoadChannel, Send(kCmdLoadChannel, block));
}

void PluginInstance::FinishChannels() {
    PluginFinishChannelRec block{};
    Check(kCmdFinishChannel, Send(kCmdFinishChannel, block));
}

int32_t PluginInstance::Interface() {
    PluginInterfaceRec block{};
    return Send(kCmdInterface, block);
}

void PluginInstance::Setup(PluginFlareSetupRec setup) { Check(kCmdSetup, Send(kCmdSetup, setup)); }

void PluginInstance::Generate(const PixelView& pixels, Band band) {
    PluginFlareGenerateRec generate{};
    FlareBuffer& buffer = generate.theFlareBuffer;
    buffer.bufferBase = pixels.base + ptrdiff_t(band.top) * pixels.rowBytes;
    buffer.bufferRowBytes = pixels.rowBytes;
    buffer.bufferRect = Rect(0, band.top, pixels.width, band.bottom);
    buffer.bufferDepth = pixels.depth;
    Check(kCmdGenerate, Send(kCmdGenerate, generate));
}

void PluginInstance::Finish() {
    open_ = false;
    PluginFinishRec finish{};
    Check(kCmdFinish, Send(kCmdFinish, finish));
}

void RenderFrame(PluginInstance& instance, const FlareLight& light, PluginPixels& pixels, int32_t bandRows) {
    RenderFrame(instance, light, pixels.View(), bandRows);
}

void RenderFrame(PluginInstance& instance, const FlareLight& light, const PixelView& pixels, int32_t bandRows) {
    host::HostSession& host = instance.host();
    PaintFrameBands({{&instance, &host}}, light, pixels, {0, pixels.height}, bandRows, host.progressSink(),
                    host.interruptFlag());
}

}  // namespace vellux::engine

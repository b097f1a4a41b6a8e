// The exported entry and the administrative commands.
#include <cstring>

#include "commands.h"
#include "globals.h"
#include "kit/dialog_items.h"
#include "kit/plugin_client.h"
#include "kit/pstring.h"
#include "plugin_data.h"

const CommandEntry kCommandTable[] = {
    {kCmdCheck, DoCheck, int32_t(sizeof(PluginCheckRec))},
    {kCmdDescribe, DoDescribe, int32_t(sizeof(PluginDescribeRec))},
    {kCmdFinishChannel, DoFinishChannel, int32_t(sizeof(PluginFinishChannelRec))},
    {kCmdFinish, DoFinish, int32_t(sizeof(PluginFinishRec))},
    {kCmdGenerate, DoGenerate, int32_t(sizeof(PluginFlareGenerateRec))},
    {kCmdInitializeChannel, DoInitializeChannel, int32_t(sizeof(PluginInitializeChannelRec))},
    {kCmdInformation, DoInformation, int32_t(sizeof(PluginInformationRec))},
    {kCmdInitialize, DoInitialize, int32_t(sizeof(PluginInitializeRec))},
    {kCmdInterface, DoInterface, int32_t(sizeof(PluginInterfaceRec))},
    {kCmdLoadChannel, DoLoadChannel, int32_t(sizeof(PluginLoadChannelRec))},
    {kCmdSetup, DoSetup, int32_t(sizeof(PluginFlareSetupRec))},
    {kCmdUpdateChannel, DoUpdateChannel, int32_t(sizeof(PluginUpdateChannelRec))},
};
const int32_t kCommandCount = int32_t(sizeof(kCommandTable) / sizeof(kCommandTable[0]));

const CommandEntry* FindCommand(IFFType command) {
    for (const CommandEntry& entry : kCommandTable)
        if (entry.command == command) return &entry;
    return nullptr;
}

// The plug-in's only exported symbol. The header is taken over before any handler looks at the
// block; a block too short to hold a header (or none at all) is never read: the record statics
// are cleared instead, and every handler then answers the short block with its own result.
extern "C" __attribute__((visibility("default"))) int32_t Main(IFFType command, int32_t theCommandRecSize,
                                                              void* theCommandRec) {
    InitGlobals(false);
    if (theCommandRec == nullptr) theCommandRecSize = 0;
    const bool hasHeader = theCommandRecSize >= int32_t(sizeof(PluginInfoRec));
    PluginInfoRec header{};
    if (hasHeader) std::memcpy(&header, theCommandRec, sizeof(header));
    TakeHeader(hasHeader ? &header : nullptr);
    const CommandEntry* entry = FindCommand(command);
    const int32_t result = entry != nullptr ? entry->handler(theCommandRecSize, theCommandRec) : kUnsupportedCommand;
    CloseTheResource();
    return result;
}

int32_t DoInitialize(int32_t theSize, void*) {
    InitGlobals(true);
    if (theSize < int32_t(sizeof(PluginInitializeRec)) || sTheHostProc == nullptr) return kIncompatibleRecord;
    return CheckData(false, true);
}

int32_t DoFinish(int32_t theSize, void*) {
    FinishUtils();
    if (theSize < int32_t(sizeof(PluginFinishRec)) || sTheHostProc == nullptr) return kIncompatibleRecord;
    return kNoError;
}

namespace {
// Text of the information record, in the host's character set: 0xAA is the trade-mark sign and
// 0xA9 the copyright sign.
constexpr const char* kPluginName = "Corvane\xAA Vellux";
constexpr const char* kPluginCopyright = "Copyright \xA9 2026 Corvane. All rights reserved.";
constexpr const char* kPluginAuthor = "Corvane|The Vellux team|Support through the Vellux issue tracker";
constexpr const char* kPluginDescription =
    "This light effects plugin can simulate lens flares.  It is table driven and can create many different "
    "effects.";
}  // namespace

int32_t DoInformation(int32_t theSize, void* theRec) {
    if (theSize < int32_t(sizeof(PluginInformationRec))) return kIncompatibleRecord;
    auto* info = static_cast<PluginInformationRec*>(theRec);
    info->thePluginType = kVelluxOwner;
    info->thePluginVersion = kVelluxVersion;
    CopyStr(info->thePluginName, kPluginName);
    CopyStr(info->thePluginCopyright, kPluginCopyright);
    CopyStr(info->thePluginAuthor, kPluginAuthor);
    CopyStr(info->thePluginDescription, kPluginDescription);
    info->thePluginPermission = 0;
    return kNoError;
}

int32_t DoCheck(int32_t theSize, void* theRec) {
    if (theSize < int32_t(sizeof(PluginCheckRec))) return kIncompatibleRecord;
    return FindCommand(static_cast<PluginCheckRec*>(theRec)->theCommand) != nullptr ? kNoError : kIncompatibleRecord;
}

int32_t DoDescribe(int32_t theSize, void* theRec) {
    if (theSize < int32_t(sizeof(PluginDescribeRec))) return kIncompatibleRecord;
    auto* describe = static_cast<PluginDescribeRec*>(theRec);
    DescribePluginError(describe->theResult, describe->theDescription);
    return kNoError;
}

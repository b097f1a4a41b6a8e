// INTF: the settings dialog. The records are checked and the dialog resource is asked for; the
// dialog itself, with its preview, is not built yet, so a dialog the host does make is disposed
// of at once and the command ends as when the host has none.
#include "commands.h"
#include "flare_table.h"
#include "globals.h"
#include "kit/host_services.h"
#include "plugin_data.h"

namespace {
constexpr int kSettingsDialogID = 16001;
}  // namespace

int32_t DoInterface(int32_t theSize, void*) {
    int32_t result = kNoError;
    if (theSize < int32_t(sizeof(PluginInterfaceRec)) || sTheControlData == nullptr ||
        sTheControlDataSize < int32_t(sizeof(ControlDataRec)))
        result = kIncompatibleRecord;
    else
        result = CheckData(false, false);
    if (result == kNoError) OpenTheResource(&result);
    if (result != kNoError) return result;
    KV_Dialog* dialog = KV_MakeDialog(resourceFile, kSettingsDialogID);
    if (dialog != nullptr) KV_DestroyDialog(dialog);
    return result;
}

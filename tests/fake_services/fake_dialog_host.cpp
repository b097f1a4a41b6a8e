// The fake dialog host. See fake_dialog_host.h.
//
// The services are defined here as a host defines them: extern "C" under their plain names, so
// the kit's lookups by name find them. This file must not include kit/host_services.h, whose
// C++ declarations of the same names would clash.
#include "fake_dialog_host.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#define FAKE_SERVICE extern "C" __attribute__((visibility("default")))

namespace fake_host {
namespace {

struct DirectoryRef {
    KV_DirectoryRef handle{};
    bool live = true;
};

struct FileRef {
    KV_FileRef handle{};
    bool live = true;
};

struct State {
    std::deque<Dialog> dialogs;             // made ones; deque keeps addresses stable
    std::map<int, Dialog> templates;
    std::deque<DirectoryRef> directories;
    std::deque<FileRef> files;
    KV_ResourceFile resourceFile{};
    std::map<std::pair<uint32_t, int>, std::vector<uint8_t>> resources;
    int liveResourceCopies = 0;
    int executeResult = 1;
    bool resourceFileAvailable = true;
    HostLog log;
};

State& S() {
    static State state;
    return state;
}

Dialog* FindDialog(const KV_Dialog* handle) {
    for (Dialog& d : S().dialogs) {
        if (&d.handle == handle && !d.destroyed) return &d;
    }
    if (handle != nullptr) ++S().log.strayCalls;
    return nullptr;
}

Control* FindControl(const KV_Control* handle, Dialog** owner = nullptr) {
    for (Dialog& d : S().dialogs) {
        if (d.destroyed) continue;
        for (Control& c : d.controls) {
            if (&c.handle != handle) continue;
            if (owner != nullptr) *owner = &d;
            return &c;
        }
    }
    ++S().log.strayCalls;
    return nullptr;
}

// The host's side of the text convention: at most capacity - 1 characters and a NUL.
void WriteText(const std::string& text, char* oText, int* ioNumChars) {
    if (oText == nullptr || ioNumChars == nullptr) {
        ++S().log.strayCalls;
        return;
    }
    if (*ioNumChars <= 0) {
        *ioNumChars = 0;
        return;
    }
    int n = std::min(static_cast<int>(text.size()), *ioNumChars - 1);
    std::memcpy(oText, text.data(), static_cast<size_t>(n));
    oText[n] = 0;
    *ioNumChars = n;
}

}  // namespace

// ---- Test API ----

void Reset() { S() = State{}; }

Dialog& NewDialog() {
    return S().dialogs.emplace_back();
}

Dialog& DefineDialog(int dialogID) {
    Dialog& d = S().templates[dialogID];
    d.dialogID = dialogID;
    return d;
}

Control& AddControl(Dialog& dialog, int id, KV_ControlType type) {
    Control& c = dialog.controls.emplace_back();
    c.id = id;
    c.type = type;
    return c;
}

void SetExecuteResult(int result) { S().executeResult = result; }
void AddResource(uint32_t type, int id, std::vector<uint8_t> bytes) { S().resources[{type, id}] = std::move(bytes); }
void RemoveResources() { S().resources.clear(); }
int LiveResourceCopies() { return S().liveResourceCopies; }
void SetResourceFileAvailable(bool available) { S().resourceFileAvailable = available; }
KV_ResourceFile* TheResourceFile() { return &S().resourceFile; }
const HostLog& Log() { return S().log; }

}  // namespace fake_host

using fake_host::Control;
using fake_host::Dialog;
using fake_host::FindControl;
using fake_host::FindDialog;
using fake_host::S;

// ---- Controls ----

FAKE_SERVICE KV_Control* KV_FindControlByID(const KV_Dialog* iDialog, int iControlID) {
    Dialog* d = FindDialog(iDialog);
    if (d == nullptr) return nullptr;
    for (Control& c : d->controls) {
        if (c.id == iControlID) return &c.handle;
    }
    return nullptr;
}

FAKE_SERVICE KV_Control* KV_FindControlByIndex(const KV_Dialog* iDialog, int iIndex) {
    Dialog* d = FindDialog(iDialog);
    if (d == nullptr || iIndex < 0 || iIndex >= static_cast<int>(d->controls.size())) return nullptr;
    return &d->controls[static_cast<size_t>(iIndex)].handle;
}

FAKE_SERVICE int KV_CountControls(const KV_Dialog* iDialog) {
    Dialog* d = FindDialog(iDialog);
    return d != nullptr ? static_cast<int>(d->controls.size()) : 0;
}

FAKE_SERVICE KV_ControlType KV_GetControlType(const KV_Control* iControl) {
    Control* c = FindControl(iControl);
    return c != nullptr ? c->type : cKV_NoControlType;
}

FAKE_SERVICE int KV_GetControlValue(const KV_Control* iControl) {
    Control* c = FindControl(iControl);
    return c != nullptr ? c->value : 0;
}

FAKE_SERVICE void KV_SetControlValue(KV_Control* ioControl, int iNewValue) {
    if (Control* c = FindControl(ioControl)) c->value = iNewValue;
}

FAKE_SERVICE void KV_SetKeyControl(KV_Control* iControl) {
    Dialog* owner = nullptr;
    if (Control* c = FindControl(iControl, &owner)) owner->keyControl = c;
}

FAKE_SERVICE KV_Control* KV_GetKeyControl(const KV_Dialog* iDialog) {
    Dialog* d = FindDialog(iDialog);
    return d != nullptr && d->keyControl != nullptr ? &d->keyControl->handle : nullptr;
}

FAKE_SERVICE void KV_SetControlVisible(KV_Control* ioControl, int iVisible) {
    if (Control* c = FindControl(ioControl)) c->visible = iVisible;
}

FAKE_SERVICE void KV_SetControlTitle(KV_Control* ioControl, const char* iTitle) {
    if (Control* c = FindControl(ioControl)) c->title = iTitle != nullptr ? iTitle : "";
}

FAKE_SERVICE int KV_GetControlTitleSize(const KV_Control* iControl) {
    Control* c = FindControl(iControl);
    return c != nullptr ? static_cast<int>(c->title.size()) : 0;
}

FAKE_SERVICE void KV_GetControlTitle(const KV_Control* iControl, char* oTitle, int* ioNumChars) {
    if (Control* c = FindControl(iControl)) fake_host::WriteText(c->title, oTitle, ioNumChars);
}

FAKE_SERVICE void KV_GetControlBounds(const KV_Control* iControl, KV_Rect* oBounds) {
    Control* c = FindControl(iControl);
    if (c == nullptr) return;
    if (oBounds == nullptr) {
        ++S().log.strayCalls;
        return;
    }
    *oBounds = c->bounds;
}

FAKE_SERVICE void KV_SetControlBounds(KV_Control* ioControl, const KV_Rect* iBounds) {
    Control* c = FindControl(ioControl);
    if (c == nullptr) return;
    if (iBounds == nullptr) {
        ++S().log.strayCalls;
        return;
    }
    c->bounds = *iBounds;
}

// ---- Edit text ----

FAKE_SERVICE void KV_SetEditTextString(KV_Control* ioControl, const char* iEditString) {
    if (Control* c = FindControl(ioControl)) c->text = iEditString != nullptr ? iEditString : "";
}

FAKE_SERVICE int KV_GetEditTextStringSize(const KV_Control* iControl) {
    Control* c = FindControl(iControl);
    return c != nullptr ? static_cast<int>(c->text.size()) : 0;
}

FAKE_SERVICE void KV_GetEditTextString(const KV_Control* iControl, char* oText, int* ioNumChars) {
    if (Control* c = FindControl(iControl)) fake_host::WriteText(c->text, oText, ioNumChars);
}

FAKE_SERVICE void KV_SetEditTextSelection(KV_Control* ioControl, int iSelectionStart, int iSelectionEnd) {
    if (Control* c = FindControl(ioControl)) {
        c->selectionStart = iSelectionStart;
        c->selectionEnd = iSelectionEnd;
    }
}

FAKE_SERVICE void KV_GetEditTextSelection(const KV_Control* iControl, int* oSelectionStart,
                                          int* oSelectionEnd) {
    Control* c = FindControl(iControl);
    if (c == nullptr) return;
    if (oSelectionStart != nullptr) *oSelectionStart = c->selectionStart;
    if (oSelectionEnd != nullptr) *oSelectionEnd = c->selectionEnd;
}

// ---- Colour buttons ----

FAKE_SERVICE void KV_GetColorButtonColor(const KV_Control* iControl, int* oRed, int* oGreen,
                                         int* oBlue, int* oAlpha) {
    Control* c = FindControl(iControl);
    if (c == nullptr) return;
    if (oRed != nullptr) *oRed = c->red;
    if (oGreen != nullptr) *oGreen = c->green;
    if (oBlue != nullptr) *oBlue = c->blue;
    if (oAlpha != nullptr) *oAlpha = c->alpha;
}

FAKE_SERVICE void KV_SetColorButtonColor(KV_Control* ioControl, int iRed, int iGreen, int iBlue,
                                         int iAlpha) {
    if (Control* c = FindControl(ioControl)) {
        c->red = iRed;
        c->green = iGreen;
        c->blue = iBlue;
        c->alpha = iAlpha;
    }
}

// ---- Control callbacks ----

FAKE_SERVICE void KV_SetControlHitFunction(KV_Control* ioControl, KV_ControlHitFunction iFunction) {
    if (Control* c = FindControl(ioControl)) c->hit = iFunction;
}

FAKE_SERVICE void KV_SetUserControlDraw(KV_Control* ioControl, KV_UserDrawFunction iFunction) {
    if (Control* c = FindControl(ioControl)) c->draw = iFunction;
}

FAKE_SERVICE void KV_SetUserControlClick(KV_Control* ioControl, KV_UserClickFunction iFunction) {
    if (Control* c = FindControl(ioControl)) c->click = iFunction;
}

// ---- Dialogs ----

FAKE_SERVICE KV_Dialog* KV_MakeDialog(KV_ResourceFile* iResourceFile, int iDialogID) {
    auto found = S().templates.find(iDialogID);
    if (found == S().templates.end()) return nullptr;
    Dialog& d = S().dialogs.emplace_back(found->second);
    d.resourceFile = iResourceFile;
    d.keyControl = nullptr;
    d.destroyed = false;
    ++S().log.dialogsMade;
    return &d.handle;
}

FAKE_SERVICE int KV_ExecuteDialog(KV_Dialog* iDialog) {
    Dialog* d = FindDialog(iDialog);
    if (d == nullptr) return 0;
    fake_host::ExecutedDialog run;
    run.dialogID = d->dialogID;
    for (const Control& c : d->controls) {
        if (c.type == cKV_StaticText) run.staticTexts.push_back(c.title);
    }
    S().log.executed.push_back(run);
    ++S().log.dialogsExecuted;
    return S().executeResult;
}

FAKE_SERVICE void KV_DestroyDialog(KV_Dialog* iDialog) {
    if (Dialog* d = FindDialog(iDialog)) {
        d->destroyed = true;
        ++S().log.dialogsDestroyed;
    }
}

// ---- Directories, files and resource files ----

FAKE_SERVICE KV_DirectoryRef* KV_GetHomeDirectory() {
    ++S().log.liveDirectoryRefs;
    return &S().directories.emplace_back().handle;
}

FAKE_SERVICE void KV_DestroyDirectoryRef(KV_DirectoryRef* iDirectoryRef) {
    for (fake_host::DirectoryRef& r : S().directories) {
        if (&r.handle == iDirectoryRef && r.live) {
            r.live = false;
            --S().log.liveDirectoryRefs;
            return;
        }
    }
    ++S().log.strayCalls;
}

FAKE_SERVICE KV_FileRef* KV_MakeFileRef(const KV_DirectoryRef* iDirectoryRef, const char* iNameString,
                                        uint32_t iFileType, const char* iExtensionString) {
    bool known = false;
    for (const fake_host::DirectoryRef& r : S().directories) known = known || (&r.handle == iDirectoryRef && r.live);
    if (!known || iNameString == nullptr) {
        ++S().log.strayCalls;
        return nullptr;
    }
    S().log.fileName = iNameString;
    S().log.fileType = iFileType;
    S().log.fileExtension = iExtensionString != nullptr ? iExtensionString : "";
    ++S().log.liveFileRefs;
    return &S().files.emplace_back().handle;
}

FAKE_SERVICE void KV_DestroyFileRef(KV_FileRef* iFileRef) {
    for (fake_host::FileRef& r : S().files) {
        if (&r.handle == iFileRef && r.live) {
            r.live = false;
            --S().log.liveFileRefs;
            return;
        }
    }
    ++S().log.strayCalls;
}

FAKE_SERVICE KV_ResourceFile* KV_OpenResourceFile(const KV_FileRef* iFileRef) {
    bool known = false;
    for (const fake_host::FileRef& r : S().files) known = known || (&r.handle == iFileRef && r.live);
    if (!known) {
        ++S().log.strayCalls;
        return nullptr;
    }
    if (!S().resourceFileAvailable) return nullptr;
    ++S().log.resourceFilesOpened;
    return &S().resourceFile;
}

FAKE_SERVICE void KV_CloseResourceFile(KV_ResourceFile* iResourceFile) {
    if (iResourceFile == &S().resourceFile) {
        ++S().log.resourceFilesClosed;
    } else {
        ++S().log.strayCalls;
    }
}

// Each request gets a private copy, as the plug-in converts the bytes in place.
FAKE_SERVICE void* KV_GetResource(KV_ResourceFile* iResourceFile, uint32_t iResourceType, int iResourceID,
                                  int32_t* oResourceSize) {
    if (oResourceSize != nullptr) *oResourceSize = 0;
    if (iResourceFile != &S().resourceFile || oResourceSize == nullptr) {
        ++S().log.strayCalls;
        return nullptr;
    }
    auto found = S().resources.find({iResourceType, iResourceID});
    if (found == S().resources.end()) return nullptr;
    const std::vector<uint8_t>& bytes = found->second;
    void* copy = std::malloc(bytes.empty() ? 1 : bytes.size());
    if (!bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
    *oResourceSize = static_cast<int32_t>(bytes.size());
    ++S().liveResourceCopies;
    return copy;
}

FAKE_SERVICE void KV_ReleaseResource(void* iResource) {
    if (iResource == nullptr) {
        ++S().log.strayCalls;
        return;
    }
    std::free(iResource);
    --S().liveResourceCopies;
}

// A fake dialog host for tests: exports the KV_ services that the dialog item helpers call, as a
// real host would (extern "C", found by name through the kit's lookups), and keeps every dialog
// and control in plain records that tests build and inspect directly.
//
// Usage: Reset() in each test's set-up; build a dialog with NewDialog() (already made, for the
// helpers that take a dialog) or DefineDialog(id) (a template that KV_MakeDialog copies, for the
// message dialogs); add controls and set their fields; call the helpers; read the fields and
// Log() back. References returned here stay valid until the next Reset().
//
// Handles the fake does not know (null, or of a destroyed dialog) and null buffers or rectangles
// are ignored by every service and counted in Log().strayCalls, so a helper that calls the host
// with an absent control or a null pointer shows.
#ifndef VELLUX_TESTS_FAKE_DIALOG_HOST_H
#define VELLUX_TESTS_FAKE_DIALOG_HOST_H

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "kit/host_service_types.h"

#define FAKE_HOST_API __attribute__((visibility("default")))

namespace fake_host {

struct Control {
    KV_Control handle{};                    // the address the services hand out
    int id = 0;
    KV_ControlType type = cKV_NoControlType;
    int value = 0;
    std::string text;                       // edit text
    std::string title;
    int selectionStart = -1;                // -1: never set
    int selectionEnd = -1;
    int red = 0, green = 0, blue = 0, alpha = 0;
    KV_Rect bounds{};
    int visible = 1;
    KV_ControlHitFunction hit = nullptr;
    KV_UserDrawFunction draw = nullptr;
    KV_UserClickFunction click = nullptr;
};

struct Dialog {
    KV_Dialog handle{};                     // the address the services hand out
    int dialogID = 0;
    KV_ResourceFile* resourceFile = nullptr;  // what KV_MakeDialog was given
    std::deque<Control> controls;           // in index order
    Control* keyControl = nullptr;
    bool destroyed = false;
};

struct ExecutedDialog {
    int dialogID = 0;
    std::vector<std::string> staticTexts;   // titles of its static texts while it ran
};

struct HostLog {
    int dialogsMade = 0;
    int dialogsExecuted = 0;
    int dialogsDestroyed = 0;
    std::vector<ExecutedDialog> executed;
    int strayCalls = 0;                     // calls with an unknown handle or a null pointer
    int liveDirectoryRefs = 0;              // made and not yet destroyed
    int liveFileRefs = 0;
    int resourceFilesOpened = 0;
    int resourceFilesClosed = 0;
    std::string fileName;                   // last KV_MakeFileRef request
    uint32_t fileType = 0;
    std::string fileExtension;
};

FAKE_HOST_API void Reset();                                  // forget everything, defaults back
FAKE_HOST_API Dialog& NewDialog();                           // a live dialog (not counted as made)
FAKE_HOST_API Dialog& DefineDialog(int dialogID);            // template KV_MakeDialog copies
FAKE_HOST_API Control& AddControl(Dialog& dialog, int id, KV_ControlType type);
FAKE_HOST_API void SetExecuteResult(int result);             // KV_ExecuteDialog's answer (1)
FAKE_HOST_API void SetResourceFileAvailable(bool available); // KV_OpenResourceFile (true)
FAKE_HOST_API KV_ResourceFile* TheResourceFile();            // the one file the fake opens
FAKE_HOST_API const HostLog& Log();

// Resources of the one resource file: KV_GetResource hands out a malloc'd copy of the bytes.
FAKE_HOST_API void AddResource(uint32_t type, int id, std::vector<uint8_t> bytes);
FAKE_HOST_API void RemoveResources();
FAKE_HOST_API int LiveResourceCopies();                       // copies not yet released

}  // namespace fake_host

#endif  // VELLUX_TESTS_FAKE_DIALOG_HOST_H

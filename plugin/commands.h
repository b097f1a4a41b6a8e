// The command handlers, each (block size, block) -> result code, dispatched by Main.
#ifndef VELLUX_PLUGIN_COMMANDS_H
#define VELLUX_PLUGIN_COMMANDS_H

#include <cstdint>

#include "channels.h"
#include "plugin_data.h"

int32_t DoInitialize(int32_t theSize, void* theRec);    // INIT: rebuild the working record
int32_t DoFinish(int32_t theSize, void* theRec);        // FINI
int32_t DoInformation(int32_t theSize, void* theRec);   // INFO: name, rights, author, description
int32_t DoCheck(int32_t theSize, void* theRec);         // CHEK: is a command supported?
int32_t DoDescribe(int32_t theSize, void* theRec);      // DESC: the text of a result code
int32_t DoSetup(int32_t theSize, void* theRec);         // SETF: the frame's camera and light
float CalcFlareScale(PluginDataRec* theData);           // pixel radius of the first white glow, or 0
int32_t DoGenerate(int32_t theSize, void* theRec);      // GENF: paint into the host's buffer
int32_t DoInterface(int32_t theSize, void* theRec);     // INTF: the settings dialog

// The dispatch table: command code, handler, smallest block accepted.
struct CommandEntry {
    IFFType command;
    int32_t (*handler)(int32_t theSize, void* theRec);
    int32_t smallestSize;
};
extern const CommandEntry kCommandTable[];
extern const int32_t kCommandCount;

const CommandEntry* FindCommand(IFFType command);       // null for an unknown code

#endif  // VELLUX_PLUGIN_COMMANDS_H

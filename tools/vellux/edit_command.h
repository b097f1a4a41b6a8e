// The "edit" command: the plug-in's settings dialog in a browser.
//
//   vellux edit [--scene S | --settings F] [-i PLATE [--blend B] [--colorspace C]] [--port N]
//               [--no-browser] [--plugin P] [--table T]
//
// Serves the dialog on 127.0.0.1 (host/web_dialog_runner.h), prints its address on one line
// ("Settings dialog: http://127.0.0.1:PORT/TOKEN/") and opens it in the desktop's browser when
// there is one (a display and xdg-open), then waits for OK or Cancel on the page. OK saves the
// edited settings into the scene or settings file (a settings file that does not exist yet is
// made), with the table picked on the page if one was; Cancel, or Ctrl-C in the terminal, saves
// nothing. The last line says which.
//
// The page lists every table `vellux tables` lists beside the dialog; with -i the preview shows
// the flare on that plate (engine/preview_plate.h).
//
// Exit codes: 0 after OK or Cancel, 130 after Ctrl-C, 1 for an error (the port is taken, the
// source or the plate cannot be read, the source cannot be written, the table is unknown, the
// plug-in fails), 2 for a wrong command line.
#ifndef VELLUX_TOOLS_EDIT_COMMAND_H
#define VELLUX_TOOLS_EDIT_COMMAND_H

#include <CLI/CLI.hpp>

#include "tools/vellux/command.h"

namespace vellux::tool {


void AddEditCommand(CLI::App& app, Action& action);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_EDIT_COMMAND_H

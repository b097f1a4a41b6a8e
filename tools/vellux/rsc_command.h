// The "rsc" command group: flare table files.
//
//   vellux rsc compile SOURCE.json... -o FILE.rsc
//                                                table sources, merged in order, to a resource file
//                                                (written atomically; nothing is written when a
//                                                source has an error)
//   vellux rsc dump FILE.rsc                     human-readable listing
//   vellux rsc dump --json FILE.rsc              table source that compiles to the same bytes
//
// Messages name the file they are about; I/O failures throw std::runtime_error with such a
// message.
#ifndef VELLUX_TOOLS_RSC_COMMAND_H
#define VELLUX_TOOLS_RSC_COMMAND_H

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/table_source.h"
#include "tools/vellux/command.h"

namespace vellux::tool {

void AddRscCommands(CLI::App& app, Action& action);

// The work of the subcommands; each returns the exit code.
int CompileTableFiles(const std::vector<std::filesystem::path>& sources, const std::filesystem::path& output,
                      std::ostream& messages);
int DumpTableFile(const std::filesystem::path& file, bool json, std::ostream& out);

// Reports a compilation's diagnostics (each under its source's name, or `sources` when it is about
// them all) and, when there are errors, that `output` was not written; returns the exit code.
int ReportCompilation(const CompiledTable& table, const std::string& sources, const std::filesystem::path& output,
                      std::ostream& messages);

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_RSC_COMMAND_H

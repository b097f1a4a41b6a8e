// How the vellux tool's commands plug into main: each command group adds its subcommands to the
// command line, and the one that parsing selects leaves its work in an Action. main runs it
// after parsing, turns any exception into one message and exit code 1 (130 after a Ctrl-C), and
// leaves usage errors to the command-line parser (exit code 2).
#ifndef VELLUX_TOOLS_COMMAND_H
#define VELLUX_TOOLS_COMMAND_H

#include <functional>

namespace vellux::engine {}
namespace vellux::rsc {}

namespace vellux::tool {

// The tool is a front end: the engine's and the resource compiler's names are used as they are.
using namespace vellux::engine;
using namespace vellux::rsc;

using Action = std::function<int()>;   // returns the process exit code

inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitInterrupted = 130;   // 128 + SIGINT, as a shell reports a Ctrl-C

}  // namespace vellux::tool

#endif  // VELLUX_TOOLS_COMMAND_H

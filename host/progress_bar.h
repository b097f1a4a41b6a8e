// A one-line progress bar for the plug-in's reports, redrawn in place:
//
//   Drawing Flare  [##############----------------]  47%  Scanline 338 of 720
//
// It draws only when enabled (a command-line tool enables it when stderr is a terminal and the
// user did not ask for quiet), redraws only when the line changes, and ends the line once when
// finished, so that what follows starts on a fresh line.
#ifndef VELLUX_HOST_PROGRESS_BAR_H
#define VELLUX_HOST_PROGRESS_BAR_H

#include <ostream>
#include <string>

#include "host/host_session.h"

namespace vellux::host {

class ProgressBar {
public:
    ProgressBar(std::ostream& out, bool enabled) : out_(out), enabled_(enabled) {}
    ~ProgressBar() { Finish(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void Update(const ProgressReport& report);
    void Finish();
    ProgressSink Sink() { return [this](const ProgressReport& report) { Update(report); }; }

private:
    std::ostream& out_;
    bool enabled_;
    std::string last_;
};

bool StderrIsTerminal();
std::string ProgressLine(const ProgressReport& report, int barWidth = 30);   // without the "\r"

}  // namespace vellux::host

#endif  // VELLUX_HOST_PROGRESS_BAR_H

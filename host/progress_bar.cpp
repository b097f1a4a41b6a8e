#include "host/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace vellux::host {

bool StderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

std::string ProgressLine(const ProgressReport& report, int barWidth) {
    const float position = std::isfinite(report.position) ? std::clamp(report.position, 0.0f, 1.0f) : 0.0f;
    const int filled = int(position * float(barWidth));
    std::string line = report.heading.empty() ? "Working" : report.heading;
    line += "  [" + std::string(size_t(filled), '#') + std::string(size_t(barWidth - filled), '-') + "] ";
    const std::string percent = std::to_string(int(position * 100.0f));
    line += std::string(4 - std::min<size_t>(percent.size(), 3), ' ') + percent + "%";
    if (!report.unit.empty() && report.max > report.min)
        line += "  " + report.unit + " " + std::to_string(report.value) + " of " + std::to_string(report.max);
    return line;
}

void ProgressBar::Update(const ProgressReport& report) {
    if (!enabled_) return;
    std::string line = ProgressLine(report);
    if (line == last_) return;
    // Blank out what is left of a longer previous line.
    const size_t width = line.size();
    if (last_.size() > width) line += std::string(last_.size() - width, ' ');
    out_ << '\r' << line << std::flush;
    line.resize(width);
    last_ = std::move(line);
}

void ProgressBar::Finish() {
    if (!enabled_ || last_.empty()) return;
    out_ << '\n' << std::flush;
    last_.clear();
}

}  // namespace vellux::host

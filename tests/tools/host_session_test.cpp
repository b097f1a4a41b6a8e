// The host callback's progress handling and the terminal progress bar.
#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <sstream>
#include <vector>

#include "host/host_session.h"
#include "host/progress_bar.h"
#include "tools/vellux/interrupt_guard.h"

namespace {

using namespace vellux::host;

HostStatusRec Report(PluginInfoRec& info, float position, int32_t value) {
    HostStatusRec status{};
    status.theReference = info.theHostReference;
    status.theStatusPos = position;
    const char unit[] = "Scanline", heading[] = "Drawing Flare";
    status.theStatusUnit[0] = sizeof(unit) - 1;
    std::copy(unit, unit + sizeof(unit) - 1, status.theStatusUnit + 1);
    status.theStatusInfo[0] = sizeof(heading) - 1;
    std::copy(heading, heading + sizeof(heading) - 1, status.theStatusInfo + 1);
    status.theStatusMax = 400;
    status.theStatusValue = value;
    return status;
}

TEST(HostSessionStatus, ReportsReachTheSinkAndArePacedByTheTick) {
    HostSession host;
    std::vector<ProgressReport> seen;
    host.SetProgressSink([&](const ProgressReport& report) { seen.push_back(report); });
    PluginInfoRec info = host.Info();

    HostStatusRec status = Report(info, 0.25f, 100);
    const uint32_t before = HostTickCount();
    ASSERT_EQ(info.theHostProc(kHostStatus, int32_t(sizeof(status)), &status), kNoError);
    const uint32_t wanted = uint32_t(status.theStatusTick) - before;   // as the plug-in compares
    EXPECT_GE(wanted, uint32_t(HostSession::kDefaultReportTicks));
    EXPECT_LE(wanted, uint32_t(HostSession::kDefaultReportTicks) + 2);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].position, 0.25f);
    EXPECT_EQ(seen[0].value, 100);
    EXPECT_EQ(seen[0].max, 400);
    EXPECT_EQ(seen[0].unit, "Scanline");
    EXPECT_EQ(seen[0].heading, "Drawing Flare");

    host.SetReportTicks(0);   // after every row
    status = Report(info, 0.5f, 200);
    status.theStatusTick = 12345;
    ASSERT_EQ(info.theHostProc(kHostStatus, int32_t(sizeof(status)), &status), kNoError);
    EXPECT_EQ(status.theStatusTick, 0);
    EXPECT_EQ(seen.size(), 2u);

    EXPECT_EQ(info.theHostProc(kHostStatus, int32_t(sizeof(status)) - 4, &status), kIncompatibleRecord);
}

TEST(HostSessionStatus, AnInterruptStopsAtTheNextReport) {
    HostSession host;
    std::atomic<bool> interrupt{false};
    host.SetInterruptFlag(&interrupt);
    PluginInfoRec info = host.Info();
    HostStatusRec status = Report(info, 0.0f, 0);
    EXPECT_EQ(info.theHostProc(kHostStatus, int32_t(sizeof(status)), &status), kNoError);
    interrupt = true;
    EXPECT_EQ(info.theHostProc(kHostStatus, int32_t(sizeof(status)), &status), kUserCanceled);
    EXPECT_EQ(info.theHostProc(kHostStatus, int32_t(sizeof(status)), &status), kUserCanceled);
}

TEST(InterruptGuard, SigintSetsTheFlagInsteadOfEndingTheProcessWhileAlive) {
    struct sigaction before {};
    sigaction(SIGINT, nullptr, &before);
    {
        const vellux::tool::InterruptGuard guard;
        EXPECT_FALSE(vellux::tool::InterruptGuard::Requested());
        raise(SIGINT);
        EXPECT_TRUE(vellux::tool::InterruptGuard::Requested());
    }
    struct sigaction after {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

TEST(ProgressBar, DrawsChangesOnlyAndEndsItsLineOnce) {
    ProgressReport report{0.5f, "Scanline", "Drawing Flare", 0, 400, 200};
    EXPECT_EQ(ProgressLine(report, 10), "Drawing Flare  [#####-----]   50%  Scanline 200 of 400");

    std::ostringstream quiet;
    {
        ProgressBar bar(quiet, false);
        bar.Update(report);
    }
    EXPECT_EQ(quiet.str(), "");

    std::ostringstream out;
    {
        ProgressBar bar(out, true);
        bar.Update(report);
        bar.Update(report);
        report.position = 1.0f;
        report.value = 400;
        bar.Update(report);
        bar.Finish();
    }   // the destructor does not end the line a second time
    const std::string text = out.str();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), 2);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_EQ(text.back(), '\n');
}

}  // namespace

// Costs of the plug-in's fixed overheads: a full rebuild of the working record (INIT), an
// administrative command, a host-service lookup, and number formatting for the dialog.
#include <benchmark/benchmark.h>

#include "host/host_session.h"
#include "host/resource_services.h"
#include "kit/dialog_items.h"
#include "kit/host_services.h"
#include "vellux/plugin_records.h"

namespace {

// A full rebuild: the default table read through the host's resource services, the falloff
// table computed, the record grown to the free memory and shrunk again.
void BM_InitializeRebuild(benchmark::State& state) {
    vellux::host::SetHomeDirectory(VELLUX_TABLE_DIR);
    vellux::host::HostSession host;
    for (auto _ : state) {
        PluginInitializeRec block{host.Info()};
        if (Main(kCmdInitialize, int32_t(sizeof(block)), &block) != kNoError) state.SkipWithError("INIT failed");
    }
}
BENCHMARK(BM_InitializeRebuild);

void BM_Information(benchmark::State& state) {
    PluginInformationRec block{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(Main(kCmdInformation, int32_t(sizeof(block)), &block));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Information);

// Every service call looks its name up afresh; this is what a call costs when the host lacks it.
void BM_ServiceLookupMiss(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(KV_GetControlValue(nullptr));
}
BENCHMARK(BM_ServiceLookupMiss);

void BM_RealTrimStr(benchmark::State& state) {
    double value = 1.77;
    for (auto _ : state) {
        benchmark::DoNotOptimize(RealTrimStr(value, 8));
        value += 0.01;
    }
}
BENCHMARK(BM_RealTrimStr);

}  // namespace

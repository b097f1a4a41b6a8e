#include "engine/frame_bands.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace vellux::engine {

std::vector<Band> FrameBands(int32_t height) { return SplitIntoBands(height, kFrameBandRows); }

Band CoveringBands(Band rows, int32_t height) {
    const int32_t first = std::clamp(rows.top, 0, height), end = std::clamp(rows.bottom, 0, height);
    if (first >= end) return {first, first};
    return {first / kFrameBandRows * kFrameBandRows,
            std::min(height, (end + kFrameBandRows - 1) / kFrameBandRows * kFrameBandRows)};
}

int32_t FrameThreads(int32_t asked, int32_t height) {
    if (asked < 0) throw std::invalid_argument("--threads: " + std::to_string(asked) + " must be at least 0 (0: every core)");
    const int32_t threads = asked > 0 ? asked : int32_t(std::max(1u, std::thread::hardware_concurrency()));
    const int32_t bands = std::max(1, (height + kFrameBandRows - 1) / kFrameBandRows);
    return std::min(threads, bands);
}

namespace {

// The bands of one frame, shared by its painters, and their reports counted together.
class BandWork {
public:
    BandWork(std::vector<Band> bands, size_t painters, host::ProgressSink progress,
             const std::atomic<bool>* cancel)
        : bands_(std::move(bands)), progress_(std::move(progress)), cancel_(cancel), tops_(painters, 0), rows_(painters, 0) {
        for (const Band band : bands_) total_ += band.bottom - band.top;
    }

    const std::atomic<bool>* stopFlag() const { return &stop_; }

    // The next band for painter p; false once every band is taken or the work stopped.
    bool Take(size_t p, Band* band) {
        if (stop_.load()) return false;
        const size_t i = next_.fetch_add(1);
        if (i >= bands_.size()) return false;
        *band = bands_[i];
        const std::lock_guard lock(mutex_);
        tops_[p] = band->top;
        rows_[p] = 0;
        return true;
    }

    // A report of painter p's plug-in, its value a row of the whole frame: passed on as rows of
    // every band painted so far. The caller's cancel stops every painter from here.
    void Report(size_t p, const host::ProgressReport& report) {
        const std::lock_guard lock(mutex_);
        rows_[p] = std::max(0, report.value - tops_[p]);
        if (progress_) {
            int32_t done = painted_;
            for (const int32_t rows : rows_) done += rows;
            progress_({total_ > 0 ? float(done) / float(total_) : 1.0f, report.unit, report.heading, 0, total_, done});
        }
        if (cancel_ != nullptr && cancel_->load()) stop_ = true;
    }

    void Finished(size_t p, Band band) {
        const std::lock_guard lock(mutex_);
        painted_ += band.bottom - band.top;
        rows_[p] = 0;
    }

    // The first failure is the one thrown; the others are the stop it caused.
    void Fail(std::exception_ptr failure) {
        const std::lock_guard lock(mutex_);
        if (!failure_) failure_ = std::move(failure);
        stop_ = true;
    }

    void RethrowFailure() {
        if (failure_) std::rethrow_exception(failure_);
    }

private:
    const std::vector<Band> bands_;
    const host::ProgressSink progress_;   // a copy: the painters' own sinks are replaced while they paint
    const std::atomic<bool>* cancel_;
    std::atomic<size_t> next_{0};
    std::atomic<bool> stop_{false};   // every painter's interrupt flag
    std::mutex mutex_;                // what follows
    std::vector<int32_t> tops_;       // each painter's band
    std::vector<int32_t> rows_;       // and its rows painted so far
    int32_t painted_ = 0;             // rows of the bands finished
    int32_t total_ = 0;
    std::exception_ptr failure_;
};

// One painter's share: SETF for every band it takes, then its GENFs from the band's top down.
void PaintTakenBands(BandWork& work, size_t p, const BandPainter& painter, const PluginFlareSetupRec& setup,
                     const PixelView& pixels, int32_t bandRows, const BandHook& beforeBand) {
    try {
        for (Band band; work.Take(p, &band);) {
            if (beforeBand) beforeBand(band);
            painter.instance->Setup(setup);
            const int32_t step = bandRows > 0 ? bandRows : band.bottom - band.top;
            for (int32_t top = band.top; top < band.bottom; top += step)
                painter.instance->Generate(pixels, {top, std::min(top + step, band.bottom)});
            work.Finished(p, band);
        }
    } catch (...) {
        work.Fail(std::current_exception());
    }
}

// The painters' sessions report to the shared work and stop on its flag while it lasts.
class PainterHooks {
public:
    PainterHooks(const std::vector<BandPainter>& painters, BandWork& work) : painters_(painters) {
        for (size_t p = 0; p < painters_.size(); ++p) {
            host::HostSession& host = *painters_[p].host;
            saved_.push_back({host.progressSink(), host.interruptFlag()});
            host.SetProgressSink([&work, p](const host::ProgressReport& report) { work.Report(p, report); });
            host.SetInterruptFlag(work.stopFlag());
        }
    }
    ~PainterHooks() {
        for (size_t p = 0; p < saved_.size(); ++p) {
            painters_[p].host->SetProgressSink(std::move(saved_[p].first));
            painters_[p].host->SetInterruptFlag(saved_[p].second);
        }
    }
    PainterHooks(const PainterHooks&) = delete;
    PainterHooks& operator=(const PainterHooks&) = delete;

private:
    const std::vector<BandPainter>& painters_;
    std::vector<std::pair<host::ProgressSink, const std::atomic<bool>*>> saved_;
};

}  // namespace

void PaintFrameBands(const std::vector<BandPainter>& painters, const FlareLight& light, const PixelView& pixels,
                     Band rows, int32_t bandRows, const host::ProgressSink& progress,
                     const std::atomic<bool>* cancel, const BandHook& beforeBand) {
    if (painters.empty()) throw std::invalid_argument("painting a frame needs a plug-in instance");
    const Band covered = CoveringBands(rows, pixels.height);
    std::vector<Band> bands;
    for (const Band band : FrameBands(pixels.height))
        if (band.top >= covered.top && band.bottom <= covered.bottom) bands.push_back(band);
    if (bands.empty()) return;
    const PluginFlareSetupRec setup = MakeFrameSetup(pixels.width, pixels.height, light);
    const size_t count = std::min(painters.size(), bands.size());
    BandWork work(std::move(bands), count, progress, cancel);
    const PainterHooks hooks(painters, work);
    std::vector<std::thread> threads;
    try {
        for (size_t p = 1; p < count; ++p)
            threads.emplace_back(PaintTakenBands, std::ref(work), p, std::cref(painters[p]), std::cref(setup),
                                 std::cref(pixels), bandRows, std::cref(beforeBand));
    } catch (...) {
        work.Fail(std::current_exception());   // a thread the system would not start: the others stop too
    }
    PaintTakenBands(work, 0, painters[0], setup, pixels, bandRows, beforeBand);
    for (std::thread& thread : threads) thread.join();
    work.RethrowFailure();
}

}  // namespace vellux::engine

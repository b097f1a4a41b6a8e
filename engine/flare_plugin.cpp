// A flare instance's plug-in side: the table checked, the plug-in's copy loaded, INIT with the
// settings asked for, FINI. In the core library, with no image library: the settings dialog and
// keying a scene use a flare this far. The image side is flare.cpp. See flare.h.
#include "engine/flare.h"

#include <iostream>
#include <stdexcept>

#include "engine/table_search.h"
#include "host/resource_file.h"

namespace vellux::engine {

namespace {

constexpr int16_t kFlareListId = 1001;

}  // namespace

void CheckFlareTable(const std::filesystem::path& table) {
    const rsc::ResourceFile file = rsc::ReadResourceFile(table);
    if (file.Find(rsc::TypeCode("FLAR"), kFlareListId) == nullptr)
        throw std::runtime_error(table.string() + ": not a flare table: it has no FLAR " + std::to_string(kFlareListId));
}

// The plug-in still asks for Vellux.rsc; this instance's host answers with the chosen table (by
// name or path, table_search.h; none chosen: the default one found there),
// checked first so that a wrong file gets a message about the file rather than the plug-in's
// "missing resource".
std::filesystem::path FlareTableFile(const FlareSetup& setup) {
    return setup.table.empty() ? FindDefaultTable() : FindTable(setup.table.string());
}

Flare::Flare(const FlareSetup& setup) : setup_(setup), plugin_(setup.plugin.string(), setup.copy) {
    const std::filesystem::path table = FlareTableFile(setup);
    if (!table.empty()) {
        CheckFlareTable(table);
        host_.SetFileSubstitute("Vellux.rsc", std::filesystem::absolute(table));
    }
    if (setup.settings) host_.SetControlData(setup.settings->bytes);
    instance_.emplace(plugin_, host_);
    instance_->EditSettings(setup.edits);
    if (setup.lens) look_ = std::make_unique<LensLook>(*setup.lens);
}

void Flare::Finish() { instance_->Finish(); }

void Flare::SetThreads(int32_t threads) {
    if (threads < 0)
        throw std::invalid_argument("--threads: " + std::to_string(threads) + " must be at least 0 (0: every core)");
    threads_ = threads;
}

// The copies take this flare's plug-in and table; their settings are this flare's, given before
// every frame (Painters). A copy that will not load is said once, and no more are tried.
void Flare::LoadCopies(size_t wanted) {
    while (copies_.size() < wanted && !copyFailed_) {
        FlareSetup setup = setup_;
        setup.copy = host::PluginCopy::private_;
        setup.lens.reset();
        try {
            copies_.push_back(std::make_unique<Flare>(setup));
        } catch (const std::exception& error) {
            copyFailed_ = true;
            const std::string text = "a frame is painted on " + std::to_string(copies_.size() + 1) + " of the " +
                                     std::to_string(wanted + 1) + " threads asked for: another copy of the plug-in " +
                                     "did not load (" + error.what() + ")";
            if (warning_) warning_(text);
            else std::cerr << "vellux: warning: " << text << "\n";
        }
    }
}

std::vector<BandPainter> Flare::Painters(int32_t height) {
    const int32_t threads = FrameThreads(threads_, height);
    LoadCopies(size_t(threads - 1));
    std::vector<BandPainter> painters{{&*instance_, &host_}};
    for (size_t i = 0; i < copies_.size() && painters.size() < size_t(threads); ++i) {
        copies_[i]->host().SetControlData(host_.controlData());
        copies_[i]->host().SetReportTicks(host_.reportTicks());
        copies_[i]->host().SetFreeBytes(host_.freeBytes());
        painters.push_back({&copies_[i]->instance(), &copies_[i]->host()});
    }
    return painters;
}

void Flare::Paint(const PixelView& pixels, const FlareLight& light, int32_t bandRows, const BandHook& beforeBand) {
    PaintRows(pixels, light, {0, pixels.height}, bandRows, beforeBand);
}

void Flare::PaintRows(const PixelView& pixels, const FlareLight& light, Band rows, int32_t bandRows,
                      const BandHook& beforeBand) {
    PaintFrameBands(Painters(pixels.height), light, pixels, rows, bandRows, host_.progressSink(), host_.interruptFlag(),
                    beforeBand);
}

void Flare::SetLensFNumber(double fNumber) {
    if (!look_) throw std::runtime_error("the scene keys the lens's f-number (lens.fNumber): render it with --lens");
    look_->SetFNumber(fNumber);
}

}  // namespace vellux::engine

// A flare instance's plug-in side: the table checked, the plug-in's copy loaded, INIT with the
// settings asked for, FINI. In the core library, with no image library: the settings dialog and
// keying a scene use a flare this far. The image side is flare.cpp. See flare.h.
#include "engine/flare.h"

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

void Flare::SetLensFNumber(double fNumber) {
    if (!look_) throw std::runtime_error("the scene keys the lens's f-number (lens.fNumber): render it with --lens");
    look_->SetFNumber(fNumber);
}

}  // namespace vellux::engine

#include "engine/hdr_pass.h"

#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>

#include "engine/row_parts.h"
#include "host/flare_records.h"
#include "host/resource_file.h"
#include "host/resource_services.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kStreakFlags = kFlagAnamorphicStreak | kFlagRandomStreaks;
constexpr uint32_t kRingFlags = kFlagGlow | kFlagHalo | kFlagReflections;

ControlDataRec ControlRecord(const std::vector<uint8_t>& control) {
    ControlDataRec record;
    if (control.size() < sizeof(record))
        throw std::invalid_argument("the settings record has " + std::to_string(control.size()) +
                                    " bytes, fewer than the " + std::to_string(sizeof(record)) + " it should have");
    std::memcpy(&record, control.data(), sizeof(record));
    return record;
}

// `control` with its leading ControlDataRec replaced by `record`, into `into`.
void WriteRecord(const ControlDataRec& record, const std::vector<uint8_t>& control, std::vector<uint8_t>& into) {
    into.assign(control.begin(), control.end());
    std::memcpy(into.data(), &record, sizeof(record));
}

bool HasStreaks(const ControlDataRec& record) {
    return (record.flareFlags & kStreakFlags) != 0 || record.flareStarFilter != 0;
}

// A colour stop's 16-bit channel for a table `factor` times darker. The plug-in reads a stop
// as v x 64 / 257, truncated; the darker stop is the smallest value it reads as that level
// divided by the factor, rounded.
uint16_t DarkerStop(uint16_t v, uint32_t factor) {
    const uint32_t level = uint32_t(v) * 64u / 257u;
    const uint32_t darker = (level + factor / 2u) / factor;
    return uint16_t((darker * 257u + 63u) / 64u);
}

// The halo's ring colour component for a halo `factor` times darker under a light channel of
// `light`: the plug-in tints the halo with (component x (light + 1)) >> 8, so the component is
// the smallest that gives that tint divided by the factor, rounded.
int16_t DarkerHaloColour(int16_t component, uint8_t light, uint32_t factor) {
    const uint32_t scale = uint32_t(light) + 1u;
    const uint32_t tint = (uint32_t(uint16_t(component)) * scale) >> 8;
    const uint32_t darker = (tint + factor / 2u) / factor;
    return int16_t(uint16_t((darker * 256u + scale - 1u) / scale));
}

uint16_t Field16(const uint8_t* at) { return uint16_t(at[0] << 8 | at[1]); }
void SetField16(uint8_t* at, uint16_t v) {
    at[0] = uint8_t(v >> 8);
    at[1] = uint8_t(v);
}

// Every RING's stops darkened `factor` times (flare_records.h has the layout), the rest as it is.
// Stops past the end of a short resource are left to the plug-in to refuse.
rsc::ResourceFile DarkerTable(rsc::ResourceFile table, uint32_t factor) {
    constexpr size_t kCountAt = rsc::kRingHeaderSize - 4;
    constexpr size_t kRedAt = 6;   // after the position and alpha
    for (rsc::Resource& resource : table.resources) {
        if (resource.type != rsc::kRingType || resource.data.size() < rsc::kRingHeaderSize) continue;
        uint8_t* data = resource.data.data();
        const uint32_t count = uint32_t(Field16(data + kCountAt)) << 16 | Field16(data + kCountAt + 2);
        const size_t room = (resource.data.size() - rsc::kRingHeaderSize) / rsc::kColorStopSize;
        for (size_t k = 0; k < std::min<size_t>(count, room); ++k) {
            uint8_t* colour = data + rsc::kRingHeaderSize + k * rsc::kColorStopSize + kRedAt;
            for (int c = 0; c < 3; ++c) SetField16(colour + 2 * c, DarkerStop(Field16(colour + 2 * c), factor));
        }
    }
    return table;
}

fs::path MakeFolder() {
    std::string pattern = (fs::temp_directory_path() / "vellux-exposures-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error(pattern + ": cannot make a folder for the darker flare tables: " +
                                 std::generic_category().message(errno));
    return pattern;
}

}  // namespace

struct ExposureBrackets::Exposure {
    Exposure(const FlareSetup& setup, uint32_t darker) : factor(darker), flare(setup) {}
    uint32_t factor;
    Flare flare;
    PluginPixels rings;
};

ExposureBrackets::ExposureBrackets(const FlareSetup& setup) : plugin_(setup.plugin), table_(FlareTableFile(setup)) {
    if (table_.empty()) table_ = host::HomeDirectory() / "Vellux.rsc";
}

ExposureBrackets::~ExposureBrackets() {
    for (auto& bracket : brackets_) bracket.reset();   // FINI before the tables go
    std::error_code ignored;
    if (!folder_.empty()) fs::remove_all(folder_, ignored);
}

void ExposureBrackets::SetThreads(int32_t threads) {
    for (auto& bracket : brackets_)
        if (bracket) bracket->flare.SetThreads(threads);
    threads_ = threads;
}

uint16_t ExposureBrackets::ClipLevel(const std::vector<uint8_t>& control) {
    // The plug-in's ceilings: rings 16320 (1 - dissolve) truncated in double, streaks the same
    // product rounded to float first; each held within 0..65535.
    const double ceiling = double(kFullChannel) * (1.0 - ControlRecord(control).flareDissolve);
    const auto held = [](double v) { return !(v > 0.0) ? 0.0 : std::min(v, 65535.0); };
    return uint16_t(std::min(held(ceiling), held(double(float(ceiling)))));
}

ExposureBrackets::Exposure& ExposureBrackets::Bracket(size_t bracket) {
    if (!brackets_.at(bracket)) {
        if (folder_.empty()) folder_ = MakeFolder();
        const uint32_t factor = kFactors[bracket];
        const fs::path file = folder_ / ("darker-" + std::to_string(factor) + ".rsc");
        rsc::WriteResourceFile(file, DarkerTable(rsc::ReadResourceFile(table_), factor));
        FlareSetup setup;
        setup.plugin = plugin_;
        setup.table = file;
        setup.copy = host::PluginCopy::private_;
        brackets_[bracket] = std::make_unique<Exposure>(setup, factor);
        brackets_[bracket]->flare.SetThreads(threads_);
    }
    return *brackets_[bracket];
}

void ExposureBrackets::Paint(Exposure& exposure, PluginPixels& into, const std::vector<uint8_t>& record,
                             const FlareLight& light, FrameSize size, Band band) {
    // The whole bands of the frame's partition around the rows, painted as the frame itself is, so
    // that an exposure's streak edges fall where the frame's do.
    const Band whole = CoveringBands(band, size.height);
    if (into.width != size.width || into.height != size.height || into.depth != 48) {
        CheckFrameMemory(size, 6.0, "an exposure of the flare");
        into = PluginPixels(size.width, size.height, 48);
    } else {
        std::fill(into.Row(whole.top), into.Row(whole.top) + size_t(whole.bottom - whole.top) * size_t(into.RowBytes()),
                  uint8_t(0));
    }
    exposure.flare.host().SetControlData(record);
    exposure.flare.PaintRows(into.View(), light, whole);
}

const PluginPixels& ExposureBrackets::PaintRings(size_t bracket, const std::vector<uint8_t>& control,
                                                 const FlareLight& light, FrameSize size) {
    return PaintRingRows(bracket, control, light, size, Band{0, size.height});
}

const PluginPixels& ExposureBrackets::PaintStreaks(const std::vector<uint8_t>& control, const FlareLight& light,
                                                   FrameSize size) {
    return PaintStreakRows(control, light, size, Band{0, size.height});
}

// The rings darker by the exposure's factor, the halo's through its colour, and no streaks.
const PluginPixels& ExposureBrackets::PaintRingRows(size_t bracket, const std::vector<uint8_t>& control,
                                                    const FlareLight& light, FrameSize size, Band band) {
    Exposure& exposure = Bracket(bracket);
    ControlDataRec record = ControlRecord(control);
    record.flareFlags &= ~kStreakFlags;
    record.flareStarFilter = 0;
    ARGB_Color& halo = record.flareRingColor;
    halo.red = DarkerHaloColour(halo.red, light.color.red, exposure.factor);
    halo.green = DarkerHaloColour(halo.green, light.color.green, exposure.factor);
    halo.blue = DarkerHaloColour(halo.blue, light.color.blue, exposure.factor);
    WriteRecord(record, control, record_);
    Paint(exposure, exposure.rings, record_, light, size, band);
    return exposure.rings;
}

// The streaks at full brightness with every ring element switched off, by the finest exposure's
// copy of the plug-in (the table does not matter without rings).
const PluginPixels& ExposureBrackets::PaintStreakRows(const std::vector<uint8_t>& control, const FlareLight& light,
                                                      FrameSize size, Band band) {
    ControlDataRec record = ControlRecord(control);
    record.flareFlags &= ~kRingFlags;
    WriteRecord(record, control, record_);
    Paint(Bracket(0), streaks_, record_, light, size, band);
    return streaks_;
}

uint32_t ExposureBrackets::Tolerance(uint32_t factor, uint32_t level) { return factor * 8u + level / 32u; }

namespace {

// Rows around a source's clipped rows where a clamped table entry may have been blended in: the
// entries an element clamps lie on a circle that also reaches the ceiling, and their blends lie
// within a pixel or two of it.
constexpr int32_t kClampRows = 8;

// Rows a thread is started for: a part's work is a few tenths of a millisecond at 1920 wide.
constexpr int32_t kLeastPartRows = 32;

// Rows from the first to the last of `rows` where a frame reaches `clip`, found on `threads`
// threads; with `rgb`, the frame's own levels written there as well, packed RGB: p / 16320,
// exactly as in a flare pass.
Band ClippedRows(const PluginPixels& frame, Band rows, uint32_t clip, int32_t threads, float* rgb = nullptr) {
    Band found{rows.bottom, rows.top};
    std::mutex mutex;
    ForRowParts(rows, threads, kLeastPartRows, [&](Band part) {
        Band partFound{part.bottom, part.top};
        for (int32_t y = part.top; y < part.bottom; ++y) {
            const uint8_t* pixel = frame.Row(y);
            float* level = rgb == nullptr ? nullptr : rgb + size_t(y) * size_t(frame.width) * 3;
            uint16_t top = 0;
            for (int32_t x = 0; x < frame.width * 3; ++x, pixel += 2) {
                uint16_t v;
                std::memcpy(&v, pixel, 2);
                top = std::max(top, v);
                if (level) level[x] = FromPluginScaleFloat(v);
            }
            if (top >= clip) partFound = Band{std::min(partFound.top, y), y + 1};
        }
        if (partFound.top >= partFound.bottom) return;
        const std::lock_guard lock(mutex);
        found = Band{std::min(found.top, partFound.top), std::max(found.bottom, partFound.bottom)};
    });
    return found;
}

}  // namespace

void ExposureBrackets::Levels(const std::vector<uint8_t>& control, const FlareLight& light, const PluginPixels& painted,
                              float* rgb) {
    if (painted.depth != 48) throw std::invalid_argument("exposure brackets need the plug-in's 48-bit frame");
    const uint16_t ceiling = ClipLevel(control);
    const uint32_t clip = ceiling == 0 ? 65536u : ceiling;
    const FrameSize size{painted.width, painted.height};
    const size_t width = size_t(size.width), count = width * size_t(size.height);
    const auto around = [&size](Band clipped, Band within) {
        return Band{std::max(within.top, clipped.top - kClampRows), std::min(within.bottom, clipped.bottom + kClampRows)};
    };
    Band rows = around(ClippedRows(painted, Band{0, size.height}, clip, threads_, rgb), Band{0, size.height});
    if (rows.top >= rows.bottom) return;
    if (open_.size() != count) open_.assign(count, 0);
    ForRowParts(rows, threads_, kLeastPartRows, [&](Band part) {
        for (int32_t y = part.top; y < part.bottom; ++y) {
            const uint8_t* pixel = painted.Row(y);
            uint8_t* open = open_.data() + size_t(y) * width;
            for (size_t x = 0; x < width; ++x, pixel += 6)
                open[x] = (pixel[0] | pixel[1] | pixel[2] | pixel[3] | pixel[4] | pixel[5]) != 0;
        }
    });

    // Pixel by pixel, each source (the painted frame, then each exposure) is checked against the
    // next darker exposure: it is taken unless it clipped, or the darker one shows it darker than
    // that one's quantisation allows (a table entry the plug-in clamped at the full level).
    const bool streaks = HasStreaks(ControlRecord(control));
    if (streaks) PaintStreakRows(control, light, size, rows);
    const PluginPixels* finer = &painted;
    uint32_t finerFactor = 1;
    for (size_t b = 0; b < kFactors.size() && rows.top < rows.bottom; ++b) {
        const PluginPixels& rings = PaintRingRows(b, control, light, size, rows);
        const uint32_t factor = kFactors[b];
        const bool last = b + 1 == kFactors.size();
        ForRowParts(rows, threads_, kLeastPartRows, [&](Band part) {
            for (int32_t y = part.top; y < part.bottom; ++y) {
                uint8_t* open = open_.data() + size_t(y) * width;
                for (size_t x = 0; x < width; ++x) {
                    if (!open[x]) continue;
                    uint16_t f[3], r[3], s[3] = {0, 0, 0};
                    std::memcpy(f, finer->Row(y) + x * 6, sizeof(f));
                    std::memcpy(r, rings.Row(y) + x * 6, sizeof(r));
                    if (streaks) std::memcpy(s, streaks_.Row(y) + x * 6, sizeof(s));
                    uint32_t level[3];
                    bool keep = std::max({f[0], f[1], f[2]}) < clip;
                    for (int c = 0; c < 3; ++c) {
                        level[c] = factor * r[c] + s[c];
                        const uint32_t kept = finerFactor * f[c] + (finer == &painted ? 0u : s[c]);
                        keep = keep && level[c] <= kept + Tolerance(factor, level[c]);
                    }
                    open[x] = !keep && !last;   // a finer source that stands keeps what it wrote
                    if (keep) continue;
                    float* out = rgb + (size_t(y) * width + x) * 3;
                    for (int c = 0; c < 3; ++c) out[c] = float(level[c]) / float(kFullChannel);
                }
            }
        });
        rows = around(ClippedRows(rings, rows, clip, threads_), rows);
        finer = &rings;
        finerFactor = factor;
    }
}

}  // namespace vellux::engine

#include "host/rsc_listing.h"

#include <cstdarg>
#include <cstdio>
#include <variant>

#include "host/dialog_resource.h"
#include "host/flare_records.h"

namespace vellux::rsc {

namespace {

std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string Printf(const char* format, ...) {
    char buffer[256];
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return buffer;
}

// Names may hold any bytes; show them quoted with control characters escaped.
std::string Escaped(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += std::string("\\") + c;
        else if (uint8_t(c) < 0x20 || c == 0x7F) out += Printf("\\x%02x", uint8_t(c));
        else out += c;
    }
    return out + "\"";
}

std::string Heading(const rsc::Resource& resource) {
    std::string line = rsc::TypeText(resource.type) + " " + std::to_string(resource.id);
    if (resource.name) line += " " + Escaped(*resource.name);
    line += ", " + std::to_string(resource.data.size()) + (resource.data.size() == 1 ? " byte" : " bytes");
    if (resource.attributes != 0) line += Printf(", attributes 0x%02x", resource.attributes);
    return line;
}

void WriteHex(std::ostream& out, const std::vector<uint8_t>& bytes) {
    for (size_t row = 0; row < bytes.size(); row += 16) {
        std::string hex, text;
        for (size_t i = row; i < row + 16; ++i) {
            hex += i < bytes.size() ? Printf(" %02x", bytes[i]) : "   ";
            if (i < bytes.size()) text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? char(bytes[i]) : '.';
        }
        out << Printf("  %06zx ", row) << hex << "  |" << text << "|\n";
    }
}

// ---- FLAR ----

void WriteFlare(std::ostream& out, const FlareRecord& flare) {
    out << "  elements  " << flare.elements.size() << "\n";
    for (size_t i = 0; i < flare.elements.size(); ++i) {
        const FlareRun& run = flare.elements[i];
        out << Printf("    [%zu] %s %d..%d", i, rsc::TypeText(run.type).c_str(), run.first, run.last);
        if (run.type != kRingType) out << "  (skipped: not RING)";
        else if (run.first > run.last) out << "  (loads nothing)";
        else out << "  (" << (run.last - run.first + 1) << (run.last == run.first ? " element)" : " elements)");
        out << "\n";
    }
}

// ---- RING ----

// Lengths and positions as the plug-in scales them: by the float of 1 / units.
double FlareUnits(int32_t value, int32_t units) {
    const float scale = float(1.0 / units);
    return double(float(value) * scale);
}

void WriteStops(std::ostream& out, const RingRecord& ring) {
    out << "  stops     " << ring.stops.size() << "\n";
    if (ring.stops.empty()) return;
    out << "        #   position    radius   alpha     red   green    blue\n";
    for (size_t k = 0; k < ring.stops.size(); ++k) {
        const ColorStop& stop = ring.stops[k];
        const double radius = double(float(stop.position) / float(ring.outside));
        out << Printf("    %5zu %10d %9.4f %7u %7u %7u %7u\n", k, stop.position, radius, stop.alpha,
                      stop.red, stop.green, stop.blue);
    }
}

void WriteRing(std::ostream& out, const RingRecord& ring) {
    out << "  name      " << Escaped(ring.name) << "\n";
    out << "  type      " << ring.type << "  " << RingTypeRole(ring.type) << "\n";
    out << Printf("  mode      0x%08x%s\n", ring.mode, ring.mode & kRingHiddenBit ? "  never drawn" : "");
    out << "  units     " << ring.units << "\n";
    if (ring.units == 0) {
        out << Printf("  offset    %d\n  inside    %d\n  outside   %d\n", ring.offset, ring.inside, ring.outside);
    } else {
        out << Printf("  offset    %d  = %.4f along the axis\n", ring.offset, FlareUnits(ring.offset, ring.units));
        out << Printf("  inside    %d  = %.4f flare units\n", ring.inside, FlareUnits(ring.inside, ring.units));
        out << Printf("  outside   %d  = %.4f flare units\n", ring.outside, FlareUnits(ring.outside, ring.units));
    }
    WriteStops(out, ring);
}

// ---- DLOG ----

void WriteDialogItem(std::ostream& out, size_t index, const host::DialogItem& item) {
    const KV_Rect& r = item.bounds;
    out << Printf("    [%zu] ID %d  %s  %d,%d..%d,%d (%d x %d)  value %d", index, item.id,
                  host::ControlTypeName(item.type).c_str(), r.left, r.top, r.right, r.bottom, r.right - r.left,
                  r.bottom - r.top, item.value);
    if (item.labelFor != 0) out << "  labels ID " << item.labelFor;
    out << "  " << Escaped(item.title) << "\n";
    for (const host::DialogMenuItem& entry : item.menu)
        out << Printf("          menu %6d  ", entry.value) << Escaped(entry.text) << "\n";
}

void WriteDialog(std::ostream& out, const host::DialogTemplate& dialog) {
    out << "  title     " << Escaped(dialog.title) << "\n";
    out << "  size      " << dialog.width << " x " << dialog.height << "\n";
    out << "  items     " << dialog.items.size() << "\n";
    for (size_t i = 0; i < dialog.items.size(); ++i) WriteDialogItem(out, i, dialog.items[i]);
}

// ---- Any resource ----

template <typename Record, typename Writer>
void WriteDecoded(std::ostream& out, const rsc::Resource& resource, const std::variant<Record, std::string>& decoded,
                  const char* what, Writer write) {
    if (const auto* record = std::get_if<Record>(&decoded)) {
        write(out, *record);
        return;
    }
    out << "  not a well-formed " << what << ": " << std::get<std::string>(decoded) << "\n";
    WriteHex(out, resource.data);
}

void WriteResource(std::ostream& out, const rsc::Resource& resource) {
    out << Heading(resource) << "\n";
    if (resource.type == kFlareType)
        WriteDecoded(out, resource, DecodeFlare(resource.data), "FLAR", WriteFlare);
    else if (resource.type == kRingType)
        WriteDecoded(out, resource, DecodeRing(resource.data), "RING", WriteRing);
    else if (resource.type == host::kDialogResourceType)
        WriteDecoded(out, resource, host::DecodeDialog(resource.data), "DLOG", WriteDialog);
    else
        WriteHex(out, resource.data);
}

}  // namespace

void WriteListing(std::ostream& out, const std::string& fileLabel, const rsc::ResourceFile& file) {
    const size_t count = file.resources.size();
    out << fileLabel << ": " << count << (count == 1 ? " resource\n" : " resources\n");
    for (const rsc::Resource& resource : file.resources) WriteResource(out, resource);
}

}  // namespace vellux::rsc

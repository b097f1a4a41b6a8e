// Resource files: the container that holds the flare tables and the settings dialog.
//
// A resource file is a plain file in the classic resource-fork layout, all numbers big-endian:
//   header (16 bytes)   offset of the data, offset of the map, length of the data, length of the map
//   data                each resource's bytes preceded by their 4-byte length
//   map                 a copy of the header, 4 reserved + 2 + 2 bytes (handle, file ref,
//                       attributes), offset of the type list and of the name list (2 bytes each,
//                       from the map's start), then
//     type list         count of types minus one (2), then per type: type (4), count of its
//                       resources minus one (2), offset of its reference list (2, from the type
//                       list's start)
//     reference lists   12 bytes per resource: ID (2, signed), name offset (2, from the name
//                       list's start, or -1), attributes (1), data offset (3, from the data's
//                       start), reserved handle (4)
//     name list         length-prefixed names
//
// Reading checks every offset and length against the file and throws ResourceFileError with a
// message that says what is wrong; it never reads outside the bytes it is given. Writing lays
// the file out canonically, so writing what was read from a written file gives the same bytes.
#ifndef VELLUX_HOST_RESOURCE_FILE_H
#define VELLUX_HOST_RESOURCE_FILE_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace vellux::rsc {

struct ResourceFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Resource {
    uint32_t type = 0;                  // four-character code, first character most significant
    int16_t id = 0;
    std::optional<std::string> name;    // at most 255 bytes
    uint8_t attributes = 0;
    std::vector<uint8_t> data;
};

// Resources in file order: types in order of first appearance, and within a type in the order
// given. A (type, ID) pair appears at most once.
struct ResourceFile {
    std::vector<Resource> resources;

    const Resource* Find(uint32_t type, int16_t id) const;   // null when absent
};

ResourceFile ParseResourceFile(std::span<const uint8_t> bytes);
std::vector<uint8_t> SerializeResourceFile(const ResourceFile& file);   // throws on duplicates, oversize

ResourceFile ReadResourceFile(const std::filesystem::path& path);        // errors name the file
void WriteResourceFile(const std::filesystem::path& path, const ResourceFile& file);  // atomically

// Writes bytes to a temporary file beside `path` and renames it over `path` only when all went
// well; throws std::runtime_error naming the file otherwise, leaving any old file untouched.
void WriteFileAtomically(const std::filesystem::path& path, std::span<const uint8_t> bytes);

// The permission bits a file written at `path` gets: those of the file it replaces, or the
// default for a new file (0666 less the umask).
unsigned PermissionsFor(const std::filesystem::path& path);

std::string TypeText(uint32_t type);    // "FLAR"
uint32_t TypeCode(const std::string& text);   // throws unless exactly four bytes

}  // namespace vellux::rsc

#endif  // VELLUX_HOST_RESOURCE_FILE_H

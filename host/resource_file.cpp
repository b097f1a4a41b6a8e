// Resource files: reading with every offset checked, canonical writing, atomic replacement.
#include "host/resource_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <utility>

namespace vellux::rsc {

namespace {

// ---- Layout constants ----
constexpr uint64_t kHeaderSize = 16;          // four 32-bit numbers
constexpr uint64_t kCanonicalDataStart = 256; // classic files leave 16..255 for the system
constexpr uint64_t kMapFixedSize = 28;        // header copy 16, handle 4, file ref 2, attributes 2,
                                              // type list offset 2, name list offset 2
constexpr uint64_t kTypeEntrySize = 8;
constexpr uint64_t kReferenceSize = 12;
constexpr uint64_t kDataLengthSize = 4;
constexpr uint16_t kNoName = 0xFFFF;
constexpr uint64_t kMaxDataArea = uint64_t(1) << 24;   // data offsets in references are 3 bytes
constexpr uint64_t kMax16 = 0xFFFF;
constexpr size_t kMaxNameLength = 255;

[[noreturn]] void Fail(const std::string& message) { throw ResourceFileError(message); }

std::string HexNumber(uint64_t value) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    do {
        text.insert(text.begin(), digits[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    return "0x" + text;
}

// A type for messages: printable characters as they are, others escaped, so a corrupt type
// cannot garble the message.
std::string QuotedType(uint32_t type) {
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = uint8_t(type >> shift);
        if (c >= 32 && c < 127 && c != '\\' && c != '\'') {
            text += char(c);
        } else {
            static const char digits[] = "0123456789ABCDEF";
            text += "\\x";
            text += digits[c >> 4];
            text += digits[c & 0xF];
        }
    }
    return text + "'";
}

std::string Describe(uint32_t type, int16_t id) { return "resource " + QuotedType(type) + " " + std::to_string(id); }

// Big-endian reads from a span. Every caller has checked its range first; the check here is a
// second line of defence so that a mistake in those checks cannot read out of bounds.
uint64_t ReadBig(std::span<const uint8_t> bytes, uint64_t at, unsigned width) {
    if (at > bytes.size() || width > bytes.size() - at) Fail("read past the end of the file at " + HexNumber(at));
    uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i) value = (value << 8) | bytes[at + i];
    return value;
}
uint32_t U32(std::span<const uint8_t> b, uint64_t at) { return uint32_t(ReadBig(b, at, 4)); }
uint32_t U24(std::span<const uint8_t> b, uint64_t at) { return uint32_t(ReadBig(b, at, 3)); }
uint16_t U16(std::span<const uint8_t> b, uint64_t at) { return uint16_t(ReadBig(b, at, 2)); }

// An area given by a 32-bit offset and length must lie inside the file; the sum is taken in 64
// bits so that a length that wraps the offset around cannot pass.
std::span<const uint8_t> Area(std::span<const uint8_t> file, const char* what, uint32_t offset, uint32_t length) {
    const uint64_t end = uint64_t(offset) + length;
    if (end > 0xFFFFFFFFu)
        Fail(std::string(what) + " offset " + HexNumber(offset) + " + length " + HexNumber(length) + " overflows");
    if (end > file.size())
        Fail(std::string(what) + " (offset " + HexNumber(offset) + ", length " + std::to_string(length) +
             ") runs past the end of the file (" + std::to_string(file.size()) + " bytes)");
    return file.subspan(offset, length);
}

// ---- Writing ----

void PutBig(std::vector<uint8_t>& out, uint64_t value, unsigned width) {
    for (int shift = int(width - 1) * 8; shift >= 0; shift -= 8) out.push_back(uint8_t(value >> shift));
}

// An open descriptor, closed when it goes out of scope.
struct Descriptor {
    int fd = -1;
    explicit Descriptor(int f) : fd(f) {}
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    bool Close() { return close(std::exchange(fd, -1)) == 0; }
};

// A temporary file made from a mkstemp pattern; removed again unless the write committed it.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string pattern) : name_(std::move(pattern)), file_(mkstemp(name_.data())) {
        created_ = file_.fd >= 0;
    }
    ~TemporaryFile() {
        if (file_.fd >= 0) file_.Close();   // before unlinking the name
        if (created_ && !committed_) unlink(name_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int fd() const { return file_.fd; }
    const std::string& name() const { return name_; }
    bool Close() { return file_.Close(); }
    void Commit() { committed_ = true; }

private:
    std::string name_;
    Descriptor file_;
    bool created_ = false;
    bool committed_ = false;
};

mode_t ModeFor(const std::filesystem::path& path) { return mode_t(PermissionsFor(path)); }

std::string ErrnoText() { return std::strerror(errno); }

}  // namespace

unsigned PermissionsFor(const std::filesystem::path& path) {
    struct stat existing {};
    if (stat(path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) return existing.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// ---- Types ----

std::string TypeText(uint32_t type) {
    std::string text(4, '\0');
    for (int i = 0; i < 4; ++i) text[i] = char(uint8_t(type >> (24 - 8 * i)));
    return text;
}

uint32_t TypeCode(const std::string& text) {
    if (text.size() != 4)
        throw std::invalid_argument("a resource type has exactly four characters, not \"" + text + "\"");
    uint32_t code = 0;
    for (const char c : text) code = (code << 8) | uint8_t(c);
    return code;
}

const Resource* ResourceFile::Find(uint32_t type, int16_t id) const {
    const auto found = std::find_if(resources.begin(), resources.end(),
                                    [&](const Resource& r) { return r.type == type && r.id == id; });
    return found == resources.end() ? nullptr : &*found;
}

// ---- Reading ----

ResourceFile ParseResourceFile(std::span<const uint8_t> bytes) {
    if (bytes.size() < kHeaderSize)
        Fail("truncated header: the file has " + std::to_string(bytes.size()) + " bytes, the header needs 16");
    const uint32_t dataOffset = U32(bytes, 0);
    const uint32_t mapOffset = U32(bytes, 4);
    const uint32_t dataLength = U32(bytes, 8);
    const uint32_t mapLength = U32(bytes, 12);
    const auto data = Area(bytes, "data area", dataOffset, dataLength);
    const auto map = Area(bytes, "map", mapOffset, mapLength);

    if (map.size() < kMapFixedSize)
        Fail("map is " + std::to_string(map.size()) + " bytes, shorter than its 28-byte fixed part");
    const uint16_t typeListOffset = U16(map, 24);
    const uint16_t nameListOffset = U16(map, 26);
    if (uint64_t(typeListOffset) + 2 > map.size())
        Fail("type list offset " + HexNumber(typeListOffset) + " is outside the map (" + std::to_string(map.size()) + " bytes)");
    if (nameListOffset > map.size())
        Fail("name list offset " + HexNumber(nameListOffset) + " is outside the map (" + std::to_string(map.size()) + " bytes)");
    const auto names = map.subspan(nameListOffset);

    // Counts are stored minus one; 0xFFFF types means none.
    const uint64_t typeCount = (uint64_t(U16(map, typeListOffset)) + 1) & 0xFFFF;
    const uint64_t typeListEnd = typeListOffset + 2 + typeCount * kTypeEntrySize;
    if (typeListEnd > map.size())
        Fail("type list of " + std::to_string(typeCount) + " types at offset " + HexNumber(typeListOffset) +
             " does not fit in the map (" + std::to_string(map.size()) + " bytes)");

    ResourceFile file;
    std::set<uint32_t> types;
    std::set<std::pair<uint32_t, int16_t>> pairs;
    // Data ranges by start, to refuse resources that share bytes: each resource owns its data, and
    // a file whose references all point at one large block would otherwise multiply its size.
    std::map<uint64_t, std::pair<uint64_t, size_t>> dataRanges;

    for (uint64_t t = 0; t < typeCount; ++t) {
        const uint64_t entry = typeListOffset + 2 + t * kTypeEntrySize;
        const uint32_t type = U32(map, entry);
        const uint64_t count = uint64_t(U16(map, entry + 4)) + 1;
        const uint64_t listStart = typeListOffset + uint64_t(U16(map, entry + 6));
        const uint64_t listEnd = listStart + count * kReferenceSize;
        if (!types.insert(type).second) Fail("type " + QuotedType(type) + " appears twice in the type list");
        if (listEnd > map.size())
            Fail("reference list of type " + QuotedType(type) + " (" + std::to_string(count) + " resources at map offset " +
                 HexNumber(listStart) + ") runs past the end of the map (" + std::to_string(map.size()) + " bytes)");
        if (listStart < typeListEnd && listEnd > typeListOffset)
            Fail("reference list of type " + QuotedType(type) + " at map offset " + HexNumber(listStart) + " overlaps the type list");

        for (uint64_t r = 0; r < count; ++r) {
            const uint64_t at = listStart + r * kReferenceSize;
            Resource resource;
            resource.type = type;
            resource.id = int16_t(U16(map, at));
            const uint16_t nameOffset = U16(map, at + 2);
            resource.attributes = map[at + 4];
            const uint64_t dataAt = U24(map, at + 5);
            const std::string what = Describe(type, resource.id);

            if (!pairs.insert({type, resource.id}).second) Fail("duplicate " + what);

            if (dataAt + kDataLengthSize > data.size())
                Fail(what + ": data offset " + HexNumber(dataAt) + " plus its 4-byte length runs past the data area (" +
                     std::to_string(data.size()) + " bytes)");
            const uint64_t length = U32(data, dataAt);
            const uint64_t dataEnd = dataAt + kDataLengthSize + length;
            if (dataEnd > data.size())
                Fail(what + ": " + std::to_string(length) + " bytes of data at offset " + HexNumber(dataAt) +
                     " run past the data area (" + std::to_string(data.size()) + " bytes)");
            const auto [slot, fresh] = dataRanges.emplace(dataAt, std::pair{dataEnd, file.resources.size()});
            if (!fresh) Fail(what + ": data at offset " + HexNumber(dataAt) + " is shared with another resource");
            const auto bytesAt = data.begin() + std::ptrdiff_t(dataAt + kDataLengthSize);
            resource.data.assign(bytesAt, bytesAt + std::ptrdiff_t(length));

            if (nameOffset != kNoName) {
                if (nameOffset >= names.size())
                    Fail(what + ": name offset " + HexNumber(nameOffset) + " is past the name list (" +
                         std::to_string(names.size()) + " bytes)");
                const size_t nameLength = names[nameOffset];
                if (nameOffset + 1 + nameLength > names.size())
                    Fail(what + ": name of " + std::to_string(nameLength) + " bytes at offset " + HexNumber(nameOffset) +
                         " runs past the name list (" + std::to_string(names.size()) + " bytes)");
                const auto nameAt = names.begin() + nameOffset + 1;
                resource.name.emplace(nameAt, nameAt + std::ptrdiff_t(nameLength));
            }
            file.resources.push_back(std::move(resource));
        }
    }

    // Neighbouring data ranges, in offset order, must not overlap.
    const std::pair<uint64_t, size_t>* previous = nullptr;
    for (const auto& [start, range] : dataRanges) {
        if (previous != nullptr && start < previous->first) {
            const Resource& r = file.resources[range.second];
            Fail(Describe(r.type, r.id) + ": data at offset " + HexNumber(start) + " overlaps that of " +
                 Describe(file.resources[previous->second].type, file.resources[previous->second].id));
        }
        previous = &range;
    }
    return file;
}

ResourceFile ReadResourceFile(const std::filesystem::path& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int fd = file.fd;
    if (fd < 0) throw std::runtime_error(path.string() + ": cannot open: " + ErrnoText());

    struct stat info {};
    if (fstat(fd, &info) != 0) throw std::runtime_error(path.string() + ": cannot read: " + ErrnoText());
    if (S_ISDIR(info.st_mode)) throw std::runtime_error(path.string() + ": is a directory, not a resource file");

    std::vector<uint8_t> bytes;
    if (S_ISREG(info.st_mode)) bytes.reserve(size_t(info.st_size));
    uint8_t chunk[65536];
    for (;;) {
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw std::runtime_error(path.string() + ": cannot read: " + ErrnoText());
        if (got == 0) break;
        bytes.insert(bytes.end(), chunk, chunk + got);
    }
    try {
        return ParseResourceFile(bytes);
    } catch (const ResourceFileError& error) {
        throw ResourceFileError(path.string() + ": not a valid resource file: " + error.what());
    }
}

// ---- Writing ----

std::vector<uint8_t> SerializeResourceFile(const ResourceFile& file) {
    // Group by type in order of first appearance; within a type keep the given order.
    std::vector<uint32_t> typeOrder;
    std::map<uint32_t, std::vector<const Resource*>> byType;
    std::set<std::pair<uint32_t, int16_t>> pairs;
    for (const Resource& r : file.resources) {
        if (!pairs.insert({r.type, r.id}).second) Fail("cannot write a file with a duplicate " + Describe(r.type, r.id));
        if (r.name && r.name->size() > kMaxNameLength)
            Fail("cannot write " + Describe(r.type, r.id) + ": its name has " + std::to_string(r.name->size()) +
                 " bytes, at most 255 fit");
        auto& list = byType[r.type];
        if (list.empty()) typeOrder.push_back(r.type);
        list.push_back(&r);
    }
    if (typeOrder.size() > kMax16)
        Fail("cannot write " + std::to_string(typeOrder.size()) + " resource types, at most 65535 fit");

    // Data area: each resource's length and bytes, in file order.
    std::vector<uint8_t> data;
    std::vector<uint32_t> dataOffsets;   // in file order
    for (const uint32_t type : typeOrder) {
        for (const Resource* r : byType[type]) {
            if (data.size() + kDataLengthSize + r->data.size() >= kMaxDataArea)
                Fail("cannot write " + Describe(r->type, r->id) + ": the data area would reach 16 MiB, "
                     "beyond what 3-byte data offsets address");
            dataOffsets.push_back(uint32_t(data.size()));
            PutBig(data, r->data.size(), 4);
            data.insert(data.end(), r->data.begin(), r->data.end());
        }
    }

    // Map: fixed part, type list, reference lists, names. Offsets in the map are 16 bits.
    const uint64_t typeListOffset = kMapFixedSize;
    uint64_t referenceListOffset = 2 + typeOrder.size() * kTypeEntrySize;   // from the type list
    std::vector<uint8_t> typeList;
    std::vector<uint8_t> references;
    std::vector<uint8_t> names;
    PutBig(typeList, (typeOrder.size() - 1) & 0xFFFF, 2);
    size_t index = 0;
    for (const uint32_t type : typeOrder) {
        const auto& list = byType[type];
        if (list.size() > kMax16 + 1)
            Fail("cannot write " + std::to_string(list.size()) + " resources of type " + QuotedType(type) + ", at most 65536 fit");
        if (referenceListOffset > kMax16)
            Fail("cannot write the reference list of type " + QuotedType(type) + ": too many resources for 16-bit map offsets");
        PutBig(typeList, type, 4);
        PutBig(typeList, list.size() - 1, 2);
        PutBig(typeList, referenceListOffset, 2);
        referenceListOffset += list.size() * kReferenceSize;
        for (const Resource* r : list) {
            PutBig(references, uint16_t(r->id), 2);
            if (r->name) {
                if (names.size() >= kNoName)
                    Fail("cannot write the name of " + Describe(r->type, r->id) + ": the name list exceeds 16-bit offsets");
                PutBig(references, names.size(), 2);
                names.push_back(uint8_t(r->name->size()));
                names.insert(names.end(), r->name->begin(), r->name->end());
            } else {
                PutBig(references, kNoName, 2);
            }
            references.push_back(r->attributes);
            PutBig(references, dataOffsets[index++], 3);
            PutBig(references, 0, 4);
        }
    }
    const uint64_t nameListOffset = typeListOffset + typeList.size() + references.size();
    if (nameListOffset > kMax16)
        Fail("cannot write " + std::to_string(file.resources.size()) + " resources: the map's lists exceed 16-bit offsets");
    const uint64_t mapLength = nameListOffset + names.size();
    const uint64_t mapOffset = kCanonicalDataStart + data.size();

    std::vector<uint8_t> header;
    PutBig(header, kCanonicalDataStart, 4);
    PutBig(header, mapOffset, 4);
    PutBig(header, data.size(), 4);
    PutBig(header, mapLength, 4);

    std::vector<uint8_t> out = header;
    out.reserve(mapOffset + mapLength);
    out.resize(kCanonicalDataStart, 0);
    out.insert(out.end(), data.begin(), data.end());
    out.insert(out.end(), header.begin(), header.end());
    out.resize(out.size() + 8, 0);   // reserved handle, file reference, attributes
    PutBig(out, typeListOffset, 2);
    PutBig(out, nameListOffset, 2);
    out.insert(out.end(), typeList.begin(), typeList.end());
    out.insert(out.end(), references.begin(), references.end());
    out.insert(out.end(), names.begin(), names.end());
    return out;
}

void WriteResourceFile(const std::filesystem::path& path, const ResourceFile& file) {
    WriteFileAtomically(path, SerializeResourceFile(file));
}

void WriteFileAtomically(const std::filesystem::path& path, std::span<const uint8_t> bytes) {
    const std::filesystem::path directory = path.parent_path().empty() ? "." : path.parent_path();
    const mode_t mode = ModeFor(path);
    TemporaryFile temp((directory / ("." + path.filename().string() + ".XXXXXX")).string());
    if (temp.fd() < 0)
        throw std::runtime_error(path.string() + ": cannot create a temporary file in " + directory.string() + ": " +
                                 ErrnoText());
    const auto fail = [&](const char* doing) {
        throw std::runtime_error(path.string() + ": cannot " + doing + " " + temp.name() + ": " + ErrnoText());
    };
    if (fchmod(temp.fd(), mode) != 0) fail("set the permissions of");
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t wrote = write(temp.fd(), bytes.data() + done, bytes.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote == 0) errno = EIO;
        if (wrote <= 0) fail("write");
        done += size_t(wrote);
    }
    if (fsync(temp.fd()) != 0) fail("flush");
    if (!temp.Close()) fail("close");
    if (rename(temp.name().c_str(), path.c_str()) != 0) fail("rename over it");
    temp.Commit();

    // Make the rename itself durable; the new file is in place whether or not this succeeds.
    const Descriptor dir(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.fd >= 0) fsync(dir.fd);
}

}  // namespace vellux::rsc

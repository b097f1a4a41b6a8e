// Helpers for the host library's tests: a scratch directory, big-endian patching, a sample file.
#ifndef VELLUX_TESTS_HOST_HOST_TEST_SUPPORT_H
#define VELLUX_TESTS_HOST_HOST_TEST_SUPPORT_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/resource_file.h"

namespace host_test {

using Bytes = std::vector<uint8_t>;

// A fresh directory, removed with its contents at the end of the test.
struct ScratchDirectory {
    ScratchDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vellux-host-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a scratch directory");
        path = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(path, ignored);
    }
    std::filesystem::path operator/(const std::string& name) const { return path / name; }
    std::vector<std::string> Entries() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path)) names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    std::filesystem::path path;
};

inline Bytes FileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
inline void PutBig(Bytes& bytes, size_t at, uint32_t value, int width) {
    for (int i = 0; i < width; ++i) bytes.at(at + i) = uint8_t(value >> (8 * (width - 1 - i)));
}
inline uint32_t GetBig(const Bytes& bytes, size_t at, int width) {
    uint32_t value = 0;
    for (int i = 0; i < width; ++i) value = (value << 8) | bytes.at(at + i);
    return value;
}

inline vellux::rsc::Resource Res(const char* type, int16_t id, Bytes data, std::optional<std::string> name = {},
                                 uint8_t attributes = 0) {
    return {vellux::rsc::TypeCode(type), id, std::move(name), attributes, std::move(data)};
}

// Several types, named and unnamed (and an empty name), attributes, empty data, a negative ID.
inline vellux::rsc::ResourceFile SampleFile() {
    return {{Res("FLAR", 1001, {0, 0, 0, 1, 'R', 'I', 'N', 'G', 0, 1, 0, 2}, "Flare", 0x20), Res("RING", 1, Bytes(72, 0xA5)),
             Res("RING", 2, {}, "Halo"), Res("RING", -5, {1, 2, 3}, "", 0xFF), Res("DLOG", 16001, {9, 8, 7, 6}, "Settings")}};
}

inline bool Same(const vellux::rsc::ResourceFile& a, const vellux::rsc::ResourceFile& b) {
    return std::equal(a.resources.begin(), a.resources.end(), b.resources.begin(), b.resources.end(),
                      [](const vellux::rsc::Resource& x, const vellux::rsc::Resource& y) {
                          return x.type == y.type && x.id == y.id && x.name == y.name &&
                                 x.attributes == y.attributes && x.data == y.data;
                      });
}

}  // namespace host_test

#endif  // VELLUX_TESTS_HOST_HOST_TEST_SUPPORT_H

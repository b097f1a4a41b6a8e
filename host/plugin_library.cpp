#include "host/plugin_library.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "host/resource_services_pvt.h"

namespace vellux::host {

namespace {

// Closes a file descriptor on every path out.
struct FileDescriptor {
    int fd = -1;
    ~FileDescriptor() {
        if (fd >= 0) close(fd);
    }
};

std::string SystemError(const std::string& path, const char* what) {
    return path + ": " + what + ": " + std::strerror(errno);
}

// The plug-in's bytes copied into an anonymous memory file; the loader opens it by its /proc path,
// and a file of another identity is a library of its own even when the bytes are the same.
void* LoadPrivateCopy(const std::string& path, FileDescriptor& memory) {
    FileDescriptor file{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (file.fd < 0) throw std::runtime_error(SystemError(path, "cannot load the plug-in"));
    memory.fd = memfd_create("Vellux-copy", MFD_CLOEXEC);
    if (memory.fd < 0) throw std::runtime_error(SystemError(path, "cannot make a private copy of the plug-in"));
    std::vector<char> buffer(1 << 16);
    for (;;) {
        const ssize_t got = read(file.fd, buffer.data(), buffer.size());
        if (got < 0) throw std::runtime_error(SystemError(path, "cannot read the plug-in"));
        if (got == 0) break;
        for (ssize_t written = 0; written < got;) {
            const ssize_t put = write(memory.fd, buffer.data() + written, size_t(got - written));
            if (put < 0) throw std::runtime_error(SystemError(path, "cannot make a private copy of the plug-in"));
            written += put;
        }
    }
    const std::string procPath = "/proc/self/fd/" + std::to_string(memory.fd);
    return dlopen(procPath.c_str(), RTLD_NOW | RTLD_LOCAL);
}

}  // namespace

void MakeHostServicesGlobal() {
    static std::once_flag once;
    static std::string failure;
    std::call_once(once, [] {
        Dl_info info{};
        if (dladdr(reinterpret_cast<void*>(&KV_GetHomeDirectory), &info) == 0 || info.dli_fname == nullptr) {
            failure = "cannot find the host library's own file";
            return;
        }
        // Already loaded: RTLD_NOLOAD only changes its scope, and the extra reference is kept for
        // the life of the process, as the services are.
        if (dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_GLOBAL) == nullptr)
            failure = std::string(info.dli_fname) + ": cannot make the host's services global: " + dlerror();
    });
    if (!failure.empty()) throw std::runtime_error(failure);
}

PluginLibrary::PluginLibrary(const std::string& path, PluginCopy copy) : path_(path) {
    MakeHostServicesGlobal();
    FileDescriptor memory;
    handle_ = copy == PluginCopy::private_ ? LoadPrivateCopy(path, memory) : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) throw std::runtime_error(path + ": cannot load the plug-in: " + dlerror());
    copyFile_ = std::exchange(memory.fd, -1);
    main_ = reinterpret_cast<int32_t (*)(IFFType, int32_t, void*)>(dlsym(handle_, "Main"));
    if (main_ == nullptr) {
        dlclose(handle_);
        if (copyFile_ >= 0) close(copyFile_);
        throw std::runtime_error(path + ": not a plug-in (it exports no Main)");
    }
}

PluginLibrary::~PluginLibrary() {
    dlclose(handle_);
    if (copyFile_ >= 0) close(copyFile_);
}

std::string CodeText(IFFType code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = char((code >> shift) & 0xFF);
        text += (c >= 32 && c < 127) ? c : '?';
    }
    return text;
}

}  // namespace vellux::host

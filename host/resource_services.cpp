// The host's file and resource services. See resource_services.h.
//
// Every handle handed out is the first member of an object of ours, kept in a registry keyed by
// the handle's address. A handle is looked up by address only, never dereferenced, so a pointer
// the host did not hand out, or one already released, is recognised and ignored. No service lets
// an exception escape: the caller is a plug-in built without exceptions.
#include "host/resource_services.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>
#include <unordered_map>

#include "host/host_session.h"
#include "host/resource_file.h"
#include "host/resource_services_pvt.h"
#include "host/service_registry_pvt.h"

VELLUX_CHECK_SIGNATURE(KV_GetHomeDirectory);
VELLUX_CHECK_SIGNATURE(KV_DestroyDirectoryRef);
VELLUX_CHECK_SIGNATURE(KV_MakeFileRef);
VELLUX_CHECK_SIGNATURE(KV_DestroyFileRef);
VELLUX_CHECK_SIGNATURE(KV_OpenResourceFile);
VELLUX_CHECK_SIGNATURE(KV_CloseResourceFile);
VELLUX_CHECK_SIGNATURE(KV_GetResource);
VELLUX_CHECK_SIGNATURE(KV_ReleaseResource);

namespace vellux::host {

namespace {

struct DirectoryRef {
    KV_DirectoryRef handle{};
    std::filesystem::path path;
};

struct FileRef {
    KV_FileRef handle{};
    std::filesystem::path path;
    uint32_t type = 0;
    std::string extension;   // kept for the services that will ask; the name already carries it
};

struct OpenResourceFile {
    KV_ResourceFile handle{};
    rsc::ResourceFile contents;
};

struct FreeBytes {
    void operator()(void* bytes) const { std::free(bytes); }
};

struct ServiceState {
    std::filesystem::path home;                                  // empty: the program's folder
    std::map<std::string, std::filesystem::path> substitutes;    // file name -> file answering it
    Registry<DirectoryRef, KV_DirectoryRef> directories;
    Registry<FileRef, KV_FileRef> files;
    Registry<OpenResourceFile, KV_ResourceFile> resourceFiles;
    std::unordered_map<void*, std::unique_ptr<void, FreeBytes>> copies;   // handed out by KV_GetResource
};

// Plug-in instances on several threads call these services at once: every service holds this
// lock while it touches the shared state. The last open error is each thread's own.
std::mutex& StateMutex() {
    static std::mutex mutex;
    return mutex;
}
using Guard = std::lock_guard<std::mutex>;
thread_local std::string tLastError;

// Constructed on first use, so loading the library runs no code that could fail.
ServiceState& Services() {
    static ServiceState state;
    return state;
}

std::filesystem::path ProgramFolder() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) return program.parent_path();
    const auto current = std::filesystem::current_path(error);
    return error ? std::filesystem::path(".") : current;
}

// A name that stays inside its directory.
bool IsPlainFileName(const char* name) {
    if (name == nullptr || *name == '\0') return false;
    const std::string_view text(name);
    return text != "." && text != ".." && text.find('/') == std::string_view::npos;
}

}  // namespace

void SetHomeDirectory(const std::filesystem::path& directory) {
    const Guard guard(StateMutex());
    Services().home = directory.empty() ? directory : std::filesystem::absolute(directory);
}

std::filesystem::path HomeDirectory() {
    const Guard guard(StateMutex());
    const ServiceState& state = Services();
    return state.home.empty() ? ProgramFolder() : state.home;
}

void SetFileSubstitute(const std::string& name, const std::filesystem::path& file) {
    const Guard guard(StateMutex());
    if (file.empty()) Services().substitutes.erase(name);
    else Services().substitutes[name] = file;
}

ServiceCounts LiveServiceObjects() {
    const Guard guard(StateMutex());
    const ServiceState& state = Services();
    return {state.directories.Count(), state.files.Count(), state.resourceFiles.Count(), int(state.copies.size())};
}

std::string LastResourceFileError() { return tLastError; }

}  // namespace vellux::host

// ---- The exported services ----

using vellux::host::Guard;
using vellux::host::Services;
using vellux::host::StateMutex;
using vellux::host::tLastError;

KV_DirectoryRef* KV_GetHomeDirectory() {
    try {
        auto ref = std::make_unique<vellux::host::DirectoryRef>();
        ref->path = vellux::host::HomeDirectory();
        const Guard guard(StateMutex());
        return Services().directories.Add(std::move(ref));
    } catch (...) {
        return nullptr;
    }
}

void KV_DestroyDirectoryRef(KV_DirectoryRef* iDirectoryRef) {
    const Guard guard(StateMutex());
    Services().directories.Remove(iDirectoryRef);
}

// Every directory reference designates the home folder (the only directory service offered), so
// a substitute is chosen by the name alone: the calling session's own first, then the process's.
KV_FileRef* KV_MakeFileRef(const KV_DirectoryRef* iDirectoryRef, const char* iNameString, uint32_t iFileType,
                           const char* iExtensionString) {
    try {
        const Guard guard(StateMutex());
        auto& state = Services();
        const auto* directory = state.directories.Find(iDirectoryRef);
        if (directory == nullptr || !vellux::host::IsPlainFileName(iNameString)) return nullptr;
        auto ref = std::make_unique<vellux::host::FileRef>();
        const vellux::host::HostSession* session = vellux::host::ActiveSession();
        const std::filesystem::path* own = session != nullptr ? session->FileSubstitute(iNameString) : nullptr;
        const auto substitute = state.substitutes.find(iNameString);
        ref->path = own != nullptr                          ? *own
                    : substitute != state.substitutes.end() ? substitute->second
                                                            : directory->path / iNameString;
        ref->type = iFileType;
        ref->extension = iExtensionString != nullptr ? iExtensionString : "";
        return state.files.Add(std::move(ref));
    } catch (...) {
        return nullptr;
    }
}

void KV_DestroyFileRef(KV_FileRef* iFileRef) {
    const Guard guard(StateMutex());
    Services().files.Remove(iFileRef);
}

KV_ResourceFile* KV_OpenResourceFile(const KV_FileRef* iFileRef) {
    try {
        std::filesystem::path path;
        {
            const Guard guard(StateMutex());
            const auto* file = Services().files.Find(iFileRef);
            if (file == nullptr) {
                tLastError = "not a file reference of this host";
                return nullptr;
            }
            path = file->path;
        }
        auto open = std::make_unique<vellux::host::OpenResourceFile>();
        open->contents = vellux::rsc::ReadResourceFile(path);   // outside the lock: the slow part
        const Guard guard(StateMutex());
        KV_ResourceFile* handle = Services().resourceFiles.Add(std::move(open));
        tLastError.clear();
        return handle;
    } catch (const std::exception& error) {
        tLastError = error.what();
    } catch (...) {
        tLastError = "unknown error";
    }
    return nullptr;
}

void KV_CloseResourceFile(KV_ResourceFile* iResourceFile) {
    const Guard guard(StateMutex());
    Services().resourceFiles.Remove(iResourceFile);
}

// The plug-in converts what it gets in place, so each call hands out a private copy.
void* KV_GetResource(KV_ResourceFile* iResourceFile, uint32_t iResourceType, int iResourceID,
                     int32_t* oResourceSize) {
    if (oResourceSize != nullptr) *oResourceSize = 0;
    try {
        const Guard guard(StateMutex());
        auto& state = Services();
        const auto* file = state.resourceFiles.Find(iResourceFile);
        if (file == nullptr || iResourceID < std::numeric_limits<int16_t>::min() ||
            iResourceID > std::numeric_limits<int16_t>::max())
            return nullptr;
        const auto* resource = file->contents.Find(iResourceType, int16_t(iResourceID));
        if (resource == nullptr || resource->data.size() > size_t(std::numeric_limits<int32_t>::max())) return nullptr;

        std::unique_ptr<void, vellux::host::FreeBytes> copy(std::malloc(resource->data.empty() ? 1 : resource->data.size()));
        if (copy == nullptr) return nullptr;
        if (!resource->data.empty()) std::memcpy(copy.get(), resource->data.data(), resource->data.size());
        void* bytes = copy.get();
        state.copies.emplace(bytes, std::move(copy));
        if (oResourceSize != nullptr) *oResourceSize = int32_t(resource->data.size());
        return bytes;
    } catch (...) {
        return nullptr;
    }
}

void KV_ReleaseResource(void* iResource) {
    const Guard guard(StateMutex());
    Services().copies.erase(iResource);
}

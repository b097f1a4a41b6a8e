// The host's file and resource services, exported under their plain names so that a plug-in's
// lookups find them: KV_GetHomeDirectory, KV_MakeFileRef, KV_DestroyFileRef,
// KV_DestroyDirectoryRef, KV_OpenResourceFile, KV_CloseResourceFile, KV_GetResource,
// KV_ReleaseResource (signatures: kit/host_services.def).
//
// The home directory is the folder of the running program unless set; the flare tables are
// installed there. A file name may be answered by another file (the --table option): the plug-in
// still asks for "Vellux.rsc", and gets the file the artist chose.
#ifndef VELLUX_HOST_RESOURCE_SERVICES_H
#define VELLUX_HOST_RESOURCE_SERVICES_H

#include <filesystem>
#include <string>

namespace vellux::host {

void SetHomeDirectory(const std::filesystem::path& directory);
std::filesystem::path HomeDirectory();

// `name` in the home directory is answered by `file`; an empty path removes the substitution.
void SetFileSubstitute(const std::string& name, const std::filesystem::path& file);

// Bookkeeping a host must get right, visible to tests: references and copies not yet released.
struct ServiceCounts {
    int directoryRefs = 0;
    int fileRefs = 0;
    int openResourceFiles = 0;
    int resourceCopies = 0;
};
ServiceCounts LiveServiceObjects();

// The last error a resource file gave when it was opened (empty when it opened), for messages.
std::string LastResourceFileError();

}  // namespace vellux::host

#endif  // VELLUX_HOST_RESOURCE_SERVICES_H

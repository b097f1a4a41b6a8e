// The file and resource services as C functions, for the host library and its tests. They are
// declared here rather than through kit/host_services.h because that header gives the same names
// to the plug-in's C++ forwarding entries. resource_services.cpp checks each signature against
// kit/host_services.def at compile time.
#ifndef VELLUX_HOST_RESOURCE_SERVICES_PVT_H
#define VELLUX_HOST_RESOURCE_SERVICES_PVT_H

#include <cstdint>

#include "kit/host_service_types.h"

#ifndef VELLUX_HOST_EXPORT
#define VELLUX_HOST_EXPORT __attribute__((visibility("default")))
#endif

extern "C" {
VELLUX_HOST_EXPORT KV_DirectoryRef* KV_GetHomeDirectory();
VELLUX_HOST_EXPORT void KV_DestroyDirectoryRef(KV_DirectoryRef* iDirectoryRef);
VELLUX_HOST_EXPORT KV_FileRef* KV_MakeFileRef(const KV_DirectoryRef* iDirectoryRef, const char* iNameString,
                                              uint32_t iFileType, const char* iExtensionString);
VELLUX_HOST_EXPORT void KV_DestroyFileRef(KV_FileRef* iFileRef);
VELLUX_HOST_EXPORT KV_ResourceFile* KV_OpenResourceFile(const KV_FileRef* iFileRef);
VELLUX_HOST_EXPORT void KV_CloseResourceFile(KV_ResourceFile* iResourceFile);
VELLUX_HOST_EXPORT void* KV_GetResource(KV_ResourceFile* iResourceFile, uint32_t iResourceType, int iResourceID,
                                        int32_t* oResourceSize);
VELLUX_HOST_EXPORT void KV_ReleaseResource(void* iResource);
}

#endif  // VELLUX_HOST_RESOURCE_SERVICES_PVT_H

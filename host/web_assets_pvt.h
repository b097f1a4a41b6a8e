// The settings dialog's page (web/dialog.html, dialog.css, dialog.js) as the build embedded it
// (cmake/EmbedWebAssets.cmake), so that the web runner needs no files at run time.
#ifndef VELLUX_HOST_WEB_ASSETS_PVT_H
#define VELLUX_HOST_WEB_ASSETS_PVT_H

#include <span>
#include <string_view>

namespace vellux::host {

struct WebAsset {
    std::string_view name;          // the file name, e.g. "dialog.js"
    std::string_view contentType;   // with its charset
    std::string_view body;
};

std::span<const WebAsset> WebAssets();

}  // namespace vellux::host

#endif  // VELLUX_HOST_WEB_ASSETS_PVT_H

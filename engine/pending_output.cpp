#include "engine/pending_output.h"

#include "host/resource_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace vellux::engine {

namespace {

[[noreturn]] void Fail(const std::filesystem::path& target, const std::string& doing) {
    throw std::runtime_error(target.string() + ": cannot " + doing + ": " + std::strerror(errno));
}

}  // namespace

PendingOutput::PendingOutput(std::filesystem::path target) : target_(std::move(target)) {
    const std::filesystem::path directory = target_.parent_path().empty() ? "." : target_.parent_path();
    // A missing output folder is made, as image tools do; it stays even when the write fails.
    std::error_code made;
    std::filesystem::create_directories(directory, made);
    if (made) throw std::runtime_error(target_.string() + ": cannot create the folder " + directory.string() + ": " + made.message());
    std::string pattern = (directory / ("." + target_.filename().string() + ".XXXXXX")).string();
    const int fd = mkstemp(pattern.data());
    if (fd < 0) Fail(target_, "create a temporary file in " + directory.string());
    close(fd);
    temporary_ = pattern;
}

PendingOutput::~PendingOutput() {
    if (!committed_) unlink(temporary_.c_str());
}

void PendingOutput::Commit() {
    if (chmod(temporary_.c_str(), mode_t(rsc::PermissionsFor(target_))) != 0) Fail(target_, "set the permissions of " + temporary_.string());
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) Fail(target_, "rename " + temporary_.string() + " over it");
    committed_ = true;
}

}  // namespace vellux::engine

// An output file written under a temporary name beside its final place and renamed over it only
// when everything went well, so that a failed or interrupted run leaves neither a partial file
// nor a temporary one, and an existing file untouched.
#ifndef VELLUX_ENGINE_PENDING_OUTPUT_H
#define VELLUX_ENGINE_PENDING_OUTPUT_H

#include <filesystem>

namespace vellux::engine {

class PendingOutput {
public:
    // Creates the temporary file (".NAME.XXXXXX" in the target's folder, made first if missing);
    // throws naming the target.
    explicit PendingOutput(std::filesystem::path target);
    ~PendingOutput();   // removes the temporary file unless committed
    PendingOutput(const PendingOutput&) = delete;
    PendingOutput& operator=(const PendingOutput&) = delete;

    const std::filesystem::path& temporary() const { return temporary_; }

    // Gives the file the target's permissions (a new file's: 0666 less the umask) and renames it
    // over the target.
    void Commit();

private:
    std::filesystem::path target_;
    std::filesystem::path temporary_;
    bool committed_ = false;
};

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_PENDING_OUTPUT_H

#include "engine/row_parts.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace vellux::engine {

std::vector<Band> RowParts(Band rows, int32_t threads, int32_t leastRows) {
    if (threads < 0) throw std::invalid_argument("threads: " + std::to_string(threads) + " must be at least 0 (0: every core)");
    const int32_t height = std::max(0, rows.bottom - rows.top);
    const int32_t cores = threads > 0 ? threads : int32_t(std::max(1u, std::thread::hardware_concurrency()));
    const int32_t count = std::clamp(height / std::max(1, leastRows), 1, cores);
    std::vector<Band> parts;
    for (int32_t i = 0; i < count; ++i)
        parts.push_back({rows.top + int32_t(int64_t(height) * i / count), rows.top + int32_t(int64_t(height) * (i + 1) / count)});
    return parts;
}

void ForRowParts(Band rows, int32_t threads, int32_t leastRows, const std::function<void(Band)>& work) {
    const std::vector<Band> parts = RowParts(rows, threads, leastRows);
    std::mutex mutex;
    std::exception_ptr failure;
    const auto run = [&](Band part) {
        try {
            work(part);
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    };
    std::vector<std::thread> started;
    size_t p = 1;
    try {
        for (; p < parts.size(); ++p) started.emplace_back(run, parts[p]);
    } catch (const std::system_error&) {
        // no more threads: the calling thread takes the parts left
    }
    run(parts[0]);
    for (size_t left = p; left < parts.size(); ++left) run(parts[left]);
    for (std::thread& thread : started) thread.join();
    if (failure) std::rethrow_exception(failure);
}

}  // namespace vellux::engine

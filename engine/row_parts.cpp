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
    ForEachRowPart(RowParts(rows, threads, leastRows), [&work](size_t, Band part) { work(part); });
}

void ForEachRowPart(const std::vector<Band>& parts, const std::function<void(size_t, Band)>& work) {
    if (parts.empty()) return;
    std::mutex mutex;
    std::exception_ptr failure;
    const auto run = [&](size_t p) {
        try {
            work(p, parts[p]);
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    };
    std::vector<std::thread> started;
    size_t p = 1;
    try {
        for (; p < parts.size(); ++p) started.emplace_back(run, p);
    } catch (const std::system_error&) {
        // no more threads: the calling thread takes the parts left
    }
    run(0);
    for (size_t left = p; left < parts.size(); ++left) run(left);
    for (std::thread& thread : started) thread.join();
    if (failure) std::rethrow_exception(failure);
}

}  // namespace vellux::engine

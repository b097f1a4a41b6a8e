#include "engine/closest_match.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace vellux::engine {

namespace {

// Levenshtein distance, one row at a time.
size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t(0));
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) == std::tolower(static_cast<unsigned char>(b[j - 1]));
            const size_t next = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = row[j];
            row[j] = next;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string ClosestMatch(const std::string& given, const std::vector<std::string>& names) {
    const size_t limit = std::max<size_t>(2, given.size() / 3);
    std::string best;
    size_t bestDistance = limit + 1;
    for (const std::string& name : names) {
        const size_t distance = EditDistance(given, name);
        if (distance < bestDistance) best = name, bestDistance = distance;
    }
    return best;
}

}  // namespace vellux::engine

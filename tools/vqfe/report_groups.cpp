#include "tools/vqfe/report_groups.h"

#include <algorithm>
#include <set>
#include <utility>

namespace vqfe {
namespace {

// The last count parts of path ("a/b/c.jpg", 2: "b/c.jpg"); all of it when it has fewer.
std::string ending(const std::string& path, size_t count) {
    size_t start = path.size();
    for (size_t i = 0; i < count; ++i) {
        const size_t slash = start == 0 ? std::string::npos : path.rfind('/', start - 1);
        if (slash == std::string::npos) return path;
        start = slash;
    }
    return path.substr(start + 1);
}

}  // namespace

std::map<std::string, std::string> shortNames(const std::vector<std::string>& paths) {
    const std::set<std::string> unique(paths.begin(), paths.end());
    std::map<std::string, std::string> names;
    std::vector<std::string> open(unique.begin(), unique.end());
    // One more part each round, counted over every path, for the paths not yet told apart.
    for (size_t count = 1; !open.empty(); ++count) {
        std::map<std::string, size_t> endings;
        for (const std::string& path : unique) ++endings[ending(path, count)];
        std::vector<std::string> still;
        for (const std::string& path : open) {
            const std::string candidate = ending(path, count);
            if (candidate == path || endings[candidate] == 1) names[path] = candidate;
            else still.push_back(path);
        }
        open = std::move(still);
    }
    return names;
}

std::vector<std::vector<std::string>> beyondCopies(const std::vector<std::vector<std::string>>& similar,
                                                   const std::vector<std::vector<std::string>>& copies) {
    const std::set<std::vector<std::string>> known(copies.begin(), copies.end());
    std::vector<std::vector<std::string>> found;
    for (const auto& group : similar) {
        if (!known.count(group)) found.push_back(group);
    }
    return found;
}

}  // namespace vqfe

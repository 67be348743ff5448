#include "tools/vqfe/summary.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace vqfe {

void Summary::add(const std::string& path, const BlobMap& blobs, bool fromStore, double milliseconds,
                  const std::string& error) {
    if (!wanted_) return;
    DecodedBlobs decoded(blobs);
    Row row;
    row.path = path;
    if (const auto* faces = decoded.faces()) row.faces = static_cast<int>(faces->n_m_facebaseinfos);
    if (const auto* pets = decoded.pets()) row.pets = static_cast<int>(pets->n_m_facepetinfos);
    if (const auto* skeleton = decoded.skeleton()) row.skeletons = static_cast<int>(skeleton->n_m_skeletoninfos);
    for (const auto& parts : decoded.faceCaptions()) {
        if (parts.empty()) continue;
        row.faceCaptions += row.faceCaptions.empty() ? "" : "; ";
        for (size_t i = 0; i < parts.size(); ++i) row.faceCaptions += (i ? ", " : "") + parts[i];
    }
    row.people = decoded.peopleCue();
    // "name 0.87, name 0.52": the entries shown, by their display names.
    auto list = [](const std::vector<std::pair<std::string, float>>& entries, std::string& out) {
        for (const auto& entry : entries) out += (out.empty() ? "" : ", ") + DecodedBlobs::shownText(entry);
    };
    list(decoded.topLabels(3), row.labels);
    list(decoded.extraClasses(), row.classes);
    row.fromStore = fromStore;
    row.milliseconds = milliseconds;
    row.error = error;
    std::lock_guard<std::mutex> lock(mutex_);
    rows_.push_back(row);
}

void Summary::addFailure(const std::string& path, const std::string& error) {
    if (!wanted_) return;
    Row row;
    row.path = path;
    row.read = false;
    row.error = error;
    std::lock_guard<std::mutex> lock(mutex_);
    rows_.push_back(row);
}

void Summary::print(std::ostream& out, double seconds) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Row> rows = rows_;
    std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.path < b.path; });
    int fromStore = 0, failed = 0;
    for (const Row& row : rows) {
        char line[512];
        const std::string name = std::filesystem::path(row.path).filename().string();
        if (row.read) {
            std::snprintf(line, sizeof line, "%-28s %9.1f ms  %-6s", name.c_str(), row.milliseconds,
                          row.fromStore ? "store" : "ran");
        } else {
            std::snprintf(line, sizeof line, "%-28s %12s  %-6s", name.c_str(), "", "failed");
        }
        out << line;
        if (row.faces >= 0) out << "  faces: " << row.faces;
        if (!row.faceCaptions.empty()) out << " (" << row.faceCaptions << ")";
        if (row.pets >= 0) out << "  pet faces: " << row.pets;
        if (row.skeletons >= 0) out << "  skeletons: " << row.skeletons;
        if (row.people) {
            char cue[32];
            std::snprintf(cue, sizeof cue, "  people: %.2f", *row.people);
            out << cue;
        }
        if (!row.classes.empty()) out << "  classes: " << row.classes;
        if (!row.labels.empty()) out << "  labels: " << row.labels;
        if (!row.error.empty()) out << "  error: " << row.error;
        out << "\n";
        fromStore += row.fromStore;
        failed += !row.error.empty();
    }
    char totals[256];
    std::snprintf(totals, sizeof totals,
                  "%zu images in %.2f s (%.1f ms per image), %d answered from the store, %d with errors\n",
                  rows.size(), seconds, rows.empty() ? 0.0 : 1000.0 * seconds / rows.size(), fromStore, failed);
    out << totals;
}

}  // namespace vqfe

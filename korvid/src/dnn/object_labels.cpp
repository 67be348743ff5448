#include "dnn/object_labels.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace kv {

namespace {

[[noreturn]] void malformed(const ModelBlob& blob, const std::string& line) {
    throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\": bad object label row \"" + line + "\"");
}

bool number(const std::string& text, size_t& out) {
    if (text.empty() || text.size() > 6 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    out = std::stoul(text);
    return true;
}

bool fraction(const std::string& text, double& out) {
    if (text.empty() || text.size() > 8 || text.find_first_not_of("0123456789.") != std::string::npos) return false;
    char* end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && out >= 0 && out <= 1;
}

int cocoIndex(const std::string& name) {
    for (int c = 0; !cocoClassName(c).empty(); ++c) {
        if (cocoClassName(c) == name) return c;
    }
    return -1;
}

}  // namespace

ObjectLabels ObjectLabels::parse(const ModelBlob& blob) {
    ObjectLabels labels;
    std::istringstream in(std::string(reinterpret_cast<const char*>(blob.data), blob.size));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#' || line.rfind("index\t", 0) == 0) continue;
        std::vector<std::string> fields;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');) fields.push_back(cell);
        size_t index = 0;
        Row row;
        if ((fields.size() != 4 && fields.size() != 6) || !number(fields[0], index)) malformed(blob, line);
        if (fields.size() == 6 && (!fraction(fields[4], row.shownFrom) || !fraction(fields[5], row.leastShare) || row.shownFrom == 0 ||
                                   row.shownFrom == 1)) {
            malformed(blob, line);
        }
        const std::string& count = fields[2];
        const size_t dash = count.find('-');
        if (!count.empty() && count.back() == '+') {
            if (!number(count.substr(0, count.size() - 1), row.least)) malformed(blob, line);
        } else if (dash == std::string::npos || !number(count.substr(0, dash), row.least) || !number(count.substr(dash + 1), row.most) ||
                   row.most < row.least) {
            malformed(blob, line);
        }
        if (row.least == 0) malformed(blob, line);
        std::istringstream names(fields[3]);
        for (std::string name; std::getline(names, name, ',');) {
            const int c = cocoIndex(name);
            if (c < 0) malformed(blob, line);
            row.classes.push_back(c);
        }
        if (row.classes.empty() || !labels.rows_.emplace(index, row).second) malformed(blob, line);
    }
    if (labels.rows_.empty()) throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" has no object labels");
    return labels;
}

bool ObjectLabels::countsPersons(size_t classIndex) const {
    const auto it = rows_.find(classIndex);
    return it != rows_.end() && std::find(it->second.classes.begin(), it->second.classes.end(), kCocoPerson) != it->second.classes.end();
}

double shownConfidence(double score, double shownFrom) {
    if (score < shownFrom) return kShownClass * score / shownFrom;
    return kShownClass + (1 - kShownClass) * (score - shownFrom) / (1 - shownFrom);
}

double ObjectLabels::probability(size_t classIndex, const std::vector<ObjectDetection>& objects, cv::Size imageSize) const {
    auto it = rows_.find(classIndex);
    if (it == rows_.end()) return 0;
    const Row& row = it->second;
    const double area = std::max(1.0, static_cast<double>(imageSize.area()));
    std::vector<float> scores;  // objects come best first
    for (const ObjectDetection& o : objects) {
        if (std::find(row.classes.begin(), row.classes.end(), o.cocoClass) != row.classes.end() && o.box.area() / area >= row.leastShare) {
            scores.push_back(o.score);
        }
    }
    const auto counted = static_cast<size_t>(std::count_if(scores.begin(), scores.end(), [](float s) { return s >= kCountedScore; }));
    double score = 0;
    if (row.least == 1 && row.most == 0) score = scores.empty() ? 0 : scores[0];
    else if (counted >= row.least && (row.most == 0 || counted <= row.most)) score = scores[row.least - 1];
    return row.shownFrom > 0 && score > 0 ? shownConfidence(score, row.shownFrom) : score;
}

}  // namespace kv

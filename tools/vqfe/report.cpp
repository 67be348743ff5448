#include "tools/vqfe/report.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <stdexcept>
#include <tuple>

#include "encoding/display_names.h"
#include "library/decoded_blobs.h"
#include "library/duplicates.h"
#include "tools/vqfe/annotate.h"
#include "tools/vqfe/counted.h"
#include "tools/vqfe/report_groups.h"

namespace vqfe {
namespace {

namespace fs = std::filesystem;

// Marks a folder as a report of ours: only such a folder (or an empty one) is written to.
constexpr const char* kMarker = ".vqfe-report";

const char* const kStyle =
    "body{font-family:sans-serif;margin:1.5em;color:#222}"
    "a{color:#0645ad;text-decoration:none}"
    ".grid{display:flex;flex-wrap:wrap;gap:10px}"
    ".card{width:170px;font-size:13px;word-break:break-all}"
    ".card img{max-width:160px;max-height:160px;display:block}"
    ".face img{width:96px;height:96px;object-fit:cover}"
    ".group{display:flex;gap:10px;margin:0 0 1em;padding:6px;border:1px solid #ccc}"
    ".photo{position:relative;display:inline-block}"
    ".photo img{max-width:800px;display:block}"
    ".box{position:absolute;border:2px solid #f33}"
    ".box span{background:#f33;color:#fff;font-size:12px;padding:0 3px}"
    "table{border-collapse:collapse}td,th{border:1px solid #ccc;padding:2px 8px;text-align:left}";

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&#39;"; break;
        default: out += c;
        }
    }
    return out;
}

bool isSymlink(const fs::path& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

// Creates dir and dir/img, or checks that they are ours. Throws before writing anything
// when dir is not a report folder.
void prepareFolder(const fs::path& dir) {
    if (isSymlink(dir)) throw std::runtime_error(dir.string() + " is a symbolic link; give the folder itself");
    if (fs::exists(dir)) {
        if (!fs::is_directory(dir)) throw std::runtime_error(dir.string() + " exists and is not a folder");
        if (!fs::is_empty(dir) && !fs::is_regular_file(dir / kMarker)) {
            throw std::runtime_error(dir.string() + " exists and is not a report of vqfe (no " + kMarker +
                                     "); give a new or empty folder");
        }
    }
    fs::create_directories(dir);
    if (isSymlink(dir / "img") || (fs::exists(dir / "img") && !fs::is_directory(dir / "img"))) {
        throw std::runtime_error((dir / "img").string() + " is not a folder of the report");
    }
    fs::create_directories(dir / "img");
    std::ofstream(dir / kMarker) << "written by vqfe report\n";
}

// Writes a file of the report, never through a link to somewhere else.
void writeFile(const fs::path& path, const std::string& text) {
    if (isSymlink(path)) throw std::runtime_error(path.string() + " is a symbolic link; not written");
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

bool writeImage(const fs::path& path, const cv::Mat& image) {
    if (image.empty() || isSymlink(path)) return false;
    return cv::imwrite(path.string(), image, {cv::IMWRITE_JPEG_QUALITY, 85});
}

cv::Mat fitted(const cv::Mat& image, int side) {
    const double scale = std::min(1.0, static_cast<double>(side) / std::max(image.cols, image.rows));
    cv::Mat out;
    cv::resize(image, out, cv::Size(), scale, scale, cv::INTER_AREA);
    return out;
}

std::string page(const std::string& title, const std::string& body) {
    return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>" + escaped(title) +
           "</title><link rel=\"icon\" href=\"data:,\"><style>" + kStyle + "</style></head><body>\n<p><a href=\"index.html\">"
           "Overview</a></p>\n<h1>" + escaped(title) + "</h1>\n" + body + "</body></html>\n";
}

std::string formatTime(long long seconds) {
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&time, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &utc);
    return text;
}

struct PhotoInfo {
    const VQFeature::IndexedImage* image = nullptr;
    std::string name;       // what the page calls it
    bool thumbnail = false; // img/<asset>.jpg exists
    bool large = false;     // img/<asset>-large.jpg exists
    bool annotated = false; // img/<asset>-drawn.png exists
    std::vector<const VQFeature::IndexedFace*> faces;
    std::vector<std::pair<std::string, float>> labels;
};

class ReportWriter {
public:
    ReportWriter(PhotoLibrary& library, const fs::path& dir, const std::string& pictures)
        : library_(library), dir_(dir), pictures_(pictures) {}

    std::string write() {
        prepareFolder(dir_);
        people_ = library_.people();
        snapshot_ = library_.index().snapshot(false);
        duplicates_ = PhotoLibrary::duplicates(false, snapshot_.images);
        similar_ = PhotoLibrary::duplicates(true, snapshot_.images);
        similarOnly_ = beyondCopies(similar_, duplicates_);
        collectPhotos();
        writeImages();
        for (const auto& [asset, info] : photos_) writePhotoPage(asset, info);
        for (const Person& person : people_) writePersonPage(person);
        writeLabelPages();
        writeIndex();
        return (dir_ / "index.html").string();
    }

private:
    void collectPhotos() {
        for (const auto& image : snapshot_.images) {
            PhotoInfo& info = photos_[image.record.assetId];
            info.image = &image;
            info.name = displayPath(image.record);
            byName_[info.name] = image.record.assetId;
            for (const auto& path : image.paths) byName_[path] = image.record.assetId;
        }
        for (const auto& face : snapshot_.faces) {
            if (photos_.count(face.assetId)) photos_[face.assetId].faces.push_back(&face);
        }
        // Labels by their display names (a scene label and a class may share one: "sky"),
        // and only those the summary and the pictures show too.
        for (const auto& label : snapshot_.labels) {
            if (!photos_.count(label.assetId) || !DecodedBlobs::shown(label.score)) continue;
            const std::string name = VQFeature::displayName(label.name);
            auto& labels = photos_[label.assetId].labels;
            auto same = std::find_if(labels.begin(), labels.end(), [&](const auto& known) { return known.first == name; });
            if (same == labels.end()) labels.emplace_back(name, label.score);
            else same->second = std::max(same->second, label.score);
            labelPhotos_[name].emplace_back(label.assetId, label.score);
        }
        for (const auto& person : snapshot_.persons) personNames_[person.id] = person.name;
        std::vector<std::string> names;
        for (const auto& [name, asset] : byName_) names.push_back(name);
        shortNames_ = shortNames(names);
    }

    // What a card or title calls a path: enough of it to tell it from the others.
    std::string shortName(const std::string& name) {
        const auto found = shortNames_.find(name);
        return found == shortNames_.end() ? name : found->second;
    }

    // The photos of the report in the order of their names.
    std::vector<std::string> assetsByName() {
        std::vector<std::string> assets;
        for (const auto& [asset, info] : photos_) assets.push_back(asset);
        std::sort(assets.begin(), assets.end(), [&](const std::string& a, const std::string& b) {
            return std::make_pair(shortName(photos_[a].name), a) < std::make_pair(shortName(photos_[b].name), b);
        });
        return assets;
    }

    void writeImages() {
        for (auto& [asset, info] : photos_) {
            const std::string& path = info.image->record.path;
            cv::Mat image = path.empty() ? cv::Mat() : cv::imread(path, cv::IMREAD_COLOR);
            if (!image.empty()) {
                info.thumbnail = writeImage(dir_ / "img" / (asset + ".jpg"), fitted(image, 160));
                info.large = writeImage(dir_ / "img" / (asset + "-large.jpg"), fitted(image, 800));
                for (const auto* face : info.faces) writeFace(image, *face);
            }
            if (!pictures_.empty() && !path.empty()) {
                const fs::path drawn = fs::path(pictures_) / drawnPictureName(path, asset);
                cv::Mat picture = fs::is_regular_file(drawn) ? cv::imread(drawn.string()) : cv::Mat();
                info.annotated = !picture.empty() && !isSymlink(dir_ / "img" / (asset + "-drawn.png")) &&
                                 cv::imwrite((dir_ / "img" / (asset + "-drawn.png")).string(), fitted(picture, 800));
            }
        }
    }

    void writeFace(const cv::Mat& image, const VQFeature::IndexedFace& face) {
        // A little margin around the box, clipped to the picture.
        const float margin = 0.25f;
        const float x = face.box[0] - margin * face.box[2], y = face.box[1] - margin * face.box[3];
        const float w = face.box[2] * (1 + 2 * margin), h = face.box[3] * (1 + 2 * margin);
        cv::Rect rect(static_cast<int>(x * image.cols), static_cast<int>(y * image.rows),
                      static_cast<int>(w * image.cols), static_cast<int>(h * image.rows));
        rect &= cv::Rect(0, 0, image.cols, image.rows);
        if (rect.area() <= 0) return;
        if (writeImage(dir_ / "img" / faceFile(face), fitted(image(rect), 96))) faceImages_.insert(faceFile(face));
    }

    static std::string faceFile(const VQFeature::IndexedFace& face) {
        return face.assetId + "-face" + std::to_string(face.index) + ".jpg";
    }
    static std::string photoPage(const std::string& asset) { return "photo-" + asset + ".html"; }
    static std::string personPage(long long id) { return "person-" + std::to_string(id) + ".html"; }
    std::string labelPage(const std::string& label) {
        auto found = labelIds_.emplace(label, labelIds_.size());
        return "label-" + std::to_string(found.first->second) + ".html";
    }
    std::string personTitle(long long id) {
        const std::string& name = personNames_[id];
        return name.empty() ? "Person " + std::to_string(id) : name + " (person " + std::to_string(id) + ")";
    }

    // A photo's card: its thumbnail (or its name when the file could not be read).
    std::string card(const std::string& asset, const std::string& name = "", const std::string& note = "") {
        const PhotoInfo& info = photos_[asset];
        const std::string shown = name.empty() ? info.name : name;
        std::string html = "<div class=\"card\"><a href=\"" + photoPage(asset) + "\">";
        if (info.thumbnail) html += "<img src=\"img/" + asset + ".jpg\" alt=\"" + escaped(shown) + "\">";
        return html + escaped(shortName(shown)) + "</a>" + escaped(note) + "</div>";
    }

    std::string groups(const std::vector<std::vector<std::string>>& found) {
        std::string html;
        for (const auto& group : found) {
            html += "<div class=\"group\">";
            for (const auto& name : group) html += card(byName_[name], name);
            html += "</div>\n";
        }
        return html.empty() ? "<p>None.</p>\n" : html;
    }

    void writePhotoPage(const std::string& asset, const PhotoInfo& info) {
        const auto& record = info.image->record;
        std::string body = "<div class=\"photo\">";
        if (info.large) body += "<img src=\"img/" + asset + "-large.jpg\" alt=\"" + escaped(info.name) + "\">";
        else body += "<p>(the file could not be read)</p>";
        for (const auto* face : info.faces) {
            char style[160];
            std::snprintf(style, sizeof style, "left:%.2f%%;top:%.2f%%;width:%.2f%%;height:%.2f%%", 100 * face->box[0],
                          100 * face->box[1], 100 * face->box[2], 100 * face->box[3]);
            body += std::string("<div class=\"box\" style=\"") + style + "\">";
            if (face->person) body += "<span>" + escaped(personTitle(face->person)) + "</span>";
            body += "</div>";
        }
        body += "</div>\n";
        if (info.annotated) {
            body += "<h2>What was found</h2><p><img src=\"img/" + asset + "-drawn.png\" alt=\"annotated\"></p>\n";
        }
        std::string files;
        for (const auto& path : info.image->paths) files += (files.empty() ? "" : "<br>") + escaped(path);
        if (files.empty()) files = escaped(record.path.empty() ? "(unknown)" : record.path);
        body += std::string("<table><tr><th>") + (info.image->paths.size() > 1 ? "Files (identical)" : "File") +
                "</th><td>" + files + "</td></tr><tr><th>Content digest</th><td>" + asset + "</td></tr><tr><th>Size</th><td>" +
                std::to_string(record.width) + " x " + std::to_string(record.height) + " px, " +
                std::to_string(record.bytes) + " bytes</td></tr><tr><th>Analysed</th><td>" +
                formatTime(record.analysedAt) + "</td></tr><tr><th>Faces</th><td>" +
                (info.image->faces < 0 ? std::string("not analysed") : std::to_string(info.image->faces));
        for (const auto* face : info.faces) {
            if (face->person) body += " <a href=\"" + personPage(face->person) + "\">" + escaped(personTitle(face->person)) + "</a>";
        }
        body += "</td></tr><tr><th>Labels</th><td>";
        auto labels = info.labels;
        std::sort(labels.begin(), labels.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
        for (size_t i = 0; i < labels.size(); ++i) {
            char text[32];
            std::snprintf(text, sizeof text, " %.2f", labels[i].second);
            body += std::string(i ? "; " : "") + "<a href=\"" + labelPage(labels[i].first) + "\">" +
                    escaped(labels[i].first) + "</a>" + text;
        }
        if (labels.empty()) body += "none found";
        body += "</td></tr></table>\n";
        // Copies: the other photos of its copy group (its own other paths are in the table);
        // similar photos: those of its similar group that are not copies of it.
        std::set<std::string> notSimilar = groupMates(duplicates_, asset);
        notSimilar.insert(asset);
        body += others("Copies", duplicates_, asset, {asset});
        body += others("Similar photos", similar_, asset, notSimilar);
        writeFile(dir_ / photoPage(asset), page(shortName(info.name), body));
    }

    // The other photos (assets) of the groups that hold asset.
    std::set<std::string> groupMates(const std::vector<std::vector<std::string>>& found, const std::string& asset) {
        std::set<std::string> mates;
        for (const auto& group : found) {
            if (std::none_of(group.begin(), group.end(), [&](const std::string& name) { return byName_[name] == asset; })) {
                continue;
            }
            for (const auto& name : group) mates.insert(byName_[name]);
        }
        mates.erase(asset);
        return mates;
    }

    // A section of the photos grouped with asset, one card per path, leaving out the assets
    // in left.
    std::string others(const std::string& title, const std::vector<std::vector<std::string>>& found,
                       const std::string& asset, const std::set<std::string>& left) {
        std::vector<std::string> names;
        for (const auto& group : found) {
            if (std::none_of(group.begin(), group.end(), [&](const std::string& name) { return byName_[name] == asset; })) {
                continue;
            }
            for (const auto& name : group) {
                if (!left.count(byName_[name])) names.push_back(name);
            }
        }
        if (names.empty()) return "";
        std::string html = "<h2>" + escaped(title) + "</h2>\n<div class=\"group\">";
        for (const auto& name : names) html += card(byName_[name], name);
        return html + "</div>\n";
    }

    void writePersonPage(const Person& person) {
        std::string body = "<div class=\"grid\">";
        for (const auto& face : snapshot_.faces) {
            if (face.person != person.id) continue;
            body += "<div class=\"card face\"><a href=\"" + photoPage(face.assetId) + "\">";
            if (faceImages_.count(faceFile(face))) body += "<img src=\"img/" + faceFile(face) + "\" alt=\"face\">";
            body += escaped(shortName(photos_[face.assetId].name)) + "</a></div>";
        }
        body += "</div>\n";
        writeFile(dir_ / personPage(person.id), page(personTitle(person.id), body));
    }

    void writeLabelPages() {
        for (auto& [label, scored] : labelPhotos_) {
            // Best first, each photo once (a scene label and a class may share the name).
            std::sort(scored.begin(), scored.end(), [&](const auto& a, const auto& b) {
                return std::make_tuple(-a.second, shortName(photos_[a.first].name), a.first) <
                       std::make_tuple(-b.second, shortName(photos_[b.first].name), b.first);
            });
            std::set<std::string> seen;
            std::string body = "<p>Best score first.</p>\n<div class=\"grid\">";
            for (const auto& [asset, score] : scored) {
                char text[16];
                std::snprintf(text, sizeof text, " %.2f", score);
                if (seen.insert(asset).second) body += card(asset, "", text);
            }
            body += "</div>\n";
            writeFile(dir_ / labelPage(label), page("Label: " + label, body));
        }
    }

    void writeIndex() {
        std::string body = "<p>" + counted(photos_.size(), "photo", "photos") + ", " +
                           counted(people_.size(), "person", "people") + ", " +
                           counted(duplicates_.size(), "group", "groups") + " of copies, " +
                           counted(similarOnly_.size(), "group", "groups") + " of similar photos. Store: " +
                           escaped(library_.store()) + "</p>\n<h2>People</h2>\n<div class=\"grid\">";
        for (const Person& person : people_) {
            body += "<div class=\"card face\"><a href=\"" + personPage(person.id) + "\">";
            for (const auto& face : snapshot_.faces) {
                if (face.person == person.id && faceImages_.count(faceFile(face))) {
                    body += "<img src=\"img/" + faceFile(face) + "\" alt=\"face\">";
                    break;
                }
            }
            body += escaped(personTitle(person.id)) + ", " + counted(person.faces.size(), "face", "faces") + "</a></div>";
        }
        body += "</div>\n<h2>Copies of the same photo</h2>\n" + groups(duplicates_);
        body += "<h2>Similar photos</h2>\n<p>The same scene a little zoomed, panned or cropped, with its copies.</p>\n" +
                groups(similarOnly_);
        body += "<h2>Labels</h2>\n<table><tr><th>Label</th><th>Photos</th></tr>";
        for (const auto& [label, scored] : labelPhotos_) {
            std::set<std::string> assets;
            for (const auto& entry : scored) assets.insert(entry.first);
            body += "<tr><td><a href=\"" + labelPage(label) + "\">" + escaped(label) + "</a></td><td>" +
                    std::to_string(assets.size()) + "</td></tr>";
        }
        body += "</table>\n<h2>All photos</h2>\n<div class=\"grid\">";
        for (const auto& asset : assetsByName()) body += card(asset);
        body += "</div>\n";
        writeFile(dir_ / "index.html", page("Photo library", body));
    }

    PhotoLibrary& library_;
    fs::path dir_;
    std::string pictures_;
    std::vector<Person> people_;
    VQFeature::IndexSnapshot snapshot_;
    std::vector<std::vector<std::string>> duplicates_, similar_;
    std::vector<std::vector<std::string>> similarOnly_;  // similar groups that are more than copies
    std::map<std::string, PhotoInfo> photos_;          // by asset id
    std::map<std::string, std::string> byName_;        // display path to asset id
    std::map<std::string, std::vector<std::pair<std::string, float>>> labelPhotos_;  // asset, score
    std::map<std::string, std::string> shortNames_;   // display path to its name on cards
    std::map<std::string, size_t> labelIds_;
    std::map<long long, std::string> personNames_;
    std::set<std::string> faceImages_;
};

}  // namespace

std::string writeReport(PhotoLibrary& library, const std::string& dir, const std::string& pictures) {
    return ReportWriter(library, fs::absolute(dir).lexically_normal(), pictures).write();
}

}  // namespace vqfe

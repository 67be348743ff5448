#include "library/photo_library.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "cache/pg_cache.h"
#include "cache/sqlite_cache.h"
#include "encoding/display_names.h"
#include "library/duplicates.h"
#include "library/face_clustering.h"
#include "library/image_io.h"
#include "vantor/md5.h"

namespace vqfe {

PhotoLibrary::PhotoLibrary(const std::string& store, bool forReindex) : store_(store) {
    if (VQFeature::PgCache::isUri(store)) {
        auto pg = std::make_shared<VQFeature::PgCache>(store);
        index_ = pg.get();
        cache_ = pg;
    } else {
        struct stat info;
        if (::stat(store.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
            throw std::runtime_error("result store " + store + ": no such store file");
        }
        auto sqlite = std::make_shared<VQFeature::SqliteCache>(store);
        index_ = sqlite.get();
        cache_ = sqlite;
    }
    if (!forReindex && index_->needsReindex()) {
        throw std::runtime_error("result store " + store +
                                 ": its results were written before the store kept an index; run 'vqfe reindex --store " +
                                 store + " [IMAGE|DIR...]' once (results are kept as they are)");
    }
}

long long PhotoLibrary::reindex(const std::vector<std::string>& inputs, std::vector<std::string>* problems) {
    std::map<std::string, VQFeature::ImageRecord> known;
    for (const std::string& file : collectImages(inputs, problems)) {
        if (const std::string unfit = pathUnfitForStore(store_, file); !unfit.empty()) {
            problems->push_back(unfit);
            continue;
        }
        std::ifstream in(file, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!in && !in.eof()) {
            problems->push_back(file + ": cannot read");
            continue;
        }
        std::error_code ec;
        const std::string path = std::filesystem::absolute(file, ec).lexically_normal().string();
        VQFeature::ImageRecord record;
        record.assetId = VQFeature::md5(bytes);
        record.path = ec ? file : path;
        record.bytes = static_cast<long long>(bytes.size());
        std::string error;
        if (auto image = loadImage(file, &error); image && image->buffer) {
            record.width = image->buffer->width;
            record.height = image->buffer->height;
            if (image->truncated) problems->push_back(truncatedWarning(file));
        }
        known[record.assetId] = record;
    }
    return index_->reindex(known);
}

PeopleUpdate PhotoLibrary::updatePeople() {
    const VQFeature::IndexSnapshot snapshot = index_->snapshot(true);
    PeopleUpdate update;
    for (const auto& face : snapshot.faces) update.newFaces += face.person == 0 && !face.descriptor.empty();
    const VQFeature::PersonAssignment assignment = clusterFaces(snapshot.faces);
    update.joined = assignment.joins.size();
    update.newPersons = assignment.newPersons.size();
    if (!assignment.joins.empty() || !assignment.newPersons.empty()) index_->assignPersons(assignment);
    return update;
}

std::vector<Person> PhotoLibrary::people() {
    const VQFeature::IndexSnapshot snapshot = index_->snapshot(false);
    std::map<std::string, std::string> paths;
    for (const auto& image : snapshot.images) paths[image.record.assetId] = displayPath(image.record);
    std::map<long long, Person> byId;
    for (const auto& person : snapshot.persons) byId[person.id] = {person.id, person.name, {}};
    for (const auto& face : snapshot.faces) {
        auto person = byId.find(face.person);
        if (person == byId.end()) continue;
        auto path = paths.find(face.assetId);
        person->second.faces.push_back({path == paths.end() ? face.assetId : path->second,
                                        {face.box[0], face.box[1], face.box[2], face.box[3]}});
    }
    std::vector<Person> people;
    for (auto& [id, person] : byId) {
        if (person.faces.empty()) continue;
        std::sort(person.faces.begin(), person.faces.end(),
                  [](const PersonFace& a, const PersonFace& b) { return a.image < b.image; });
        people.push_back(std::move(person));
    }
    std::stable_sort(people.begin(), people.end(),
                     [](const Person& a, const Person& b) { return a.faces.size() > b.faces.size(); });
    return people;
}

long long PhotoLibrary::person(const std::string& idOrName) {
    if (!idOrName.empty() && std::all_of(idOrName.begin(), idOrName.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        const long long id = idOrName.size() > 18 ? -1 : std::stoll(idOrName);
        for (const auto& person : index_->snapshot(false).persons) {
            if (person.id == id) return id;
        }
        throw VQFeature::UnknownPerson("no person " + idOrName);
    }
    return index_->personNamed(idOrName);
}

std::vector<std::vector<std::string>> PhotoLibrary::duplicates(bool similar) {
    return duplicates(similar, index_->snapshot(false).images);
}

std::vector<std::vector<std::string>> PhotoLibrary::duplicates(bool similar,
                                                                const std::vector<VQFeature::IndexedImage>& images) {
    return findDuplicates(images, similar ? std::vector<DuplicateLimits>{kSamePhoto, kSimilarPhoto}
                                          : std::vector<DuplicateLimits>{kSamePhoto});
}

std::vector<std::string> PhotoLibrary::search(const std::vector<std::string>& labels, long long person, int minFaces,
                                              float minScore) {
    std::vector<std::string> paths;
    for (auto& hit : searchHits(labels, person, minFaces, minScore)) paths.push_back(std::move(hit.path));
    return paths;
}

std::vector<VQFeature::SearchHit> PhotoLibrary::searchHits(const std::vector<std::string>& labels, long long person,
                                                           int minFaces, float minScore) {
    VQFeature::SearchQuery query;
    for (const auto& label : labels) query.labels.push_back(labelNames(label));
    query.person = person;
    query.minFaces = minFaces;
    query.minScore = minScore;
    return index_->search(query);
}

std::vector<ScoreTie> scoreTies(const std::vector<VQFeature::SearchHit>& hits) {
    std::vector<ScoreTie> ties;
    for (size_t start = 0; start < hits.size();) {
        size_t end = start + 1;
        while (end < hits.size() && std::fabs(hits[end].score - hits[start].score) < 1e-5) ++end;
        if (end - start > 1) ties.push_back({end - start, static_cast<float>(hits[start].score)});
        start = end;
    }
    return ties;
}

std::vector<std::string> labelNames(const std::string& label) {
    // A label is given by its system name ("people", "cat_c1_c2") or by its display name
    // ("one person", "cat"), which may stand for several system names; both in any case
    // (the store matches the names it holds without regard to case).
    std::vector<std::string> names = VQFeature::labelsNamed(label);
    if (std::find(names.begin(), names.end(), label) == names.end()) names.push_back(label);
    return names;
}

bool isKnownLabel(const std::string& label) {
    for (const std::string& name : {label, lowered(label)}) {
        if (!VQFeature::labelsNamed(name).empty() || VQFeature::displayName(name) != name) return true;
    }
    return false;
}

}  // namespace vqfe

// StoreIndex: what a result store records per image besides its blobs, so questions
// across photos (who is in them, which are copies, which show a cat) need no blob read.
//
// Per image: its path, size in bytes and pixels, time of analysis, the perceptual hash and
// a class signature; per face: its box, descriptor and person; per image and source kind:
// the labels over their thresholds. Index rows are derived from the blobs being saved and
// written in the same transaction as those results. A store written before the index
// existed is marked as needing reindex() (its results are never touched for that).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "extractor/result.h"

namespace VQFeature {

/// The index's format; a store of a higher format is refused, nothing written.
constexpr int kStoreFormat = 2;

/// What the caller knows of an image beyond its results (all optional but the asset id).
struct ImageRecord {
    std::string assetId;
    std::string path;
    long long bytes = 0;
    int width = 0;
    int height = 0;
    long long analysedAt = 0;  // seconds since the epoch; 0: now
};

struct IndexedImage {
    ImageRecord record;              // path: the latest one
    std::vector<std::string> paths;  // every path it was seen at (identical copies), sorted
    std::optional<uint64_t> hash;    // 64-bit perceptual hash
    std::vector<float> signature;    // class confidences by class id, for a finer comparison
    int faces = -1;                  // -1: no face result stored
};

struct IndexedFace {
    std::string assetId;
    int index = 0;                   // its place in the image's face-verify result
    float box[4] = {0, 0, 0, 0};     // x, y from the top, width, height; normalised to the image
    std::vector<float> descriptor;   // L2-normalised
    long long person = 0;            // 0: in no person yet
};

struct IndexedLabel {
    std::string assetId;
    std::string name;
    float score = 0;
};

struct PersonRecord {
    long long id = 0;
    std::string name;  // "" when unnamed
};

/// Everything the queries read, from one consistent snapshot of the store.
struct IndexSnapshot {
    std::vector<IndexedImage> images;
    std::vector<IndexedFace> faces;
    std::vector<IndexedLabel> labels;
    std::vector<PersonRecord> persons;
};

struct FaceKey {
    std::string assetId;
    int index = 0;
};

/// A people run's outcome: faces that join existing persons, and new persons.
struct PersonAssignment {
    std::vector<std::pair<FaceKey, long long>> joins;
    std::vector<std::vector<FaceKey>> newPersons;
};

/// One image a search found, with the score it was ranked by: the sum over the query's
/// labels of the best matching label's score.
struct SearchHit {
    std::string path;
    double score = 0;
};

struct SearchQuery {
    std::vector<std::vector<std::string>> labels;  // all must hold; each is one of its names
    long long person = 0;             // 0: any
    int minFaces = 0;
    float minScore = 0;  // a label scored under it does not count
};

/// A stored label name and the photos that have it.
struct LabelCount {
    std::string name;
    long long photos = 0;
};

/// An unknown person id or name.
class UnknownPerson : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The indexing side of the SQLite and PostgreSQL result stores.
class StoreIndex {
public:
    virtual ~StoreIndex() = default;

    /// Writes the results, the index rows derived from them and the image's record in one
    /// transaction.
    virtual void saveIndexed(const std::vector<std::shared_ptr<Result>>& results, const ImageRecord& image) = 0;

    /// True when the store holds results written before the index existed.
    virtual bool needsReindex() = 0;

    /// Derives the index rows of every stored result again, in one transaction; known
    /// gives path and size by asset id (others keep what the index had). Returns the
    /// number of images indexed. Results are only read.
    virtual long long reindex(const std::map<std::string, ImageRecord>& known) = 0;

    /// The whole index as of one moment; descriptors only when asked (they are large).
    virtual IndexSnapshot snapshot(bool withDescriptors) = 0;

    /// Records a people run in one transaction: a face already in a person (by a run at
    /// the same time) keeps it. Returns the ids given to the new persons, in order.
    virtual std::vector<long long> assignPersons(const PersonAssignment& assignment) = 0;

    /// Names a person; the name must not belong to another. Throws UnknownPerson.
    virtual void namePerson(long long id, const std::string& name) = 0;
    /// Moves every face of from into into and removes from; into keeps its name, or takes
    /// from's when it has none. Throws UnknownPerson.
    virtual void mergePersons(long long into, long long from) = 0;
    /// The person with this name. Throws UnknownPerson.
    virtual long long personNamed(const std::string& name) = 0;

    /// Paths of the images that match, best first: the higher the matched labels' scores
    /// and the more faces of the person, the earlier. Uses the label and person indexes.
    /// Label names match in any case.
    virtual std::vector<SearchHit> search(const SearchQuery& query) = 0;

    /// Every stored label name with the photos that have it from minScore on, by name.
    virtual std::vector<LabelCount> labelCounts(float minScore) = 0;
};

}  // namespace VQFeature

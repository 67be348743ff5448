// PhotoLibrary: questions across the photos of a result store (SQLite file or PostgreSQL
// URI), from its index: who is in them (persons from face clustering, kept with stable
// ids across runs), which are copies of one another, which match labels, a person and a
// number of faces. Every answer is read from one snapshot of the store, so workers may go
// on writing meanwhile; writes (a people update, a name, a merge) are short transactions.
// Errors are std::runtime_error (VQFeature::UnknownPerson for an unknown id or name).
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "cache/store_index.h"
#include "encoding/display_names.h"
#include "extractor/cache_adapter.h"

namespace vqfe {

struct PersonFace {
    std::string image;          // path, or asset id when the path is unknown
    std::array<float, 4> box;   // x, y from the top, width, height; normalised
};

struct Person {
    long long id = 0;
    std::string name;           // "" when unnamed
    std::vector<PersonFace> faces;
};

struct PeopleUpdate {
    size_t newFaces = 0;        // faces that were in no person
    size_t joined = 0;          // of them, faces that joined an existing person
    size_t newPersons = 0;
};

class PhotoLibrary {
public:
    // Opens the store; a file path must name an existing store. Throws when it cannot be
    // opened, belongs to another program or version, or has results not yet indexed
    // (then "vqfe reindex" is the way), unless forReindex.
    explicit PhotoLibrary(const std::string& store, bool forReindex = false);

    // Indexes every stored result again from its blob; paths and sizes come from the
    // given images and directories (matched by content). Returns the images indexed.
    // Unreadable arguments and the warnings of truncated JPEGs go to *problems.
    long long reindex(const std::vector<std::string>& inputs, std::vector<std::string>* problems);

    // Clusters the faces not yet in a person: they join existing persons or form new ones.
    PeopleUpdate updatePeople();
    // Every person with faces, the largest first.
    std::vector<Person> people();
    void name(long long id, const std::string& name) { index_->namePerson(id, name); }
    void merge(long long into, long long from) { index_->mergePersons(into, from); }
    // A person by id ("12") or name. Throws VQFeature::UnknownPerson.
    long long person(const std::string& idOrName);

    // Groups of copies of one photo; with similar, also of one scene a little zoomed,
    // panned or cropped (library/duplicates.h has the measured limits).
    std::vector<std::vector<std::string>> duplicates(bool similar);
    // The same among images, for a caller that reads the index's images itself.
    static std::vector<std::vector<std::string>> duplicates(bool similar,
                                                            const std::vector<VQFeature::IndexedImage>& images);
    // labels by their system or display names; person 0 for any. A label counts from
    // minScore on (by default from where the summary, the pictures and the report show it).
    // Names match without regard to case ("Sky", "christmas").
    std::vector<std::string> search(const std::vector<std::string>& labels, long long person, int minFaces,
                                    float minScore = VQFeature::kShownConfidence);
    // The same with the score each photo was ranked by: the sum over labels of the best
    // matching label's score.
    std::vector<VQFeature::SearchHit> searchHits(const std::vector<std::string>& labels, long long person,
                                                 int minFaces, float minScore = VQFeature::kShownConfidence);

    VQFeature::StoreIndex& index() { return *index_; }
    const std::string& store() const { return store_; }

private:
    std::string store_;
    std::shared_ptr<VQFeature::CacheAdapter> cache_;
    VQFeature::StoreIndex* index_ = nullptr;
};

// Photos next to one another in a search's answer with the same score: their order is
// not a ranking.
struct ScoreTie {
    size_t photos = 0;
    float score = 0;
};
// The runs of two or more equal scores (to 1e-5) in scores, in their order.
std::vector<ScoreTie> scoreTies(const std::vector<VQFeature::SearchHit>& hits);

// The system names a label given on the command line stands for.
std::vector<std::string> labelNames(const std::string& label);
// True when an analysis gives label: a system or display name as it is or in lower case.
bool isKnownLabel(const std::string& label);

}  // namespace vqfe

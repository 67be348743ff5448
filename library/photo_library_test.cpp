// The photo library end to end: photos analysed by the open framework into a SQLite and a
// PostgreSQL store, then people, duplicates, search and reindex on what the store holds.
#include "library/photo_library.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <sqlite3.h>

#include "cache/pg_cache.h"
#include "cache/sqlite_cache.h"
#include "library/batch_runner.h"
#include "testing/pg_test_database.h"
#include "testing/temp_dir.h"
#include "vantor/cover_util.h"

namespace vqfe {
namespace {

namespace fs = std::filesystem;
using VQFeature::PgTestDatabase;
using VQFeature::TempDir;

const char* const kPhotos[] = {"astronaut.jpg", "chelsea.jpg", "coffee.jpg", "grace_hopper.jpg",
                               "grace_hopper_crop.jpg", "rocket.jpg", "solvay.jpg"};

// Copies as people make them: smaller and recompressed, brightened, lightly cropped.
void writeCopies(const std::string& dir) {
    const std::string data = std::string(VQFE_SOURCE_DIR) + "/testdata/";
    cv::Mat coffee = cv::imread(data + "coffee.jpg");
    cv::Mat small;
    cv::resize(coffee, small, cv::Size(), 0.6, 0.6, cv::INTER_AREA);
    cv::imwrite(dir + "/coffee_small.jpg", small, {cv::IMWRITE_JPEG_QUALITY, 50});
    cv::Mat chelsea = cv::imread(data + "chelsea.jpg");
    cv::Mat bright;
    chelsea.convertTo(bright, -1, 1.0, 25);
    cv::imwrite(dir + "/chelsea_bright.jpg", bright);
    cv::resize(chelsea, small, cv::Size(), 0.4, 0.4, cv::INTER_AREA);
    cv::imwrite(dir + "/chelsea_q30.jpg", small, {cv::IMWRITE_JPEG_QUALITY, 30});
    cv::Mat rocket = cv::imread(data + "rocket.jpg");
    const int dx = rocket.cols / 25, dy = rocket.rows / 25;
    cv::imwrite(dir + "/rocket_crop.png", rocket(cv::Rect(dx, dy, rocket.cols - 2 * dx, rocket.rows - 2 * dy)));
}

// Runs the kinds the index reads over the images into store, one runner per kind.
void analyse(const std::shared_ptr<VQFeature::CacheAdapter>& store, const std::vector<std::string>& files) {
    for (const char* name : {"face-verify", "scene", "similarity", "classification"}) {
        AnalysisSetup setup{{*parseKind(name)}, std::string(VQFE_BUILD_DIR) + "/models",
                            std::string(VQFE_BUILD_DIR) + "/share/vqfe/framework.json"};
        const auto graph = VQFeature::CoverUtil::getAlgorithmConf(
            static_cast<Vantor::AlgorithmType>(setup.kinds.front().templateKind));
        BatchRunner runner(setup, graph, store);
        ASSERT_EQ(runner.initCode(), 0);
        std::vector<ImageOutcome> outcomes(files.size());
        std::vector<ImageOutcome*> batch;
        for (size_t i = 0; i < files.size(); ++i) {
            std::string error;
            auto image = loadImage(files[i], &error);
            ASSERT_TRUE(image) << error;
            outcomes[i].image = std::move(*image);
            batch.push_back(&outcomes[i]);
        }
        runner.run(batch);
        for (const auto& outcome : outcomes) EXPECT_TRUE(outcome.produced) << outcome.image.path << " " << name;
    }
}

std::set<std::string> names(const std::vector<std::string>& paths) {
    std::set<std::string> out;
    for (const auto& path : paths) out.insert(fs::path(path).filename().string());
    return out;
}

// One store per backend, analysed once for the whole suite.
class PhotoLibraryTest : public testing::TestWithParam<std::string> {
protected:
    static void SetUpTestSuite() {
        photos_ = std::make_unique<TempDir>();
        for (const char* photo : kPhotos) {
            fs::copy_file(std::string(VQFE_SOURCE_DIR) + "/testdata/" + photo, photos_->path() + "/" + photo);
        }
        writeCopies(photos_->path());
        for (const auto& entry : fs::directory_iterator(photos_->path())) files_.push_back(entry.path().string());
        std::sort(files_.begin(), files_.end());
    }
    static void TearDownTestSuite() {
        sqlite_.reset();
        pg_.reset();
        photos_.reset();
    }

    void SetUp() override {
        if (GetParam() == "pg") {
            if (!pg_) pg_ = std::make_unique<PgTestDatabase>();
            if (!pg_->available()) GTEST_SKIP() << PgTestDatabase::kSkipReason;
            store_ = pg_->uri();
            if (!pgAnalysed_) analyse(std::make_shared<VQFeature::PgCache>(store_), files_), pgAnalysed_ = true;
        } else {
            if (!sqlite_) {
                sqlite_ = std::make_unique<TempDir>();
                analyse(std::make_shared<VQFeature::SqliteCache>(sqlite_->path() + "/results.db"), files_);
            }
            store_ = sqlite_->path() + "/results.db";
        }
    }

    std::string path(const std::string& name) const { return photos_->path() + "/" + name; }

    // A store of the test's own, not yet created: a file of that name in a temporary folder,
    // or a new PostgreSQL database (its URI).
    std::string ownStore(const std::string& file) {
        if (GetParam() != "pg") return own_.path() + "/" + file;
        ownDatabase_ = std::make_unique<PgTestDatabase>();
        return ownDatabase_->uri();
    }
    bool onPg() const { return GetParam() == "pg"; }
    std::shared_ptr<VQFeature::CacheAdapter> openCache(const std::string& store) const {
        if (onPg()) return std::make_shared<VQFeature::PgCache>(store);
        return std::make_shared<VQFeature::SqliteCache>(store);
    }

    static std::unique_ptr<TempDir> photos_;
    static std::vector<std::string> files_;
    static std::unique_ptr<TempDir> sqlite_;
    static std::unique_ptr<PgTestDatabase> pg_;
    static bool pgAnalysed_;
    std::string store_;
    TempDir own_;
    std::unique_ptr<PgTestDatabase> ownDatabase_;
};

std::unique_ptr<TempDir> PhotoLibraryTest::photos_;
std::vector<std::string> PhotoLibraryTest::files_;
std::unique_ptr<TempDir> PhotoLibraryTest::sqlite_;
std::unique_ptr<PgTestDatabase> PhotoLibraryTest::pg_;
bool PhotoLibraryTest::pgAnalysed_ = false;

TEST_P(PhotoLibraryTest, PeopleKeepTheirIdsNamesAndMergesAcrossRuns) {
    PhotoLibrary library(store_);
    const PeopleUpdate first = library.updatePeople();
    EXPECT_EQ(first.newFaces, 3u);  // the group photo's faces are too small to be found
    EXPECT_EQ(first.newPersons, 2u);
    const auto people = library.people();
    ASSERT_FALSE(people.empty());
    // Both photos of Grace Hopper are one person, and that person is nobody else.
    const Person* grace = nullptr;
    for (const Person& person : people) {
        std::set<std::string> images;
        for (const auto& face : person.faces) images.insert(fs::path(face.image).filename().string());
        if (images.count("grace_hopper.jpg")) {
            grace = &person;
        } else {
            EXPECT_EQ(images, std::set<std::string>{"astronaut.jpg"});  // Eileen Collins is someone else
        }
    }
    ASSERT_NE(grace, nullptr);
    std::set<std::string> graceImages;
    for (const auto& face : grace->faces) graceImages.insert(fs::path(face.image).filename().string());
    EXPECT_EQ(graceImages, (std::set<std::string>{"grace_hopper.jpg", "grace_hopper_crop.jpg"}));
    EXPECT_EQ(people.front().faces.size(), 2u);  // the largest first
    const long long graceId = grace->id;

    // A second run finds nothing new and changes no id.
    const PeopleUpdate second = library.updatePeople();
    EXPECT_EQ(second.newFaces, 0u);
    EXPECT_EQ(second.newPersons, 0u);
    EXPECT_EQ(library.people().front().id, graceId);

    library.name(graceId, "Grace");
    EXPECT_EQ(library.person("Grace"), graceId);
    EXPECT_EQ(library.person(std::to_string(graceId)), graceId);
    EXPECT_THROW(library.person("Nobody"), VQFeature::UnknownPerson);
    EXPECT_THROW(library.person("999999"), VQFeature::UnknownPerson);
    EXPECT_THROW(library.name(999999, "X"), VQFeature::UnknownPerson);
    const long long other = library.people().back().id;
    EXPECT_THROW(library.name(other, "Grace"), std::runtime_error);  // taken
    // A name in another case finds its person while only one is named so.
    EXPECT_EQ(library.person("grace"), graceId);
    library.name(other, "GRACE");
    EXPECT_EQ(library.person("GRACE"), other);
    EXPECT_THROW(library.person("grace"), VQFeature::UnknownPerson);

    // A merged person's faces move over; its id is gone for good.
    library.merge(graceId, other);
    const auto merged = library.people();
    EXPECT_EQ(merged.front().id, graceId);
    EXPECT_EQ(merged.front().name, "Grace");
    EXPECT_EQ(merged.front().faces.size(), 3u);
    EXPECT_THROW(library.person(std::to_string(other)), VQFeature::UnknownPerson);
    EXPECT_THROW(library.merge(graceId, other), VQFeature::UnknownPerson);
}

TEST_P(PhotoLibraryTest, CopiesAreDuplicatesAndDistinctPhotosAreNot) {
    PhotoLibrary library(store_);
    std::set<std::set<std::string>> groups;
    for (const auto& group : library.duplicates(false)) groups.insert(names(group));
    EXPECT_EQ(groups, (std::set<std::set<std::string>>{{"coffee.jpg", "coffee_small.jpg"},
                                                        {"chelsea.jpg", "chelsea_bright.jpg", "chelsea_q30.jpg"},
                                                        {"rocket.jpg", "rocket_crop.png"}}));
    // The similar groups are the copies and nothing else: no two distinct photos together.
    std::set<std::set<std::string>> similar;
    for (const auto& group : library.duplicates(true)) similar.insert(names(group));
    EXPECT_EQ(similar, groups);
}

TEST_P(PhotoLibraryTest, SearchCombinesLabelsPersonAndFaceCount) {
    PhotoLibrary library(store_);
    const auto people = names(library.search({"people"}, 0, 0));
    EXPECT_TRUE(people.count("astronaut.jpg") && people.count("grace_hopper.jpg")) << people.size();
    EXPECT_FALSE(people.count("coffee.jpg") || people.count("rocket.jpg"));
    EXPECT_EQ(names(library.search({}, 0, 1)),
              (std::set<std::string>{"astronaut.jpg", "grace_hopper.jpg", "grace_hopper_crop.jpg"}));
    EXPECT_TRUE(library.search({"people", "no such label"}, 0, 0).empty());
    // A label counts from the score the summary shows it at: the cat's flower class (0.13)
    // only with a lower floor.
    EXPECT_TRUE(library.search({"flower"}, 0, 0).empty());
    EXPECT_TRUE(names(library.search({"flower"}, 0, 0, 0.1f)).count("chelsea.jpg"));
    EXPECT_TRUE(library.search({"flower"}, 0, 0, 0.2f).empty());
    // A name in another case finds the same; the scores are those search ranked by, best
    // first, and a second label adds its score.
    const auto found = library.search({"people"}, 0, 0);
    EXPECT_EQ(library.search({"PEOPLE"}, 0, 0), found);
    const auto hits = library.searchHits({"People"}, 0, 0);
    ASSERT_EQ(hits.size(), found.size());
    for (size_t i = 0; i < hits.size(); ++i) {
        EXPECT_EQ(hits[i].path, found[i]);
        EXPECT_GE(hits[i].score, VQFeature::kShownConfidence);
        if (i > 0) {
            EXPECT_LE(hits[i].score, hits[i - 1].score);
        }
    }
    const auto both = library.searchHits({"people", "people"}, 0, 0);
    ASSERT_FALSE(both.empty());
    EXPECT_NEAR(both[0].score, 2 * hits[0].score, 1e-6);
    library.updatePeople();
    for (const Person& person : library.people()) {
        std::vector<std::string> images;
        for (const auto& face : person.faces) images.push_back(face.image);
        EXPECT_EQ(names(library.search({}, person.id, 0)), names(images)) << person.id;
    }
    EXPECT_THROW(library.search({}, 999999, 0), VQFeature::UnknownPerson);
}

TEST(LabelNames, DisplayAndSystemNamesInLowerOrTheirOwnCase) {
    EXPECT_TRUE(isKnownLabel("sky") && isKnownLabel("SKY") && isKnownLabel("snow scene") && isKnownLabel("xuejing_c2"));
    EXPECT_TRUE(isKnownLabel("Christmas") && isKnownLabel("Giraffe"));
    EXPECT_FALSE(isKnownLabel("no such label"));
}

TEST(ScoreTies, RunsOfEqualScoresInTheirOrder) {
    auto hits = [](std::vector<double> scores) {
        std::vector<VQFeature::SearchHit> found;
        for (double score : scores) found.push_back({"photo.jpg", score});
        return found;
    };
    EXPECT_TRUE(scoreTies({}).empty());
    EXPECT_TRUE(scoreTies(hits({0.9, 0.85, 0.7})).empty());
    // Scores as the store gives them back: float labels summed in double.
    const auto ties = scoreTies(hits({0.85f, 0.85f, 0.85f, 0.7f, 0.5f, 0.5f, 0.85f}));
    ASSERT_EQ(ties.size(), 2u);
    EXPECT_EQ(ties[0].photos, 3u);
    EXPECT_FLOAT_EQ(ties[0].score, 0.85f);
    EXPECT_EQ(ties[1].photos, 2u);
    EXPECT_FLOAT_EQ(ties[1].score, 0.5f);
}

// A raw statement on a store, as another program or an older version would leave it; the
// number of rows it returned.
size_t rawSql(const std::string& store, const std::string& sql) {
    if (VQFeature::PgCache::isUri(store)) return size_t(VQFeature::PgConnection(store).command(sql).size());
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(store.c_str(), &db), SQLITE_OK);
    size_t rows = 0;
    auto count = [](void* rows, int, char**, char**) {
        ++*static_cast<size_t*>(rows);
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), count, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
    return rows;
}

std::string fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST_P(PhotoLibraryTest, AStoreFromBeforeTheIndexIsIndexedOnlyOnRequestAndKeepsItsResults) {
    const std::string old = ownStore("old.db");
    const std::vector<std::string> some{path("astronaut.jpg"), path("coffee.jpg"), path("coffee_small.jpg")};
    analyse(openCache(old), some);
    for (const char* table : {"vqfe_store", "vqfe_faces", "vqfe_labels", "vqfe_images", "vqfe_persons", "vqfe_paths"}) {
        rawSql(old, std::string("DROP TABLE ") + table);
    }
    auto count = [&] {
        return onPg() ? std::static_pointer_cast<VQFeature::PgCache>(openCache(old))->count()
                      : std::static_pointer_cast<VQFeature::SqliteCache>(openCache(old))->count();
    };
    const long long results = count();
    EXPECT_GT(results, 0);
    try {
        PhotoLibrary refused(old);
        FAIL() << "an unindexed store was queried";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("vqfe reindex"), std::string::npos) << e.what();
    }
    PhotoLibrary reindexing(old, true);
    // A JPEG cut short gets the warning every command gives, and the rest is indexed.
    const std::string cut = own_.path() + "/cut.jpg";
    const std::string whole = fileBytes(path("astronaut.jpg"));
    std::ofstream(cut, std::ios::binary) << whole.substr(0, whole.size() * 2 / 3);
    std::vector<std::string> problems;
    EXPECT_EQ(reindexing.reindex({photos_->path(), cut}, &problems), 3);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].rfind("warning: " + cut + " ends early (a truncated JPEG)", 0), 0u) << problems[0];
    EXPECT_EQ(count(), results);
    PhotoLibrary library(old);
    EXPECT_EQ(library.duplicates(false).size(), 1u);
    EXPECT_EQ(library.search({"people"}, 0, 0), std::vector<std::string>{path("astronaut.jpg")});
}

TEST_P(PhotoLibraryTest, LabelsMatchInAnyCaseThroughAnIndexAlsoInAStoreOfTheLastVersion) {
    const std::string store = ownStore("last.db");
    openCache(store);
    // As the last version left it: no index on the lowered names; names in several cases.
    rawSql(store, "DROP INDEX vqfe_labels_by_lower_name");
    rawSql(store, "INSERT INTO vqfe_images (asset_id, path) VALUES ('a', '/p/a.jpg'), ('b', '/p/b.jpg'),"
                  " ('c', '/p/c.jpg')");
    rawSql(store, "INSERT INTO vqfe_labels (asset_id, source, name, score) VALUES ('a', '25', 'Sky', 0.8),"
                  " ('b', '25', 'sky', 0.7), ('b', '25', '156_halloween', 0.9), ('c', '25', 'snow', 0.6)");
    PhotoLibrary library(store);
    const std::vector<std::string> sky{"/p/a.jpg", "/p/b.jpg"};
    EXPECT_EQ(library.search({"sky"}, 0, 0), sky);
    EXPECT_EQ(library.search({"SKY"}, 0, 0), sky);
    // A display name in another case than the table's, for a system name in another case.
    EXPECT_EQ(library.search({"halloween"}, 0, 0), std::vector<std::string>{"/p/b.jpg"});
    EXPECT_EQ(library.search({"Sky", "HALLOWEEN"}, 0, 0), std::vector<std::string>{"/p/b.jpg"});
    EXPECT_TRUE(library.search({"sky", "snow"}, 0, 0).empty());
    const auto counts = library.index().labelCounts(0.75f);
    ASSERT_EQ(counts.size(), 2u);
    EXPECT_EQ(counts[0].name + " " + std::to_string(counts[0].photos), "156_halloween 1");
    EXPECT_EQ(counts[1].name + " " + std::to_string(counts[1].photos), "Sky 1");
    // Opening put the index back (the cache's tests check that a search reads by it).
    EXPECT_EQ(rawSql(store, onPg() ? "SELECT 1 FROM pg_indexes WHERE indexname = 'vqfe_labels_by_lower_name'"
                                   : "SELECT 1 FROM sqlite_master WHERE name = 'vqfe_labels_by_lower_name'"),
              1u);
}

TEST_P(PhotoLibraryTest, AStoreOfAnotherProgramOrANewerVersionIsRefusedUntouched) {
    if (!onPg()) {
        const std::string other = ownStore("other.db");
        rawSql(other, "CREATE TABLE contacts (name TEXT, phone TEXT)");
        const std::string before = fileBytes(other);
        EXPECT_THROW(VQFeature::SqliteCache{other}, std::runtime_error);
        EXPECT_EQ(fileBytes(other), before);
    }
    const std::string store = ownStore("newer.db");
    openCache(store);
    rawSql(store, "UPDATE vqfe_store SET value = '99' WHERE key = 'format'");
    const std::string before = onPg() ? "" : fileBytes(store);
    try {
        PhotoLibrary newer(store);
        FAIL() << "a store of a newer format was opened";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("another version"), std::string::npos) << e.what();
    }
    if (!onPg()) {
        EXPECT_EQ(fileBytes(store), before);
    }
    EXPECT_THROW(PhotoLibrary(own_.path() + "/missing.db"), std::runtime_error);
    EXPECT_FALSE(fs::exists(own_.path() + "/missing.db"));
}

INSTANTIATE_TEST_SUITE_P(Stores, PhotoLibraryTest, testing::Values("sqlite", "pg"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace vqfe

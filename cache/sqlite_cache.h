#pragma once

#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cache/store_index.h"
#include "extractor/cache_adapter.h"

struct sqlite3;
struct sqlite3_stmt;

namespace VQFeature {

/// SqliteCache: a persistent result store, a CacheAdapter over one SQLite file.
///
/// Rows are keyed by (asset id, algorithm key) and hold the blob, the algorithm kind and
/// the string kind, so the selective clears work for real (by asset, by kind number, by
/// kind name). Saving copies the blob; a query hands out a new Result owning a fresh
/// copy. The file uses write-ahead logging with a busy timeout, so several threads (this
/// object serialises its own calls) and several processes may use one store at once; a
/// killed process loses at most the write in flight.
class SqliteCache : public CacheAdapter, public StoreIndex {
public:
    /// Opens or creates the store at path. Throws std::runtime_error (RuntimeException in Java) with the path and
    /// the reason when the file cannot be opened, is not a result store (another
    /// program's database) or was written by another version; the file is never
    /// modified in those cases.
    explicit SqliteCache(const std::string& path);
    SqliteCache(const SqliteCache&) = delete;
    SqliteCache& operator=(const SqliteCache&) = delete;
    ~SqliteCache() override;

    std::vector<std::shared_ptr<Result>> query(const std::shared_ptr<Input>& input) override;
    std::shared_ptr<Result> query(const std::string& assetId, const std::string& algorithmKey) override;
    void save(const std::vector<std::shared_ptr<Result>>& results) override;
    void save(const std::shared_ptr<Result>& result) override;
    void clear(const std::vector<std::string>& assetIds) override;
    void clearTypes(const std::vector<Vantor::AlgorithmType>& types) override;
    /// Names are string kinds ("ClassificationPostProcess_c300"); a decimal number also
    /// names the enumerated kind with that number.
    void clearTypes(const std::vector<std::string>& types) override;
    void clearAll() override;

    /// Number of stored results.
    long long count();

    void saveIndexed(const std::vector<std::shared_ptr<Result>>& results, const ImageRecord& image) override;
    bool needsReindex() override;
    long long reindex(const std::map<std::string, ImageRecord>& known) override;
    IndexSnapshot snapshot(bool withDescriptors) override;
    std::vector<long long> assignPersons(const PersonAssignment& assignment) override;
    void namePerson(long long id, const std::string& name) override;
    void mergePersons(long long into, long long from) override;
    long long personNamed(const std::string& name) override;
    std::vector<SearchHit> search(const SearchQuery& query) override;
    std::vector<LabelCount> labelCounts(float minScore) override;

private:
    void execute(const char* sql);
    // Runs unit inside BEGIN IMMEDIATE ... COMMIT under the lock; rolls back on a throw.
    void transact(const std::function<void()>& unit);
    std::shared_ptr<Result> queryLocked(const std::string& assetId, const std::string& algorithmKey);
    void saveLocked(const Result& result);
    void deleteWhere(std::initializer_list<const char*> statements, const std::vector<std::string>& values);

    std::string path_;
    sqlite3* db_ = nullptr;
    std::mutex mutex_;
};

}  // namespace VQFeature

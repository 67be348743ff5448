#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

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
class SqliteCache : public CacheAdapter {
public:
    /// Opens or creates the store at path. Throws std::runtime_error (RuntimeException in Java) with the path and
    /// SQLite's reason when the file cannot be opened or is not a result store; the file
    /// is never modified in that case.
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

private:
    class Statement;

    void execute(const char* sql);
    std::shared_ptr<Result> queryLocked(const std::string& assetId, const std::string& algorithmKey);
    void saveLocked(const Result& result);
    void deleteWhere(const char* sql, const std::vector<std::string>& values);

    std::string path_;
    sqlite3* db_ = nullptr;
    std::mutex mutex_;
};

}  // namespace VQFeature

// The PostgreSQL result store (libpq).
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cache/pg_connection.h"
#include "cache/store_index.h"
#include "extractor/cache_adapter.h"

namespace VQFeature {

/// PgCache: a persistent result store on a PostgreSQL server, a CacheAdapter that any
/// number of processes on any number of machines may share.
///
/// Same rows and semantics as SqliteCache: keyed by (asset id, algorithm key), holding the
/// blob (NULL for no blob, kept apart from a zero-byte blob), the algorithm kind and the
/// string kind, so the selective clears work. Saving copies the blob; a query hands out a
/// new Result owning a fresh copy. One connection per object, its statements prepared
/// once; this object serialises its own calls. A lost connection is opened again and the
/// call repeated a bounded number of times (see PgConnection); a call that still fails,
/// like an unreachable server or a table of the same name with other columns, throws
/// std::runtime_error naming the store and the reason.
class PgCache : public CacheAdapter, public StoreIndex {
public:
    /// Connects to uri ("postgresql://..." or "postgres://...") and creates the results
    /// and index tables when the database has none. Throws when the server cannot be
    /// reached, the table belongs to something else or the store was written by another
    /// version; nothing is written in those cases.
    explicit PgCache(const std::string& uri);
    PgCache(const PgCache&) = delete;
    PgCache& operator=(const PgCache&) = delete;

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

    /// True when text is a PostgreSQL connection URI rather than a file path.
    static bool isUri(const std::string& text);

    /// For other users of the same database (the shared work queue), which write results
    /// in their own transactions: creates or checks the table and prepares the statement
    /// "vqfe_save" on connection, and writes rows with it, with their index rows and, when
    /// given, the image's record (inside the caller's transaction).
    static void prepareResults(PgConnection& connection);
    static void saveRows(PgConnection& connection, const std::vector<std::shared_ptr<Result>>& results,
                         const ImageRecord* image = nullptr);

private:
    std::shared_ptr<Result> queryLocked(const std::string& assetId, const std::string& algorithmKey);
    void deleteEach(const std::string& statement, const std::vector<std::string>& values);

    PgConnection connection_;
    std::mutex mutex_;
};

}  // namespace VQFeature

// The store index in SQL, the same for both stores: its tables, writing the rows a result
// gives, and the reads and updates of the queries. Every function runs inside the
// caller's transaction.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cache/sql_runner.h"
#include "cache/store_index.h"
#include "extractor/result.h"

namespace VQFeature {

/// The store's recorded format: nullopt when it has no vqfe_store table.
std::optional<int> recordedFormat(SqlRunner& sql);

/// Throws std::runtime_error (prefixed with store) when the recorded format is newer than
/// this program's.
void checkFormat(SqlRunner& sql, const std::string& store);

/// Creates the index tables when missing. A store whose results table already held rows
/// (written before the index existed) is marked as needing reindex.
void createIndexTables(SqlRunner& sql, const std::string& resultsTable);

/// The index rows of result, and image's record when given.
void writeIndexRows(SqlRunner& sql, const Result& result);
void writeImageRecord(SqlRunner& sql, const ImageRecord& image);

bool indexIncomplete(SqlRunner& sql);
long long reindexFromBlobs(SqlRunner& sql, const std::string& resultsTable,
                           const std::map<std::string, ImageRecord>& known);

IndexSnapshot readIndex(SqlRunner& sql, bool withDescriptors);
std::vector<long long> writeAssignment(SqlRunner& sql, const PersonAssignment& assignment);
void renamePerson(SqlRunner& sql, long long id, const std::string& name);
void mergePersonRows(SqlRunner& sql, long long into, long long from);
long long findPerson(SqlRunner& sql, const std::string& name);
std::vector<SearchHit> searchIndex(SqlRunner& sql, const SearchQuery& query);
std::vector<LabelCount> countLabels(SqlRunner& sql, float minScore);

}  // namespace VQFeature

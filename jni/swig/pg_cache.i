// PgCache for Java: the PostgreSQL result store, used as SqliteCache is (a native
// CacheAdapter held by shared pointer; its errors become RuntimeExceptions through the
// common %exception). The helpers for the work queue stay C++-only.
%{
#include "cache/pg_cache.h"
%}
%vqfe_shared(VQFeature::PgCache)
%feature("nodirector") VQFeature::PgCache;
%ignore VQFeature::PgCache::isUri;
%ignore VQFeature::PgCache::prepareResults;
%ignore VQFeature::PgCache::saveRows;
%include "cache/pg_cache.h"

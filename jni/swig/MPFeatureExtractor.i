// The Java binding of the extractor: module MPFeatureExtractor, package
// com.quorvane.zul.mediaprocessors.extractor_jni. SWIG generates the natives of
// MPFeatureExtractorJNI and the Java proxies from the engine's own headers; this file
// says what to wrap and in which order (the directors' static callback table follows
// the order of the classes: StructResultCopyCallBack, CacheAdapter, ByteArrayCallBack).
// Where the boundary behaves differently from SWIG's defaults, the files included
// first hold the typemaps, one concern each.
%module(directors="1") MPFeatureExtractor

%{
#include "extractor/cache_adapter.h"
#include "cache/memory_cache.h"
#include "cache/sqlite_cache.h"
#include "cache/tiered_cache.h"
#include "extractor/algorithm_types.h"
#include "extractor/config.h"
#include "extractor/extractor.h"
#include "extractor/image_buffer.h"
#include "extractor/input.h"
#include "extractor/kept_graph.h"
#include "extractor/multi_result.h"
#include "extractor/resource.h"
#include "extractor/result.h"
#include "jni/byte_array_callback.h"
#include "jni/native_string_utils.h"
#include "jni/string_utils.h"
#include "jni/struct_result_copy_callback.h"
#include "vantor/cover_util.h"
#include "vantor/graph_merge.h"
#include "encoding/display_names.h"
#include "Vantor/VantorAlgorithmInput.h"
%}

%{
#include <type_traits>
static_assert(std::is_same<int64_t, long>::value, "StringLongMap wraps the engine's int64_t maps as long");
%}

%include "conventions.i"
%include "null_arguments.i"
%include "lifetimes.i"
%include "javadoc.i"
%include "handles.i"
%include "containers.i"
%include "callbacks.i"
%include "byte_blocks.i"

// Records, in dependency order; each collection is instantiated before its first use.
%include "extractor/algorithm_types.h"
%include "Vantor/AlgorithmType.h"
%include "Vantor/VantorAlgorithmInput.h"
%include "jni/struct_result_copy_callback.h"
%include "extractor/image_buffer.h"
%include "extractor/resource.h"
%template(VecString) std::vector<std::string>;
%template(VecAlgorithmType) std::vector<Vantor::AlgorithmType>;
%template(ResourceList) std::vector<std::shared_ptr<VQFeature::Resource>>;
// Spelt with long: the engine's int64_t on LP64 (checked below), and SWIG then names
// the map's nested iterator consistently.
%vqfe_long_map_iterator_messages
%template(StringLongMap) std::unordered_map<std::string, long>;
%template(StringFloatMap) std::unordered_map<std::string, float>;
%template(StringStringMap) std::unordered_map<std::string, std::string>;
%include "extractor/input.h"
%include "extractor/iresult.h"
%include "extractor/result.h"
%include "extractor/multi_result.h"
%template(FeatureResultList) std::vector<std::shared_ptr<VQFeature::Result>>;
%template(VecMultiResult) std::vector<std::shared_ptr<VQFeature::MultiResult>>;
%include "extractor/cache_adapter.h"
%include "cache/memory_cache.h"
%include "store_index.i"
#ifndef VQFE_WITHOUT_SQLITE_STORE
%include "cache/sqlite_cache.h"
#endif
%include "cache/tiered_cache.h"
#ifndef VQFE_WITHOUT_PG_STORE
%include "pg_cache.i"
#endif
%include "Vantor/VantorPlatform.h"
%include "extractor/config.h"
%template(ErrorPair) std::pair<int, std::string>;
%vqfe_requests_not_null
%include "extractor/extractor.h"
%vqfe_clear_requests_not_null
%include "extractor/kept_graph.h"
%include "jni/byte_array_callback.h"
%include "jni/native_string_utils.h"
%include "jni/string_utils.h"
%include "vantor/cover_util.h"
%include "vantor/graph_merge.h"
%rename(shownConfidence) VQFeature::kShownConfidence;
%include "encoding/display_names.h"

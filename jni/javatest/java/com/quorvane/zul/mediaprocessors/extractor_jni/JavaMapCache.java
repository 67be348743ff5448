package com.quorvane.zul.mediaprocessors.extractor_jni;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** A complete cache written in Java, as a host app plugs in its own store. */
class JavaMapCache extends CacheAdapter {
  final Map<String, Result> entries = new LinkedHashMap<>();
  final List<String> calls = new ArrayList<>();
  RuntimeException failQueries;  // thrown by query(String, String) while set

  @Override
  public FeatureResultList query(Input input) {
    calls.add("query(Input)");
    FeatureResultList hits = new FeatureResultList();
    String key = input.algorithmKey();
    for (Resource resource : input.getResList()) {
      Result hit = entries.get(resource.getAssetId() + key);
      if (hit != null) hits.add(hit);
    }
    return hits;
  }

  @Override
  public Result query(String assetId, String algorithmKey) {
    calls.add("query(" + assetId + ")");
    if (failQueries != null) throw failQueries;
    return entries.get(assetId + algorithmKey);
  }

  @Override
  public void save(FeatureResultList results) {
    for (Result r : results) save(r);
  }

  @Override
  public void save(Result result) {
    calls.add("save(" + result.getAssetId() + ")");
    entries.put(result.getAssetId() + result.getAlgorithmKey(), result);
  }

  @Override
  public void clear(VecString assetIds) {
    calls.add("clear" + assetIds);
    entries.keySet().removeIf(key -> assetIds.stream().anyMatch(key::startsWith));
  }

  @Override
  public void clearTypes(VecAlgorithmType types) {
    calls.add("clearTypes" + types);
  }

  @Override
  public void clearTypes(VecString types) {
    calls.add("clearTypeNames" + types);
  }

  @Override
  public void clearAll() {
    calls.add("clearAll");
    entries.clear();
  }
}

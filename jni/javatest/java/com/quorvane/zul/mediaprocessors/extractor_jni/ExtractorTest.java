package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorvane.zul.mediaprocessors.extractor_results.C_FaceBuffer;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Extraction through Java with the open framework, with Java and native caches. */
class ExtractorTest {
  @TempDir Path tmp;
  private ResourceList photos;

  @BeforeEach
  void loadPhotos() throws Exception {
    photos = Pictures.resources(Pictures.resource("astronaut", "astronaut.jpg"), Pictures.resource("chelsea", "chelsea.jpg"));
  }

  private static Input faceRequest(ResourceList resources) {
    return new Input(resources, CoverUtil.getAlgorithmConf(AlgorithmType.Face), new StringLongMap(), AlgorithmType.Face);
  }

  // Faces and aesthetics from one run of the aesthetics graph.
  private static MultiAlgorithmInput faceAndAestheticsRequest(ResourceList resources) {
    VecAlgorithmType kinds = new VecAlgorithmType();
    kinds.add(AlgorithmType.Face);
    kinds.add(AlgorithmType.AfterEffect);
    return new MultiAlgorithmInput(resources, CoverUtil.getAlgorithmConf(AlgorithmType.AfterEffect), kinds,
        new VecString());
  }

  @Test
  void everyTemplateKindEndToEnd() throws Exception {
    Extractor extractor = Pictures.initialised(tmp, new MemoryCache(64), null);
    int kinds = 0;
    for (AlgorithmType kind : AlgorithmType.values()) {
      String graph = CoverUtil.getAlgorithmConf(kind);
      if (graph.isEmpty()) continue;
      kinds++;
      ErrorPair error = new ErrorPair(0, "untouched");
      Input request = new Input(photos, graph, new StringLongMap(), kind);
      FeatureResultList results = extractor.extractFeatures(request, true, error);
      assertEquals("untouched", error.getSecond(), kind + ": " + error.getFirst());
      assertEquals(2, results.size(), kind.toString());
      assertEquals("astronaut", results.get(0).getAssetId());
      assertEquals("chelsea", results.get(1).getAssetId());
      assertEquals(request.algorithmKey(), results.get(0).getAlgorithmKey());
      long bytes = results.stream().mapToLong(r -> r.getResultLength().longValueExact()).sum();
      if (kind == AlgorithmType.FaceExpression) {
        assertEquals(0, bytes, "FaceExpression has a graph but no encoder");
      } else {
        assertTrue(bytes > 0, kind + " produced no blob");
        Result first = results.get(0).getResultLength().signum() > 0 ? results.get(0) : results.get(1);
        assertEquals(first.getResultLength().intValueExact(), Pictures.blob(first).length);
      }
      // Answered from the cache the second time: the very same Result objects.
      FeatureResultList again = extractor.extractFeatures(request, true, error);
      assertEquals(results.get(0).getAlgorithmKey(), again.get(0).getAlgorithmKey());
      assertEquals(results.get(0).getResultLength(), again.get(0).getResultLength());
    }
    assertEquals(16, kinds, "kinds with a built-in graph");
  }

  @Test
  void sqliteStoreOutlivesTheExtractorAndRefusesForeignFiles() throws Exception {
    String path = tmp.resolve("results.db").toString();
    Input request = faceRequest(photos);
    SqliteCache store = new SqliteCache(path);
    FeatureResultList first = Pictures.initialised(tmp, store, store).extractFeatures(request, true, null);
    assertEquals(2, store.count());
    store.delete();

    // A new store over the same file answers through the CacheAdapter interface.
    CacheAdapter reopened = new SqliteCache(path);
    FeatureResultList again = Pictures.initialised(tmp, reopened, null).extractFeatures(request, true, null);
    assertEquals(first.get(0).getResultLength(), again.get(0).getResultLength());
    assertEquals(2, Pictures.initialised(tmp, reopened, null).queryFeatures(request).size());

    java.nio.file.Files.write(tmp.resolve("foreign.db"), new byte[4096]);
    RuntimeException refused = assertThrows(RuntimeException.class,
        () -> new SqliteCache(tmp.resolve("foreign.db").toString()));
    assertTrue(refused.getMessage().contains("foreign.db"), refused.getMessage());
  }

  @Test
  void javaCacheServesAndReceivesResults() throws Exception {
    JavaMapCache cache = new JavaMapCache();
    MemoryCache store = new MemoryCache(16);
    Extractor extractor = Pictures.initialised(tmp, cache, store);
    Input request = faceRequest(photos);

    FeatureResultList first = extractor.extractFeatures(request, true, null);
    assertEquals(List.of("query(astronaut)", "save(astronaut)", "query(chelsea)", "save(chelsea)"), cache.calls);
    assertEquals(2, cache.entries.size());

    cache.calls.clear();
    FeatureResultList second = extractor.extractFeatures(request, true, null);
    assertEquals(List.of("query(astronaut)", "query(chelsea)"), cache.calls);  // no framework run, no save
    assertEquals(first.get(0).getAlgorithmKey(), second.get(0).getAlgorithmKey());
    assertEquals(first.get(0).getResultLength(), second.get(0).getResultLength());

    // Bulk query: the Java cache first, then the store cache, duplicates collapsed.
    assertEquals(2, extractor.queryFeatures(request).size());
    FeatureResultList both = extractor.queryFeatures(request, false);
    assertTrue(both.size() >= 2 && both.size() <= 4);

    extractor.clearAssets(new VecString(new String[] {"astronaut"}));
    VecAlgorithmType kinds = new VecAlgorithmType();
    kinds.add(AlgorithmType.Face);
    extractor.clearTypes(kinds);
    extractor.clearTypes(new VecString(new String[] {MPFeatureExtractor.getAlgorithmTypeC300()}));
    assertEquals(1, cache.entries.size());
    extractor.clearAll();
    assertTrue(cache.entries.isEmpty());
    assertTrue(cache.calls.containsAll(List.of("clear[astronaut]", "clearTypes[Face]",
        "clearTypeNames[ClassificationPostProcess_c300]", "clearAll")));
    NullPointerException e = assertThrows(NullPointerException.class, () -> extractor.clearAssets(null));
    assertEquals("assetIds must not be null (VecString)", e.getMessage());
  }

  @Test
  void javaExceptionInACacheCrossesTheEngineAndLeavesItWorking() throws Exception {
    JavaMapCache cache = new JavaMapCache();
    Extractor extractor = Pictures.initialised(tmp, cache, null);
    IllegalStateException failure = new IllegalStateException("cache offline");
    cache.failQueries = failure;
    IllegalStateException thrown =
        assertThrows(IllegalStateException.class, () -> extractor.extractFeatures(faceRequest(photos), true, null));
    assertSame(failure, thrown);

    // The gate was released and the caches still work: the same call now succeeds.
    cache.failQueries = null;
    cache.calls.clear();
    FeatureResultList results = extractor.extractFeatures(faceRequest(photos), true, null);
    assertEquals(2, results.size());
    assertEquals(2, cache.entries.size());
    MultiAlgorithmInput multi = new MultiAlgorithmInput(photos, "", new VecAlgorithmType(), new VecString());
    assertEquals(2, extractor.extractFeatures(multi, false).size());

    // An exception from save does not stop the call: it is reported, the results come back.
    JavaMapCache failingSaves = new JavaMapCache() {
      @Override
      public void save(Result result) {
        throw new IllegalStateException("disk full");
      }
    };
    Extractor second = Pictures.initialised(tmp, failingSaves, null);
    ErrorPair error = new ErrorPair(0, "");
    FeatureResultList saved = second.extractFeatures(faceRequest(photos), true, error);
    assertEquals(500, error.getFirst());
    assertEquals("Vantor Throw Exception:disk full", error.getSecond());
    assertEquals(2, saved.size());
    for (Result result : saved) assertTrue(result.getResultLength().signum() > 0);
  }

  @Test
  void partiallyImplementedCaches() throws Exception {
    CacheAdapter savesOnly = new CacheAdapter() {
      @Override
      public void save(Result result) {}
    };
    Extractor extractor = Pictures.initialised(tmp, savesOnly, null);
    RuntimeException e = assertThrows(RuntimeException.class, () -> extractor.queryFeatures(faceRequest(photos)));
    assertEquals("Attempted to invoke pure virtual method VQFeature::CacheAdapter::query.", e.getMessage());
    e = assertThrows(RuntimeException.class, extractor::clearAll);
    assertEquals("Attempted to invoke pure virtual method VQFeature::CacheAdapter::clearAll.", e.getMessage());
    // Without cache use only save(Result) is reached, and it is implemented.
    assertEquals(2, extractor.extractFeatures(faceRequest(photos), false, null).size());

    CacheAdapter returnsNull = new CacheAdapter() {
      @Override
      public FeatureResultList query(Input input) {
        return null;
      }
    };
    Extractor second = Pictures.initialised(tmp, returnsNull, null);
    NullPointerException n = assertThrows(NullPointerException.class, () -> second.queryFeatures(faceRequest(photos)));
    assertEquals("Unexpected null return for type std::vector< std::shared_ptr< VQFeature::Result > >", n.getMessage());
  }

  @Test
  void severalKindsFromOneRun() throws Exception {
    MemoryCache cache = new MemoryCache(16);
    Extractor extractor = Pictures.initialised(tmp, cache, null);
    MultiAlgorithmInput request = faceAndAestheticsRequest(photos);
    ErrorPair error = new ErrorPair();
    VecMultiResult results = extractor.extractFeatures(request, true, error);
    assertEquals(0, error.getFirst(), error.getSecond());
    assertEquals(2, results.size());
    MultiResult astronaut = results.get(0);
    assertEquals("astronaut", astronaut.getAssetId());
    assertEquals(2, astronaut.resultCount());
    MultiResult.ResultItem face = astronaut.getResultItem(AlgorithmType.Face);
    assertTrue(face.getSize().signum() > 0);
    // The second call is answered from the cache.
    VecMultiResult cached = extractor.extractFeatures(request, true);
    assertEquals(2, cached.get(0).resultCount());
  }

  @Test
  void aJavaCacheThatFreesWhatItIsGivenLeavesTheSeveralKindItemsWhole() throws Exception {
    // The engine offers each kind's blob to the cache inside a Result while the item
    // being filled holds the same block; a cache that frees or empties that Result
    // must leave the item its blob.
    JavaMapCache freeing = new JavaMapCache() {
      private int saves;

      @Override
      public void save(Result result) {
        if (saves++ % 2 == 0) {
          result.freeResult();
        } else {
          result.resetData();
        }
      }
    };
    Extractor extractor = Pictures.initialised(tmp, freeing, null);
    MultiAlgorithmInput request = faceAndAestheticsRequest(photos);
    VecMultiResult results = extractor.extractFeatures(request, true);
    assertEquals(2, results.size());
    for (MultiResult result : results) {
      MultiResult.ResultItem face = result.getResultItem(AlgorithmType.Face);
      byte[] blob = new byte[face.getSize().intValueExact()];
      face.memcpyStructResult(blob);
      C_FaceBuffer parsed = C_FaceBuffer.parseFrom(blob);
      assertTrue(parsed.getMWidth() > 0);
    }
  }

  @Test
  void aJavaCacheThatClosesTheExtractorOrChangesTheRequestMidRunLeavesTheRunWhole() throws Exception {
    // The callback runs inside the extractor's own call (on its thread, so close() does
    // not wait): the run must go on over live objects and the photos it was given.
    Extractor[] extractor = new Extractor[1];
    Object[] request = new Object[1];
    JavaMapCache meddling = new JavaMapCache() {
      @Override
      public Result query(String assetId, String algorithmKey) {
        if (request[0] == null) return null;  // meddles once per run
        if (request[0] instanceof Input) {
          Input input = (Input) request[0];
          input.getResList().clear();
          input.close();
        } else {
          MultiAlgorithmInput input = (MultiAlgorithmInput) request[0];
          input.getTypes().clear();
          input.setResList(new ResourceList());
          input.close();
        }
        extractor[0].close();
        request[0] = null;
        System.gc();
        return null;
      }
    };
    extractor[0] = Pictures.initialised(tmp, meddling, null);
    Extractor kept = extractor[0];
    Input single = faceRequest(Pictures.resources(photos.get(0), photos.get(1)));
    request[0] = single;
    FeatureResultList results = kept.extractFeatures(single, true);
    assertEquals(2, results.size());
    assertEquals("chelsea", results.get(1).getAssetId());
    assertTrue(results.get(0).getResultLength().signum() > 0);
    assertThrows(IllegalStateException.class, () -> kept.extractFeatures(faceRequest(photos), true));

    extractor[0] = Pictures.initialised(tmp, meddling, null);
    VecAlgorithmType kinds = new VecAlgorithmType();
    kinds.add(AlgorithmType.Face);
    kinds.add(AlgorithmType.AfterEffect);
    MultiAlgorithmInput several = new MultiAlgorithmInput(Pictures.resources(photos.get(0), photos.get(1)),
        CoverUtil.getAlgorithmConf(AlgorithmType.AfterEffect), kinds, new VecString());
    request[0] = several;
    VecMultiResult multi = extractor[0].extractFeatures(several, true);
    assertEquals(2, multi.size());
    assertEquals(2, multi.get(1).resultCount());
  }

  @Test
  void anErrorPairClosedInsideTheRunIsNotWrittenAfterwards() throws Exception {
    ErrorPair[] error = new ErrorPair[1];
    JavaMapCache closing = new JavaMapCache() {
      @Override
      public Result query(String assetId, String algorithmKey) {
        error[0].close();
        System.gc();
        return null;
      }
    };
    Extractor extractor = Pictures.initialised(tmp, closing, null);
    ImageBuffer tooShort = new ImageBuffer();  // fails, and the run reports it
    tooShort.setWidth(100);
    tooShort.setHeight(100);
    tooShort.setData(new byte[10]);
    tooShort.setLength(java.math.BigInteger.TEN);
    Input request = faceRequest(Pictures.resources(new Resource("short", "", tooShort)));
    for (int i = 0; i < 50; i++) {
      error[0] = new ErrorPair(0, "");
      assertEquals(1, extractor.extractFeatures(request, true, error[0]).size());
    }
    // A pair left open still gets the report.
    ErrorPair open = new ErrorPair(0, "");
    extractor.extractFeatures(request, false, open);
    assertEquals(8, open.getFirst());
  }
}

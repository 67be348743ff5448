package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.math.BigInteger;
import org.junit.jupiter.api.Test;

/** Strings, 64-bit numbers, handles, upcasts and the exception kinds at the boundary. */
class ConventionsTest {
  private static final BigInteger TWO_TO_64 = BigInteger.ONE.shiftLeft(64);

  @Test
  void nullStringsAreRefusedBeforeTheEngineIsCalled() {
    NullPointerException e = assertThrows(NullPointerException.class, () -> new Resource((String) null));
    assertEquals("null string", e.getMessage());

    Resource resource = new Resource("asset-1");
    e = assertThrows(NullPointerException.class, () -> resource.setAssetId(null));
    assertEquals("null string", e.getMessage());
    assertEquals("asset-1", resource.getAssetId());

    MultiAlgorithmInput request = new MultiAlgorithmInput(new ResourceList(), "", new VecAlgorithmType(), new VecString());
    e = assertThrows(NullPointerException.class, () -> request.algorithmKey((String) null));
    assertEquals("null string", e.getMessage());
    assertEquals("", request.getConfMd5());  // the engine was not reached
  }

  @Test
  void stringsRoundTripAsModifiedUtf8() {
    Config config = new Config();
    config.setGraph("{\"name\":\"h\u00e9llo \u4e16\u754c\"}");
    assertEquals("{\"name\":\"h\u00e9llo \u4e16\u754c\"}", config.getGraph());
  }

  @Test
  void unsignedLongsCrossAsBigInteger() {
    ImageBuffer buffer = new ImageBuffer();
    buffer.setLength(BigInteger.valueOf(256));
    assertEquals(BigInteger.valueOf(256), buffer.getLength());

    buffer.setLength(BigInteger.valueOf(-1));  // two's complement: all 64 bits set
    assertEquals(TWO_TO_64.subtract(BigInteger.ONE), buffer.getLength());

    buffer.setLength(TWO_TO_64.add(BigInteger.valueOf(7)));  // wider: low 64 bits kept
    assertEquals(BigInteger.valueOf(7), buffer.getLength());

    buffer.setLength(BigInteger.ONE.shiftLeft(63));
    assertEquals(BigInteger.ONE.shiftLeft(63), buffer.getLength());

    NullPointerException e = assertThrows(NullPointerException.class, () -> buffer.setLength(null));
    assertEquals("BigInteger null", e.getMessage());
    assertEquals(BigInteger.ONE.shiftLeft(63), buffer.getLength());

    e = assertThrows(NullPointerException.class, () -> new ImageBuffer(1, 1, "x", null));
    assertEquals("BigInteger null", e.getMessage());
  }

  @Test
  void signedSixtyFourBitValuesCrossAsLong() {
    StringLongMap params = new StringLongMap();
    params.put("big", Long.MIN_VALUE);
    params.put("max", Long.MAX_VALUE);
    assertEquals(Long.MIN_VALUE, params.get("big"));
    assertEquals(Long.MAX_VALUE, params.get("max"));
  }

  @Test
  void upcastsShareOwnership() {
    assertEquals(0, MPFeatureExtractorJNI.Result_SWIGSmartPtrUpcast(0));
    assertEquals(0, MPFeatureExtractorJNI.MultiResult_SWIGSmartPtrUpcast(0));
    assertEquals(0, MPFeatureExtractorJNI.MemoryCache_SWIGSmartPtrUpcast(0));

    // Upcasting a live handle and dropping the first keeps the object alive.
    MemoryCache memory = new MemoryCache(4);
    CacheAdapter base = new CacheAdapter(MPFeatureExtractorJNI.MemoryCache_SWIGSmartPtrUpcast(MemoryCache.getCPtr(memory)), true);
    memory.save(new Result("asset", "key", AlgorithmType.Face));
    memory.delete();
    assertEquals("asset", base.query("asset", "key").getAssetId());
    base.delete();

    // A copy held by a collection outlives the proxy that created the object.
    FeatureResultList list = new FeatureResultList();
    Result result = new Result("kept", "key", AlgorithmType.Face);
    list.add(result);
    result.delete();
    assertEquals("kept", list.get(0).getAssetId());

    // A MemoryCache is usable wherever a CacheAdapter is expected.
    CacheAdapter cache = new MemoryCache(4);
    Result stored = new Result("a", "k", AlgorithmType.Face);
    cache.save(stored);
    Result found = cache.query("a", "k");
    assertNotNull(found);
    assertEquals("a", found.getAssetId());
    assertNull(cache.query("a", "other"));
  }

  @Test
  void deletingTwiceAndNullHandlesAreHarmless() {
    Result result = new Result();
    result.delete();
    result.delete();
    MPFeatureExtractorJNI.delete_Result(0);
    MPFeatureExtractorJNI.delete_VecString(0);
    MPFeatureExtractorJNI.delete_ErrorPair(0);
  }

  @Test
  void returnedSharedPointersAreNewOwnedHandlesOrNull() {
    Resource resource = new Resource();
    assertNull(resource.getBuffer());
    ImageBuffer buffer = new ImageBuffer();
    buffer.setWidth(3);
    resource.setBuffer(buffer);
    buffer.delete();  // the resource keeps its own reference
    ImageBuffer read = resource.getBuffer();
    assertEquals(3, read.getWidth());
    resource.setBuffer(null);
    assertNull(resource.getBuffer());
    assertEquals(3, read.getWidth());
  }

  @Test
  void errorPairs() {
    ErrorPair empty = new ErrorPair();
    assertEquals(0, empty.getFirst());
    assertEquals("", empty.getSecond());
    ErrorPair pair = new ErrorPair(204, "Vantor Result is NULL");
    ErrorPair copy = new ErrorPair(pair);
    pair.setSecond("changed");
    assertEquals(204, copy.getFirst());
    assertEquals("Vantor Result is NULL", copy.getSecond());
    NullPointerException e = assertThrows(NullPointerException.class, () -> new ErrorPair((ErrorPair) null));
    assertEquals("std::pair< int,std::string > const & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class, () -> new ErrorPair(1, null));
    assertEquals("null string", e.getMessage());
  }

  @Test
  void configurationRecords() {
    AppConfig app = new AppConfig();
    assertEquals("1", app.getStatus());
    assertEquals("Extractor", app.getVantorApplicationName());
    assertEquals("2.9.115", app.getPlatformSdkVersion());
    assertEquals("", app.getAppID());
    assertNull(app.getOrrelinHeaderFeild());
    assertNull(app.getNetworkDelegate());
    assertNull(app.getThreadDelegate());

    Config config = new Config();
    assertEquals(16777216, config.getCursorMaxSize());
    assertEquals("", config.getGraph());
    assertNull(config.getAppConfig());
    config.setAppConfig(app);
    config.setDbPath("/db");
    Config clone = config.clone();
    clone.setDbPath("/other");
    assertEquals("/db", config.getDbPath());
    clone.getAppConfig().setAppID("shared");
    assertEquals("shared", app.getAppID());  // both point to one AppConfig

    // The download callback getter hands out the field itself, not owned by the proxy.
    ModelsDownloadCallback field = config.getModelsDownloadCallback();
    assertNotNull(field);
    assertEquals(ModelsDownloadCallback.getCPtr(field), ModelsDownloadCallback.getCPtr(config.getModelsDownloadCallback()));
    field.delete();  // not owned: must not free the field
    assertEquals("/db", config.getDbPath());
  }

  @Test
  void constantsAndTextHelpers() {
    assertEquals("ClassificationPostProcess_clip128", MPFeatureExtractor.getAlgorithmTypeClip128());
    assertEquals("ClassificationPostProcess_c300", MPFeatureExtractor.getAlgorithmTypeC300());
    assertEquals("ClassificationPostProcess_relation", MPFeatureExtractor.getAlgorithmTypeRelation());

    assertEquals(1, MPFeatureExtractor.strContains("abc", "bc"));
    assertEquals(0, MPFeatureExtractor.strContains("abc", "cd"));
    assertEquals(-1, MPFeatureExtractor.strContains("ab", "abc"));
    assertEquals(0, MPFeatureExtractor.strContains("abc", ""));
    assertEquals(0, MPFeatureExtractor.strContains(null, null));
    assertEquals(0, MPFeatureExtractor.strContains("a".repeat(300), "b"));  // would cycle: 0

    VecString pieces = MPFeatureExtractor.split("a b");
    assertEquals(java.util.List.of("a", "b"), pieces);
    assertEquals(java.util.List.of("x", "y", "z"), MPFeatureExtractor.split("x,y;z", ",;"));
    assertTrue(MPFeatureExtractor.split("").isEmpty());
    assertEquals("a,b", MPFeatureExtractor.join(pieces));
    assertEquals("a", MPFeatureExtractor.join(new VecString(new String[] {"", "a"}), ","));
    assertEquals("a - b", MPFeatureExtractor.join(pieces, " - "));
    NullPointerException e = assertThrows(NullPointerException.class, () -> MPFeatureExtractor.join(null));
    assertEquals("std::vector< std::string > const & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class, () -> MPFeatureExtractor.split(null));
    assertEquals("null string", e.getMessage());

    MPFeatureExtractor.onResult(new byte[] {1, 2, 3});
    MPFeatureExtractor.onResult(null);
  }

  @Test
  void badArgumentsBecomeJavaExceptionsNotCrashes() {
    IllegalArgumentException e = assertThrows(IllegalArgumentException.class, () -> new MemoryCache(0));
    assertNotNull(e.getMessage());
    assertFalse(e.getMessage().isEmpty());
  }

  @Test
  void requestKeys() {
    Input input = new Input(new ResourceList(), "", new StringLongMap(), AlgorithmType.Face);
    assertEquals("ffd03eb69528e0e5338c63b3fc9451a8", input.algorithmKey());  // md5 of "|4|"
    assertEquals(input.algorithmKey(), input.algorithmKey(AlgorithmType.Skeleton));
    MultiAlgorithmInput multi = new MultiAlgorithmInput(new ResourceList(), "", new VecAlgorithmType(), new VecString());
    assertEquals("d41d8cd98f00b204e9800998ecf8427e|4", multi.algorithmKey(AlgorithmType.Face));
    assertEquals("d41d8cd98f00b204e9800998ecf8427e|ClassificationPostProcess_c300",
        multi.algorithmKey(MPFeatureExtractor.getAlgorithmTypeC300()));

    NullPointerException e = assertThrows(NullPointerException.class,
        () -> new Input(null, "", new StringLongMap(), AlgorithmType.Face));
    assertEquals("std::vector< std::shared_ptr< VQFeature::Resource > > & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class, () -> new Input(new ResourceList(), "", null, AlgorithmType.Face));
    assertEquals("std::unordered_map< std::string,int64_t > & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class, () -> new Input(new ResourceList(), "", new StringLongMap(),
        null, new StringStringMap(), AlgorithmType.Face));
    assertEquals("std::unordered_map< std::string,float > & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class, () -> new Input(new ResourceList(), "", new StringLongMap(),
        new StringFloatMap(), null, AlgorithmType.Face));
    assertEquals("std::unordered_map< std::string,std::string > & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class,
        () -> new MultiAlgorithmInput(null, "", new VecAlgorithmType(), new VecString()));
    assertEquals("std::vector< std::shared_ptr< VQFeature::Resource > > const & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class,
        () -> new MultiAlgorithmInput(new ResourceList(), "", null, new VecString()));
    assertEquals("std::vector< Vantor::AlgorithmType > const & reference is null", e.getMessage());
    e = assertThrows(NullPointerException.class, () -> input.setResList(null));
    assertNotNull(e.getMessage());
  }
}

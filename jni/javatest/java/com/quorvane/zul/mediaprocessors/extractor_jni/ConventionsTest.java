package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.math.BigInteger;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** Strings, 64-bit numbers, handles, upcasts and the exception kinds at the boundary. */
class ConventionsTest {
  private static final BigInteger TWO_TO_64 = BigInteger.ONE.shiftLeft(64);

  /** The call raises NullPointerException with exactly this text. */
  static void assertNpe(String message, Executable call) {
    assertEquals(message, assertThrows(NullPointerException.class, call).getMessage());
  }

  @Test
  void nullStringsAreRefusedBeforeTheEngineIsCalled() {
    assertNpe("null string", () -> new Resource((String) null));
    Resource resource = new Resource("asset-1");
    assertNpe("null string", () -> resource.setAssetId(null));
    assertEquals("asset-1", resource.getAssetId());

    MultiAlgorithmInput request = new MultiAlgorithmInput(new ResourceList(), "", new VecAlgorithmType(), new VecString());
    assertNpe("null string", () -> request.algorithmKey((String) null));
    assertEquals("", request.getConfMd5());  // the engine was not reached
    assertNpe("null string", () -> new ErrorPair(1, null));
    assertNpe("null string", () -> MPFeatureExtractor.split(null));
  }

  @Test
  void nullReferencesNameTheJavaParameterAndTheNativesKeepTheirTypeNames() {
    assertNpe("resList must not be null (ResourceList)",
        () -> new Input(null, "", new StringLongMap(), AlgorithmType.Face));
    assertNpe("intParams must not be null (StringLongMap)",
        () -> new Input(new ResourceList(), "", null, AlgorithmType.Face));
    assertNpe("floatParams must not be null (StringFloatMap)",
        () -> new Input(new ResourceList(), "", new StringLongMap(), null, new StringStringMap(), AlgorithmType.Face));
    assertNpe("stringParams must not be null (StringStringMap)",
        () -> new Input(new ResourceList(), "", new StringLongMap(), new StringFloatMap(), null, AlgorithmType.Face));
    assertNpe("types must not be null (VecAlgorithmType)",
        () -> new MultiAlgorithmInput(new ResourceList(), "", null, new VecString()));
    assertNpe("other must not be null (ErrorPair)", () -> new ErrorPair((ErrorPair) null));
    assertNpe("list must not be null (VecString)", () -> MPFeatureExtractor.join(null));
    Input input = new Input();
    assertNpe("value must not be null (ResourceList)", () -> input.setResList(null));

    // The natives themselves, for callers that bind to them directly.
    assertNpe("std::vector< std::shared_ptr< VQFeature::Resource > > & reference is null",
        () -> MPFeatureExtractorJNI.new_Input__SWIG_1(0, null, "", 0, null, 4));
    StringLongMap longs = new StringLongMap();
    assertNpe("std::unordered_map< std::string,int64_t > & reference is null",
        () -> MPFeatureExtractorJNI.new_Input__SWIG_1(ResourceList.getCPtr(new ResourceList()), null, "", 0, null, 4));
    assertNpe("std::unordered_map< std::string,float > & reference is null",
        () -> MPFeatureExtractorJNI.new_Input__SWIG_2(ResourceList.getCPtr(new ResourceList()), null, "",
            StringLongMap.getCPtr(longs), longs, 0, null, 0, null, 4));
    assertNpe("std::vector< std::shared_ptr< VQFeature::Resource > > const & reference is null",
        () -> MPFeatureExtractorJNI.new_MultiAlgorithmInput(0, null, "", 0, null, 0, null));
    assertNpe("std::pair< int,std::string > const & reference is null",
        () -> MPFeatureExtractorJNI.new_ErrorPair__SWIG_2(0, null));
    assertNpe("std::vector< std::string > const & reference is null",
        () -> MPFeatureExtractorJNI.join__SWIG_1(0, null));
  }

  @Test
  void stringsRoundTripAsModifiedUtf8() {
    Config config = new Config();
    config.setGraph("{\"name\":\"h\u00e9llo \u4e16\u754c\"}");
    assertEquals("{\"name\":\"h\u00e9llo \u4e16\u754c\"}", config.getGraph());
    // Text helpers take and give Java strings and lists.
    assertEquals(List.of("x", "y", "z"), MPFeatureExtractor.split("x,y;z", ",;"));
    assertEquals("a - b", MPFeatureExtractor.join(new VecString(new String[] {"a", "b"}), " - "));
    assertEquals(0, MPFeatureExtractor.strContains(null, null));
  }

  @Test
  void sixtyFourBitNumbers() {
    ImageBuffer buffer = new ImageBuffer();
    buffer.setLength(BigInteger.valueOf(256));
    assertEquals(BigInteger.valueOf(256), buffer.getLength());
    buffer.setLength(BigInteger.valueOf(-1));  // two's complement: all 64 bits set
    assertEquals(TWO_TO_64.subtract(BigInteger.ONE), buffer.getLength());
    buffer.setLength(TWO_TO_64.add(BigInteger.valueOf(7)));  // wider: low 64 bits kept
    assertEquals(BigInteger.valueOf(7), buffer.getLength());
    buffer.setLength(BigInteger.ONE.shiftLeft(63));
    assertEquals(BigInteger.ONE.shiftLeft(63), buffer.getLength());
    assertNpe("BigInteger null", () -> buffer.setLength(null));
    assertEquals(BigInteger.ONE.shiftLeft(63), buffer.getLength());
    assertNpe("BigInteger null", () -> new ImageBuffer(1, 1, "x", null));

    // Signed ones cross as long.
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
    assertNull(base.query("asset", "other"));
    base.delete();

    // A copy held by a collection outlives the proxy that created the object.
    FeatureResultList list = new FeatureResultList();
    Result result = new Result("kept", "key", AlgorithmType.Face);
    list.add(result);
    result.delete();
    assertEquals("kept", list.get(0).getAssetId());
  }

  @Test
  void handlesDeletedTwiceNullAndSharedAreHarmless() {
    Result result = new Result();
    result.delete();
    result.delete();
    MPFeatureExtractorJNI.delete_Result(0);
    MPFeatureExtractorJNI.delete_VecString(0);
    MPFeatureExtractorJNI.delete_ErrorPair(0);

    // Returned shared pointers are new owned handles, or null.
    Resource resource = new Resource();
    assertNull(resource.getBuffer());
    ImageBuffer buffer = new ImageBuffer();
    buffer.setWidth(3);
    resource.setBuffer(buffer);
    buffer.delete();  // the resource keeps its own reference
    ImageBuffer read = resource.getBuffer();
    resource.setBuffer(null);
    assertNull(resource.getBuffer());
    assertEquals(3, read.getWidth());
  }

  @Test
  void configCloneSharesTheAppConfigAndFieldGettersDoNotOwn() {
    AppConfig app = new AppConfig();
    assertNull(app.getOrrelinHeaderFeild());
    Config config = new Config();
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
    assertEquals(ModelsDownloadCallback.getCPtr(field), ModelsDownloadCallback.getCPtr(config.getModelsDownloadCallback()));
    field.delete();  // not owned: must not free the field
    assertEquals("/db", config.getDbPath());
  }

  @Test
  void badArgumentsBecomeJavaExceptionsNotCrashes() {
    IllegalArgumentException e = assertThrows(IllegalArgumentException.class, () -> new MemoryCache(0));
    assertNotNull(e.getMessage());
    assertFalse(e.getMessage().isEmpty());
    MPFeatureExtractor.onResult(new byte[] {1, 2, 3});
    MPFeatureExtractor.onResult(null);
  }
}

package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import org.junit.jupiter.api.Test;

/** The collection wrappers behave like java.util lists and maps. */
class CollectionsTest {
  private static void assertSameAsArrayList(List<String> expected, VecString actual) {
    assertEquals(expected, actual);
    assertEquals(expected.size(), actual.size());
    assertEquals(expected.isEmpty(), actual.isEmpty());
  }

  @Test
  void vecStringMatchesArrayList() {
    List<String> expected = new ArrayList<>();
    VecString actual = new VecString();
    for (String s : new String[] {"a", "b", "c", "d", "e"}) {
      expected.add(s);
      actual.add(s);
    }
    expected.add(0, "first");
    actual.add(0, "first");
    expected.add(expected.size(), "last");  // index == size appends
    actual.add(actual.size(), "last");
    assertSameAsArrayList(expected, actual);

    assertEquals(expected.set(2, "B"), actual.set(2, "B"));
    assertEquals(expected.remove(3), actual.remove(3));
    expected.subList(1, 3).clear();  // removeRange
    actual.subList(1, 3).clear();
    assertSameAsArrayList(expected, actual);
    expected.subList(2, 2).clear();  // empty range: nothing happens
    actual.subList(2, 2).clear();
    assertSameAsArrayList(expected, actual);
    assertEquals(expected.indexOf("last"), actual.indexOf("last"));

    VecString copy = new VecString(actual);
    actual.clear();
    assertTrue(actual.isEmpty());
    assertSameAsArrayList(expected, copy);

    VecString repeated = new VecString(3, "x");
    assertEquals(List.of("x", "x", "x"), repeated);
    repeated.reserve(100);
    assertTrue(repeated.capacity() >= 100);
  }

  @Test
  void vectorPrimitivesCheckTheirBounds() {
    VecString v = new VecString(new String[] {"a", "b", "c"});
    IndexOutOfBoundsException e =
        assertThrows(IndexOutOfBoundsException.class, () -> MPFeatureExtractorJNI.VecString_doAdd__SWIG_1(VecString.getCPtr(v), v, 4, "x"));
    assertEquals("vector index out of range", e.getMessage());
    assertThrows(IndexOutOfBoundsException.class, () -> v.get(3));
    assertThrows(IndexOutOfBoundsException.class, () -> v.get(-1));
    assertThrows(IndexOutOfBoundsException.class, () -> v.set(3, "x"));
    assertThrows(IndexOutOfBoundsException.class, () -> v.remove(3));
    e = assertThrows(IndexOutOfBoundsException.class,
        () -> MPFeatureExtractorJNI.VecString_doRemoveRange(VecString.getCPtr(v), v, 3, 2));
    assertEquals("vector index out of range", e.getMessage());
    assertEquals(List.of("a", "b", "c"), v);  // unchanged by every failure

    e = assertThrows(IndexOutOfBoundsException.class, () -> new VecString(-1, "x"));
    assertEquals("vector count must be positive", e.getMessage());
    assertThrows(IndexOutOfBoundsException.class, () -> v.reserve(Long.MAX_VALUE));

    NullPointerException n = assertThrows(NullPointerException.class, () -> v.add(null));
    assertEquals("null string", n.getMessage());
    n = assertThrows(NullPointerException.class, () -> v.set(99, null));  // string checked first
    assertEquals("null string", n.getMessage());
    n = assertThrows(NullPointerException.class, () -> new VecString(-1, null));
    assertEquals("null string", n.getMessage());
  }

  @Test
  void copyConstructorsRefuseNullWithTheirTypeNames() {
    String[][] cases = {
      {"std::vector< std::string > const & reference is null"},
      {"std::vector< Vantor::AlgorithmType > const & reference is null"},
      {"std::vector< std::shared_ptr< VQFeature::Resource > > const & reference is null"},
      {"std::vector< std::shared_ptr< VQFeature::Result > > const & reference is null"},
      {"std::vector< std::shared_ptr< VQFeature::MultiResult > > const & reference is null"},
      {"std::unordered_map< std::string,long long > const & reference is null"},
      {"std::unordered_map< std::string,float > const & reference is null"},
      {"std::unordered_map< std::string,std::string > const & reference is null"},
    };
    Runnable[] constructors = {
      () -> new VecString((VecString) null),
      () -> new VecAlgorithmType((VecAlgorithmType) null),
      () -> new ResourceList((ResourceList) null),
      () -> new FeatureResultList((FeatureResultList) null),
      () -> new VecMultiResult((VecMultiResult) null),
      () -> new StringLongMap((StringLongMap) null),
      () -> new StringFloatMap((StringFloatMap) null),
      () -> new StringStringMap((StringStringMap) null),
    };
    for (int i = 0; i < cases.length; i++) {
      NullPointerException e = assertThrows(NullPointerException.class, constructors[i]::run);
      assertEquals(cases[i][0], e.getMessage());
    }
  }

  @Test
  void sharedPointerElementsAndEnumerations() {
    FeatureResultList results = new FeatureResultList();
    results.add(null);  // stores an empty pointer
    results.add(new Result("a", "k", AlgorithmType.Face));
    assertNull(results.get(0));
    assertEquals("a", results.get(1).getAssetId());
    assertEquals(0, MPFeatureExtractorJNI.FeatureResultList_doGet(FeatureResultList.getCPtr(results), results, 0));

    VecAlgorithmType kinds = new VecAlgorithmType();
    kinds.add(AlgorithmType.Face);
    kinds.add(AlgorithmType.RelationRecog);
    kinds.add(0, AlgorithmType.AllNodes);
    assertEquals(List.of(AlgorithmType.AllNodes, AlgorithmType.Face, AlgorithmType.RelationRecog), kinds);
    assertEquals(130, MPFeatureExtractorJNI.VecAlgorithmType_doGet(VecAlgorithmType.getCPtr(kinds), kinds, 2));

    ResourceList resources = new ResourceList();
    resources.add(new Resource("r1"));
    resources.add(new Resource("r2"));
    assertEquals("r2", resources.remove(1).getAssetId());
    assertEquals(1, resources.size());
  }

  @Test
  void mapsMatchHashMap() {
    Map<String, Long> expected = new HashMap<>();
    StringLongMap actual = new StringLongMap();
    for (int i = 0; i < 20; i++) {
      assertEquals(expected.put("k" + i, (long) i), actual.put("k" + i, (long) i));
    }
    assertEquals(expected.put("k3", 33L), actual.put("k3", 33L));  // overwrite keeps the size
    assertEquals(20, actual.size());
    assertEquals(expected.remove("k5"), actual.remove("k5"));
    assertEquals(expected.remove("absent"), actual.remove("absent"));
    assertNull(actual.get("absent"));
    assertFalse(actual.containsKey("k5"));
    assertTrue(actual.containsKey("k6"));
    assertEquals(expected, actual);

    // Iterating from begin visits every entry exactly once.
    Set<String> seen = new HashSet<>();
    for (Map.Entry<String, Long> entry : actual.entrySet()) {
      assertTrue(seen.add(entry.getKey()));
      assertEquals(expected.get(entry.getKey()), entry.getValue());
    }
    assertEquals(expected.keySet(), seen);
    for (Map.Entry<String, Long> entry : actual.entrySet()) {
      entry.setValue(entry.getValue() + 1);
    }
    assertEquals(34L, actual.get("k3"));

    StringLongMap copy = new StringLongMap(actual);
    actual.clear();
    assertTrue(actual.isEmpty());
    assertEquals(19, copy.size());

    StringFloatMap floats = new StringFloatMap();
    floats.put("thres", 0.5f);
    assertEquals(0.5f, floats.get("thres"));
    StringStringMap strings = new StringStringMap();
    strings.put("model_name", "qm_sim");
    strings.put("model_name", "qm_sim2");
    assertEquals(Map.of("model_name", "qm_sim2"), strings);
    NullPointerException e = assertThrows(NullPointerException.class, () -> strings.put("k", null));
    assertEquals("null string", e.getMessage());
  }

  @Test
  void nullIteratorsAreRefused() {
    StringLongMap longs = new StringLongMap();
    longs.put("a", 1L);
    long handle = StringLongMap.getCPtr(longs);
    NullPointerException e =
        assertThrows(NullPointerException.class, () -> MPFeatureExtractorJNI.StringLongMap_removeUnchecked(handle, longs, 0, null));
    assertEquals("Attempt to dereference null std::unordered_map< std::string,long long >::iterator const", e.getMessage());
    long begin = MPFeatureExtractorJNI.StringLongMap_begin(handle, longs);
    e = assertThrows(NullPointerException.class, () -> MPFeatureExtractorJNI.StringLongMap_Iterator_isNot(begin, null, 0, null));
    assertEquals("Attempt to dereference null std::unordered_map< std::string,long long >::iterator", e.getMessage());
    MPFeatureExtractorJNI.delete_StringLongMap_Iterator(begin);

    StringFloatMap floats = new StringFloatMap();
    e = assertThrows(NullPointerException.class,
        () -> MPFeatureExtractorJNI.StringFloatMap_removeUnchecked(StringFloatMap.getCPtr(floats), floats, 0, null));
    assertEquals("Attempt to dereference null std::unordered_map< std::string,float >::iterator const", e.getMessage());
    StringStringMap strings = new StringStringMap();
    e = assertThrows(NullPointerException.class,
        () -> MPFeatureExtractorJNI.StringStringMap_removeUnchecked(StringStringMap.getCPtr(strings), strings, 0, null));
    assertEquals("Attempt to dereference null std::unordered_map< std::string,std::string >::iterator const", e.getMessage());
    assertEquals(1, longs.size());
  }

  @Test
  void collectionFieldsAreViewsIntoTheirRecord() {
    Input input = new Input();
    input.getIntParams().put("face_max_num", 10L);
    input.getResList().add(new Resource("r"));
    assertEquals(10L, input.getIntParams().get("face_max_num"));
    assertEquals("r", input.getResList().get(0).getAssetId());
    assertEquals("45e697e8419a009e08b4aa45d11707f3", keyOf(input));  // "|4|face_max_num:10"
  }

  private static String keyOf(Input input) {
    input.setType(AlgorithmType.Face);
    return input.algorithmKey();
  }
}

package com.quorvane.zul.mediaprocessors.extractor_jni;

import static com.quorvane.zul.mediaprocessors.extractor_jni.ConventionsTest.assertNpe;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

/**
 * The collection wrappers (SWIG's java.util adapters) at the boundary: bounds, nulls, element
 * ownership and enumeration values.
 */
class CollectionsTest {
  @Test
  void listsAndMapsBehaveLikeJavaUtil() {
    List<String> expected = new java.util.ArrayList<>(List.of("a", "b", "c", "d", "e"));
    VecString list = new VecString(new String[] {"a", "b", "c", "d", "e"});
    expected.add(0, "first");
    list.add(0, "first");
    expected.add(expected.size(), "last");  // index == size appends
    list.add(list.size(), "last");
    assertEquals(expected.set(2, "B"), list.set(2, "B"));
    assertEquals(expected.remove(3), list.remove(3));
    expected.subList(1, 3).clear();  // removeRange
    list.subList(1, 3).clear();
    expected.subList(2, 2).clear();  // an empty range removes nothing
    list.subList(2, 2).clear();
    assertEquals(expected, list);
    assertEquals(expected.indexOf("last"), list.indexOf("last"));
    assertEquals(List.of("x", "x", "x"), new VecString(3, "x"));

    Map<String, Long> expectedMap = new java.util.HashMap<>();
    StringLongMap map = new StringLongMap();
    for (int i = 0; i < 20; i++) assertEquals(expectedMap.put("k" + i, (long) i), map.put("k" + i, (long) i));
    assertEquals(expectedMap.put("k3", 33L), map.put("k3", 33L));  // overwrite keeps the size
    assertEquals(expectedMap.remove("k5"), map.remove("k5"));
    assertEquals(expectedMap.remove("absent"), map.remove("absent"));
    assertEquals(expectedMap, map);
    java.util.Set<String> seen = new java.util.HashSet<>();
    for (Map.Entry<String, Long> entry : map.entrySet()) {
      assertTrue(seen.add(entry.getKey()), "each entry visited once");
      entry.setValue(entry.getValue() + 1);
    }
    assertEquals(expectedMap.keySet(), seen);
    assertEquals(34L, map.get("k3"));
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
    e = assertThrows(IndexOutOfBoundsException.class, () -> new VecString(-1, "x"));
    assertEquals("vector count must be positive", e.getMessage());
    assertThrows(IndexOutOfBoundsException.class, () -> v.reserve(Long.MAX_VALUE));

    assertNpe("null string", () -> v.add(null));
    assertNpe("null string", () -> v.set(99, null));  // string checked first
    assertNpe("null string", () -> new VecString(-1, null));
    assertEquals(List.of("a", "b", "c"), v);  // unchanged by every failure
  }

  @Test
  void nullCollectionsAndIteratorsAreRefusedWithTheirTypeNames() {
    String[] texts = {
      "std::vector< std::string > const & reference is null",
      "std::vector< Vantor::AlgorithmType > const & reference is null",
      "std::vector< std::shared_ptr< VQFeature::Resource > > const & reference is null",
      "std::vector< std::shared_ptr< VQFeature::Result > > const & reference is null",
      "std::vector< std::shared_ptr< VQFeature::MultiResult > > const & reference is null",
      "std::unordered_map< std::string,long long > const & reference is null",
      "std::unordered_map< std::string,float > const & reference is null",
      "std::unordered_map< std::string,std::string > const & reference is null",
    };
    // The natives keep the C++ type names; the proxies name the Java parameter.
    Runnable[] constructors = {
      () -> MPFeatureExtractorJNI.new_VecString__SWIG_1(0, null),
      () -> MPFeatureExtractorJNI.new_VecAlgorithmType__SWIG_1(0, null),
      () -> MPFeatureExtractorJNI.new_ResourceList__SWIG_1(0, null),
      () -> MPFeatureExtractorJNI.new_FeatureResultList__SWIG_1(0, null),
      () -> MPFeatureExtractorJNI.new_VecMultiResult__SWIG_1(0, null),
      () -> MPFeatureExtractorJNI.new_StringLongMap__SWIG_1(0, null),
      () -> MPFeatureExtractorJNI.new_StringFloatMap__SWIG_1(0, null),
      () -> MPFeatureExtractorJNI.new_StringStringMap__SWIG_1(0, null),
    };
    assertNpe("other must not be null (VecString)", () -> new VecString((VecString) null));
    assertNpe("other must not be null (StringStringMap)", () -> new StringStringMap((StringStringMap) null));
    for (int i = 0; i < texts.length; i++) assertNpe(texts[i], constructors[i]::run);

    StringLongMap longs = new StringLongMap();
    longs.put("a", 1L);
    long handle = StringLongMap.getCPtr(longs);
    assertNpe("Attempt to dereference null std::unordered_map< std::string,long long >::iterator const",
        () -> MPFeatureExtractorJNI.StringLongMap_removeUnchecked(handle, longs, 0, null));
    long begin = MPFeatureExtractorJNI.StringLongMap_begin(handle, longs);
    assertNpe("Attempt to dereference null std::unordered_map< std::string,long long >::iterator",
        () -> MPFeatureExtractorJNI.StringLongMap_Iterator_isNot(begin, null, 0, null));
    MPFeatureExtractorJNI.delete_StringLongMap_Iterator(begin);
    StringFloatMap floats = new StringFloatMap();
    assertNpe("Attempt to dereference null std::unordered_map< std::string,float >::iterator const",
        () -> MPFeatureExtractorJNI.StringFloatMap_removeUnchecked(StringFloatMap.getCPtr(floats), floats, 0, null));
    StringStringMap strings = new StringStringMap();
    assertNpe("Attempt to dereference null std::unordered_map< std::string,std::string >::iterator const",
        () -> MPFeatureExtractorJNI.StringStringMap_removeUnchecked(StringStringMap.getCPtr(strings), strings, 0, null));
    assertNpe("null string", () -> strings.put("k", null));
    assertEquals(1, longs.size());
  }

  @Test
  void sharedPointerElementsEnumerationsAndMaps() {
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

    StringLongMap longs = new StringLongMap();
    longs.put("k3", 3L);
    assertEquals(3L, longs.put("k3", 33L));  // the previous value, as java.util.Map does
    for (Map.Entry<String, Long> entry : longs.entrySet()) entry.setValue(entry.getValue() + 1);  // writes through
    assertEquals(Map.of("k3", 34L), longs);
    assertEquals("[k3=34]", longs.entrySet().toString());  // entries print as java.util's do
    StringFloatMap floats = new StringFloatMap();
    floats.put("thres", 0.5f);
    assertEquals(0.5f, floats.get("thres"));
  }

  @Test
  void collectionFieldsAreViewsIntoTheirRecord() {
    Input input = new Input();
    input.getIntParams().put("face_max_num", 10L);
    input.getResList().add(new Resource("r"));
    assertEquals("r", input.getResList().get(0).getAssetId());
    input.setType(AlgorithmType.Face);
    assertEquals("45e697e8419a009e08b4aa45d11707f3", input.algorithmKey());  // "|4|face_max_num:10"
  }

  @Test
  void mapEntriesStayValidWhenTheMapChangesOrIsReleased() {
    StringLongMap map = new StringLongMap();
    map.put("a", 1L);
    map.put("b", 2L);
    Map.Entry<String, Long> a = null;
    Map.Entry<String, Long> b = null;
    for (Map.Entry<String, Long> entry : map.entrySet()) {
      if (entry.getKey().equals("a")) a = entry;
      if (entry.getKey().equals("b")) b = entry;
    }
    assertEquals(1L, a.setValue(10L));
    assertEquals(10L, map.get("a"));
    for (int i = 0; i < 1000; i++) map.put("more" + i, (long) i);  // rehashes
    assertEquals("a", a.getKey());
    assertEquals(10L, a.getValue());
    map.remove("b");
    assertEquals("b", b.getKey());
    assertNull(b.getValue());
    map.close();
    assertEquals("a", a.getKey());
    assertThrows(IllegalStateException.class, a::getValue);
  }
}

package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.math.BigInteger;
import org.junit.jupiter.api.Test;

/** Records and the methods that move raw bytes between Java arrays and native blocks. */
class RecordsTest {
  @Test
  void imageBufferBytesAndValidity() {
    ImageBuffer buffer = new ImageBuffer();
    Resource resource = new Resource("a", "/photos/a.jpg", buffer);
    assertTrue(resource.isInvalidResource());
    buffer.setWidth(2);
    buffer.setHeight(1);
    buffer.setData(new byte[] {1, 2, 3, 4, 5, 6, 7, 8});
    assertTrue(resource.isInvalidResource());  // setData leaves length to the caller
    buffer.setLength(BigInteger.valueOf(8));
    assertFalse(resource.isInvalidResource());
    buffer.setWidth(0);
    assertTrue(resource.isInvalidResource());
    buffer.setWidth(2);
    buffer.recycle();
    assertEquals(BigInteger.valueOf(8), buffer.getLength());
    assertTrue(resource.isInvalidResource());  // no data any more
    buffer.setData(null);  // a zero-length block
    buffer.recycle();
    assertTrue(new Resource().isInvalidResource());

    // The string constructor keeps its own copy of the text.
    ImageBuffer fromText = new ImageBuffer(3, 4, "pixels", BigInteger.valueOf(6));
    assertEquals(3, fromText.getWidth());
    assertEquals(4, fromText.getHeight());
    assertEquals(BigInteger.valueOf(6), fromText.getLength());
    assertFalse(new Resource("t", "", fromText).isInvalidResource());
    fromText.recycle();
  }

  @Test
  void resultBlobs() {
    Result result = new Result("asset", "key", AlgorithmType.Face);
    assertEquals(AlgorithmType.Face, result.getAlgorithmType());
    assertEquals(BigInteger.ZERO, result.getResultLength());
    byte[] untouched = {9, 9};
    result.memcpyStructResult(untouched);  // no blob: nothing copied
    assertArrayEquals(new byte[] {9, 9}, untouched);

    result.setResultNative(new byte[] {1, 2, 3, 4});
    assertEquals(BigInteger.ZERO, result.getResultLength());  // the caller sets the length
    result.setResultLength(BigInteger.valueOf(4));
    byte[] exact = new byte[4];
    result.memcpyStructResult(exact);
    assertArrayEquals(new byte[] {1, 2, 3, 4}, exact);
    byte[] shorter = new byte[2];
    result.memcpyStructResult(shorter);  // as many bytes as the array holds
    assertArrayEquals(new byte[] {1, 2}, shorter);
    result.memcpyStructResult(null);

    result.freeResult();
    assertNull(result.getResult());
    assertEquals(BigInteger.valueOf(4), result.getResultLength());
    result.setResultNative(null);  // a zero-length block
    result.resetData();
    assertNull(result.getResult());
    assertEquals(BigInteger.ZERO, result.getResultLength());
    result.freeStructResult();

    Result named = new Result("asset", "key", MPFeatureExtractor.getAlgorithmTypeC300(), null, 0);
    assertEquals(AlgorithmType.AllNodes, named.getAlgorithmType());
    assertEquals("ClassificationPostProcess_c300", named.getAlgorithmStringType());
    assertTrue(named.freeStringTypeResult());
    assertFalse(result.freeStringTypeResult());
  }

  @Test
  void multiResultItems() {
    MultiResult multi = new MultiResult();
    assertEquals(0, multi.resultCount());
    Result source = new Result();
    source.setResultNative(new byte[] {4, 5, 6});
    multi.emplace(AlgorithmType.Face, source.getResult(), BigInteger.valueOf(3));
    source.resetData();  // the item owns the block now
    multi.emplace(MPFeatureExtractor.getAlgorithmTypeClip128(), null, BigInteger.ZERO);
    assertEquals(2, multi.resultCount());

    MultiResult.ResultItem face = multi.getResultItem(AlgorithmType.Face);
    assertEquals(BigInteger.valueOf(3), face.getSize());
    byte[] bytes = new byte[3];
    face.memcpyStructResult(bytes);
    assertArrayEquals(new byte[] {4, 5, 6}, bytes);
    assertEquals("ClassificationPostProcess_clip128",
        multi.getResultItem(MPFeatureExtractor.getAlgorithmTypeClip128()).getStringType());
    assertNull(multi.getResultItem(AlgorithmType.Skeleton));
    assertNull(multi.getResultItem("unknown"));
    multi.clear();
    assertEquals(0, multi.resultCount());
    assertArrayEquals(new byte[] {4, 5, 6}, bytes);

    MultiResult.ResultItem empty = new MultiResult.ResultItem();
    assertEquals(BigInteger.ZERO, empty.getSize());
    MultiResult.ResultItem named = new MultiResult.ResultItem("node", null, BigInteger.ZERO);
    assertEquals("node", named.getStringType());
    MultiResult.ResultItem kind = new MultiResult.ResultItem(AlgorithmType.Skeleton, null, BigInteger.ZERO);
    assertEquals(AlgorithmType.Skeleton, kind.getType());
  }

  @Test
  void coverUtilities() {
    assertTrue(CoverUtil.getDefaultModels().contains("qm_face"));
    assertTrue(CoverUtil.getAlgorithmConf(AlgorithmType.Face).startsWith("{"));
    assertEquals("", CoverUtil.getAlgorithmConf(AlgorithmType.FaceAttribute));
    assertEquals("abc", CoverUtil.getMemoryAddress("abc".getBytes()));
    assertEquals("ab", CoverUtil.getMemoryAddress(new byte[] {'a', 'b', 0, 'c'}));
    assertEquals("", CoverUtil.getMemoryAddress(null));
    CoverUtil.releaseObject(new byte[] {1, 2, 3});
    CoverUtil.releaseObject(null);
    new CoverUtil().delete();
  }

  @Test
  void plainRecords() {
    VantorFeatureData data = new VantorFeatureData();
    assertNull(data.getFeatureData());
    data.setFeatureData("feature");
    data.setFeatureLen(7);
    data.setFeatureData("replaced");
    assertEquals("replaced", data.getFeatureData());
    assertEquals(7, data.getFeatureLen());
    data.delete();

    VantorAlgorithmInput input = new VantorAlgorithmInput(VantorInputType.INPUT_TYPE_TENSOR);
    assertEquals(VantorInputType.INPUT_TYPE_TENSOR, input.type());
    new NativeStringUtils().delete();
  }
}

package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.math.BigInteger;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;

/**
 * The methods that move raw bytes between Java arrays and native blocks. What the records
 * do with the bytes is covered by the engine's own tests.
 */
class RecordsTest {
  @Test
  void imageBufferBytes() {
    ImageBuffer buffer = new ImageBuffer();
    Resource resource = new Resource("a", "/photos/a.jpg", buffer);
    buffer.setWidth(2);
    buffer.setHeight(1);
    buffer.setData(new byte[] {1, 2, 3, 4, 5, 6, 7, 8});
    assertTrue(resource.isInvalidResource());  // setData leaves length to the caller
    buffer.setLength(BigInteger.valueOf(8));
    assertFalse(resource.isInvalidResource());
    buffer.recycle();
    assertTrue(resource.isInvalidResource());  // no data any more
    buffer.setData(null);  // a zero-length block
    buffer.recycle();

    // The string constructor keeps its own copy of the text.
    ImageBuffer fromText = new ImageBuffer(3, 4, "pixels", BigInteger.valueOf(6));
    assertEquals(BigInteger.valueOf(6), fromText.getLength());
    assertFalse(new Resource("t", "", fromText).isInvalidResource());
    fromText.recycle();
  }

  @Test
  void resultBlobs() {
    Result result = new Result("asset", "key", AlgorithmType.Face);
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
    result.setResultNative(null);  // a zero-length block
    result.resetData();
    assertNull(result.getResult());
    result.freeStructResult();

    Result named = new Result("asset", "key", MPFeatureExtractor.getAlgorithmTypeC300(), null, 0);
    assertEquals(AlgorithmType.AllNodes, named.getAlgorithmType());
    assertEquals("ClassificationPostProcess_c300", named.getAlgorithmStringType());
    assertTrue(named.freeStringTypeResult());
  }

  @Test
  void multiResultItemsTakeOverNativeBlocks() {
    MultiResult multi = new MultiResult();
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
    assertNull(multi.getResultItem("unknown"));
    multi.clear();
    assertEquals(0, multi.resultCount());
  }

  @Test
  void aBlockPointerSetIntoSeveralRecordsIsFreedOnceAndNeverReadPastItsEnd() {
    Result first = new Result();
    first.setResultNative(new byte[] {1, 2});
    first.setResultLength(BigInteger.valueOf(1000));  // set wrong by its user
    byte[] wide = new byte[1000];
    wide[2] = 9;
    first.memcpyStructResult(wide);  // stops where the block ends
    assertArrayEquals(new byte[] {1, 2, 9}, java.util.Arrays.copyOf(wide, 3));

    // Four records hold one block; each lets go in its own way, and the last one frees it.
    Result second = new Result("a", "k", AlgorithmType.Face, first.getResult(), 2);
    Result third = new Result();
    third.setResult(first.getResult());
    MultiResult multi = new MultiResult();
    multi.emplace(AlgorithmType.Face, first.getResult(), BigInteger.valueOf(2));
    first.close();
    second.freeResult();
    third.setResult(null);
    byte[] kept = new byte[2];
    multi.getResultItem(AlgorithmType.Face).memcpyStructResult(kept);
    assertArrayEquals(new byte[] {1, 2}, kept);

    // A pointer whose block has been freed is refused, wherever it is set.
    Result spare = new Result();
    Result gone = new Result();
    gone.setResultNative(new byte[] {7});
    SWIGTYPE_p_void stale = gone.getResult();
    gone.freeResult();
    assertThrows(IllegalArgumentException.class, () -> spare.setResult(stale));
    assertNull(spare.getResult());
    assertThrows(IllegalArgumentException.class, () -> new Result("a", "k", AlgorithmType.Face, stale, 1));
    assertThrows(IllegalArgumentException.class, () -> multi.emplace(AlgorithmType.Face, stale, BigInteger.ONE));
    assertThrows(IllegalArgumentException.class, () -> multi.getResultItem(AlgorithmType.Face).setData(stale));
    assertEquals(1, multi.resultCount());
    multi.close();
  }

  @Test
  void aPointerTakenWhileItsRecordFreesItOnAnotherThreadIsHeldOrRefused() throws Exception {
    // Each record has one thread; the pointer crosses over. Between the check that the
    // block is live and the new holder, the owner's thread may free it: a second free
    // (glibc aborts the virtual machine) unless the two are one step.
    AtomicReference<SWIGTYPE_p_void> published = new AtomicReference<>();
    AtomicBoolean done = new AtomicBoolean();
    Thread owner = new Thread(() -> {
      try (Result result = new Result()) {
        for (int i = 0; i < 1_000_000; i++) {
          result.setResultNative(new byte[] {1, 2, 3, 4, 5, 6, 7, 8});
          published.set(result.getResult());
          result.freeResult();
        }
      } finally {
        done.set(true);
      }
    });
    owner.start();
    try (Result taker = new Result()) {
      while (!done.get()) {
        SWIGTYPE_p_void pointer = published.get();
        if (pointer == null) continue;
        try {
          taker.setResult(pointer);
        } catch (IllegalArgumentException freedAlready) {
          continue;
        }
        taker.setResult(null);
      }
    }
    owner.join();
  }

  @Test
  void textsFromBytesAndOwnedCopies() {
    assertEquals("abc", CoverUtil.getMemoryAddress("abc".getBytes()));
    assertEquals("ab", CoverUtil.getMemoryAddress(new byte[] {'a', 'b', 0, 'c'}));
    assertEquals("", CoverUtil.getMemoryAddress(null));
    CoverUtil.releaseObject(new byte[] {1, 2, 3});
    CoverUtil.releaseObject(null);

    VantorFeatureData data = new VantorFeatureData();
    assertNull(data.getFeatureData());
    data.setFeatureData("feature");
    data.setFeatureData("replaced");  // the earlier copy is released
    assertEquals("replaced", data.getFeatureData());
    data.delete();
    VantorAlgorithmInput input = new VantorAlgorithmInput(VantorInputType.INPUT_TYPE_TENSOR);
    assertEquals(VantorInputType.INPUT_TYPE_TENSOR, input.type());
  }
}

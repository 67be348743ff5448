package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorvane.zul.mediaprocessors.jnitest.TestHooks;
import java.lang.ref.WeakReference;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;

/** Java implementations of the engine's interfaces, called back from native code. */
class CallbacksTest {
  /** Records every call and edits the bytes in place. */
  static final class Doubler extends ByteArrayCallBack {
    final List<byte[]> received = new ArrayList<>();
    Thread lastThread;

    @Override
    public void onResult(byte[] data) {
      lastThread = Thread.currentThread();
      received.add(data == null ? null : data.clone());
      if (data != null) {
        for (int i = 0; i < data.length; i++) data[i] = (byte) (data[i] * 2);
      }
    }
  }

  /** Calls onResult through native code (as the engine would), not the Java override. */
  private static void callThroughNative(ByteArrayCallBack callback, byte[] data) {
    MPFeatureExtractorJNI.ByteArrayCallBack_onResult(ByteArrayCallBack.getCPtr(callback), callback, data);
  }

  @Test
  void byteArrayCallbacksEditBytesInPlace() {
    Doubler callback = new Doubler();
    byte[] data = {1, 2, 3};
    callThroughNative(callback, data);
    assertArrayEquals(new byte[] {1, 2, 3}, callback.received.get(0));
    assertArrayEquals(new byte[] {2, 4, 6}, data);  // copied back into the native buffer

    callThroughNative(callback, null);  // a null pointer reaches Java as a null array
    assertNull(callback.received.get(1));

    byte[][] seen = new byte[1][];
    StructResultCopyCallBack copy = new StructResultCopyCallBack() {
      @Override
      public void onResult(byte[] data) {
        seen[0] = data.clone();
        data[0] = 42;
      }
    };
    MPFeatureExtractorJNI.StructResultCopyCallBack_onResult(StructResultCopyCallBack.getCPtr(copy), copy, data);
    assertArrayEquals(new byte[] {2, 4, 6}, seen[0]);
    assertArrayEquals(new byte[] {42, 4, 6}, data);
  }

  @Test
  void nativeStringUtilsCopiesNativeMemoryToTheCallback() {
    Doubler callback = new Doubler();
    // A native block to copy from: the bytes of a Result's blob, set from Java.
    Result result = new Result();
    result.setResultNative(new byte[] {5, 6, 7, 8});
    result.setResultLength(java.math.BigInteger.valueOf(4));
    long address = MPFeatureExtractorJNI.Result_result_get(Result.getCPtr(result), result);
    NativeStringUtils.getJavaDataFromByte(address, 3, callback);
    assertArrayEquals(new byte[] {5, 6, 7}, callback.received.get(0));
    byte[] blob = new byte[4];
    result.memcpyStructResult(blob);
    assertArrayEquals(new byte[] {5, 6, 7, 8}, blob);  // the callback edited a copy
    NativeStringUtils.getJavaDataFromByte(address, 3, null);  // no callback: nothing happens
    assertEquals(1, callback.received.size());
    assertThrows(IllegalArgumentException.class, () -> NativeStringUtils.getJavaDataFromByte(0, 3, callback));
    result.freeResult();
  }

  @Test
  void notImplementedMethodsRaiseThePureVirtualText() {
    ByteArrayCallBack bare = new ByteArrayCallBack();
    RuntimeException e = assertThrows(RuntimeException.class, () -> callThroughNative(bare, new byte[] {1}));
    assertEquals("Attempted to invoke pure virtual method VQFeature::ByteArrayCallBack::onResult.", e.getMessage());
    assertSame(RuntimeException.class, e.getClass());
  }

  @Test
  void argumentsAndReturnedListsCrossWithTheRightOwnership() {
    // The other methods are reached through the engine in ExtractorTest (JavaMapCache).
    CacheAdapter answering = new CacheAdapter() {
      @Override
      public FeatureResultList query(Input input) {
        FeatureResultList list = new FeatureResultList();
        list.add(new Result("hit", input.getAlgorithmConf(), AlgorithmType.Face));
        return list;  // dropped by Java: native code holds a copy of its own
      }
    };
    Input input = new Input();
    input.setAlgorithmConf("graph");
    long results = MPFeatureExtractorJNI.CacheAdapter_query__SWIG_0(CacheAdapter.getCPtr(answering), answering,
        Input.getCPtr(input), input);
    FeatureResultList list = new FeatureResultList(results, true);
    System.gc();
    assertEquals("hit", list.get(0).getAssetId());
    assertEquals("graph", list.get(0).getAlgorithmKey());
  }

  @Test
  void callbackFromAnUnattachedNativeThreadAttachesAndDetaches() {
    Doubler callback = new Doubler();
    byte[] data = {3, 4};
    int status = TestHooks.onResultOnNativeThread(ByteArrayCallBack.getCPtr(callback), data);
    assertEquals(-2, status);  // JNI_EDETACHED: detached again after the call
    assertArrayEquals(new byte[] {6, 8}, data);
    assertNotEquals(Thread.currentThread(), callback.lastThread);

    // The caller's own thread stays attached (a second call works normally).
    callThroughNative(callback, data);
    assertSame(Thread.currentThread(), callback.lastThread);

    ByteArrayCallBack failing = new ByteArrayCallBack() {
      @Override
      public void onResult(byte[] data) {
        throw new IllegalStateException("worker failure");
      }
    };
    assertEquals(1, TestHooks.onResultOnNativeThread(ByteArrayCallBack.getCPtr(failing), data));
  }

  @Test
  void weaklyHeldPeersAfterCollection() throws InterruptedException {
    // Native code keeps its own reference to the bridge (as the engine keeps a cache)
    // while Java drops its proxy without releasing ownership: the peer is held weakly.
    long[] nativeHolder = new long[1];
    WeakReference<ByteArrayCallBack> peer = makeWeakPeer(nativeHolder);
    collectUntilCleared(peer);
    // The proxy is finalizable, so the native weak reference clears only after its
    // finalizer ran and a further collection found it unreachable.
    NullPointerException e = null;
    for (int i = 0; i < 100 && e == null; i++) {
      System.gc();
      System.runFinalization();
      try {
        MPFeatureExtractorJNI.ByteArrayCallBack_onResult(nativeHolder[0], null, new byte[] {1});
        Thread.sleep(10);
      } catch (NullPointerException collected) {
        e = collected;
      }
    }
    assertTrue(e != null, "peer never collected");
    assertEquals("null upcall object in VQFeature::ByteArrayCallBack::onResult ", e.getMessage());
    TestHooks.deleteCallbackHolder(nativeHolder[0]);

    // With ownership released to native code the peer is held strongly and survives.
    Doubler strong = new Doubler();
    strong.swigReleaseOwnership();
    long holder = TestHooks.copyCallbackHolder(ByteArrayCallBack.getCPtr(strong));
    WeakReference<Doubler> strongRef = new WeakReference<>(strong);
    strong = null;
    for (int i = 0; i < 5; i++) {
      System.gc();
      Thread.sleep(10);
    }
    byte[] data = {5};
    MPFeatureExtractorJNI.ByteArrayCallBack_onResult(holder, null, data);
    assertArrayEquals(new byte[] {10}, data);
    Doubler survivor = strongRef.get();
    assertTrue(survivor != null);
    survivor.swigTakeOwnership();  // weak again: collectable once the holders go
    TestHooks.deleteCallbackHolder(holder);
    survivor.delete();
  }

  private static WeakReference<ByteArrayCallBack> makeWeakPeer(long[] nativeHolder) {
    Doubler callback = new Doubler();
    nativeHolder[0] = TestHooks.copyCallbackHolder(ByteArrayCallBack.getCPtr(callback));
    return new WeakReference<>(callback);
  }

  static void collectUntilCleared(WeakReference<?> ref) throws InterruptedException {
    for (int i = 0; i < 100 && ref.get() != null; i++) {
      System.gc();
      Thread.sleep(10);
    }
    assertNull(ref.get());
  }
}

package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Deleted and closed proxies: a clear exception, never a native crash. */
class LifetimesTest {
  @TempDir Path tmp;

  private static void assertDeleted(String what, Runnable call) {
    IllegalStateException e = assertThrows(IllegalStateException.class, call::run, what);
    assertTrue(e.getMessage().contains("has been deleted"), e.getMessage());
  }

  @Test
  void callsOnClosedProxiesThrow() throws Exception {
    Extractor extractor;
    Result result;
    try (MemoryCache cache = new MemoryCache(4);
        Extractor open = Pictures.initialised(tmp, cache, null);
        Result r = new Result("asset", "key", AlgorithmType.Face)) {
      extractor = open;
      result = r;
      assertEquals("asset", r.getAssetId());
    }
    assertDeleted("Extractor.init", extractor::init);
    assertDeleted("Extractor.clearAll", extractor::clearAll);
    assertDeleted("Result field", result::getAssetId);
    assertDeleted("Result method", () -> result.memcpyStructResult(new byte[1]));

    // close() twice, and close() after delete(), do nothing.
    ImageBuffer buffer = new ImageBuffer();
    buffer.close();
    buffer.close();
    buffer.delete();
    assertDeleted("ImageBuffer setter", () -> buffer.setWidth(1));

    // Collections are released with delete(); afterwards they refuse calls the same way.
    VecString names = new VecString();
    names.add("a");
    names.delete();
    names.delete();
    assertDeleted("VecString.size", names::size);
  }

  @Test
  void aCachedResultOutlivesItsClosedProxy() throws Exception {
    // close() drops one reference; the cache keeps its own.
    try (MemoryCache cache = new MemoryCache(4)) {
      try (Result result = new Result("asset", "key", AlgorithmType.Face)) {
        cache.save(result);
      }
      try (Result again = cache.query("asset", "key")) {
        assertEquals("asset", again.getAssetId());
      }
    }
  }

  @Test
  void closeFromAnotherThreadWaitsForTheRunInProgress() throws Exception {
    // An app closes its extractor (onDestroy, say) while a worker thread still extracts.
    CountDownLatch running = new CountDownLatch(1);
    JavaMapCache slowCache = new JavaMapCache() {
      @Override
      public Result query(String assetId, String algorithmKey) {
        running.countDown();
        try {
          Thread.sleep(100);  // widens the window in which close() arrives
        } catch (InterruptedException e) {
          Thread.currentThread().interrupt();
        }
        return super.query(assetId, algorithmKey);
      }
    };
    Extractor extractor = Pictures.initialised(tmp, slowCache, null);
    Input request = new Input(Pictures.resources(Pictures.resource("astronaut", "astronaut.jpg"),
        Pictures.resource("chelsea", "chelsea.jpg"), Pictures.resource("coffee", "coffee.jpg")),
        CoverUtil.getAlgorithmConf(AlgorithmType.SceneRecog), new StringLongMap(), AlgorithmType.SceneRecog);
    AtomicReference<Throwable> failure = new AtomicReference<>();
    int[] blobs = new int[1];
    Thread worker = new Thread(() -> {
      try (ErrorPair error = new ErrorPair(0, "")) {
        for (Result result : extractor.extractFeatures(request, true, error)) {
          if (result.getResultLength().signum() > 0) blobs[0]++;
        }
        assertEquals(0, error.getFirst(), error.getSecond());
      } catch (Throwable t) {
        failure.set(t);
      }
    });
    worker.start();
    running.await();
    extractor.close();  // must not destroy the engine under the run
    worker.join();
    assertNull(failure.get());
    assertEquals(3, blobs[0]);
    assertDeleted("Extractor.extractFeatures after close", () -> extractor.extractFeatures(request, true));
  }
}

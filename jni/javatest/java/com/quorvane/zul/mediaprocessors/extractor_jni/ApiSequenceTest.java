package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorvane.zul.mediaprocessors.analyzer.Analysis;
import com.quorvane.zul.mediaprocessors.analyzer.Analyzer;
import com.quorvane.zul.mediaprocessors.analyzer.Kind;
import java.math.BigInteger;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * Calls an app can get wrong, and random sequences of them from one to four threads,
 * through the proxies and the open framework: every one ends in an answer, an error code
 * or a Java exception, never in a crash of the virtual machine.
 */
class ApiSequenceTest {
  @TempDir Path tmp;

  private static Resource claiming(int width, int height, int bytes, long length) {
    ImageBuffer buffer = new ImageBuffer();
    buffer.setWidth(width);
    buffer.setHeight(height);
    buffer.setData(new byte[bytes]);
    buffer.setLength(BigInteger.valueOf(length));
    return new Resource("claim" + width + "x" + height + "/" + bytes, "", buffer);
  }

  @Test
  void lengthsClaimingMoreThanTheDataFailWithBothCounts() throws Exception {
    Extractor extractor = Pictures.initialised(tmp, new MemoryCache(8), null);
    Object[][] cases = {
      {claiming(2000, 2000, 100, 16_000_000), "image data holds 100 bytes, 16000000 needed"},
      {claiming(640, 480, 600_000, 1_228_800), "image data holds 600000 bytes, 1228800 needed"},
      {claiming(640, 480, 100, 1_228_800), "image data holds 100 bytes, 1228800 needed"},
      {new Resource("text", "", new ImageBuffer(640, 480, "abc", BigInteger.valueOf(1_228_800))),
        "image data holds 3 bytes, 1228800 needed"},
    };
    for (Object[] c : cases) {
      ErrorPair error = new ErrorPair(0, "");
      ResourceList list = Pictures.resources((Resource) c[0]);
      FeatureResultList out = extractor.extractFeatures(
          new Input(list, CoverUtil.getAlgorithmConf(AlgorithmType.Face), new StringLongMap(), AlgorithmType.Face),
          true, error);
      assertEquals(1, out.size());
      assertEquals(8, error.getFirst(), error.getSecond());
      assertTrue(error.getSecond().contains((String) c[1]), error.getSecond());
    }
    NullPointerException npe = assertThrows(NullPointerException.class,
        () -> extractor.extractFeatures((Input) null, true, new ErrorPair()));
    assertEquals("input must not be null (Input)", npe.getMessage());
    assertThrows(NullPointerException.class, () -> extractor.extractFeatures((MultiAlgorithmInput) null, true));
  }

  @Test
  void initOnOneThreadWhileAnotherExtractsWaitsForTheRun() throws Exception {
    Extractor extractor = Pictures.initialised(tmp, new MemoryCache(8), null);
    ResourceList photos = Pictures.resources(Pictures.resource("astronaut", "astronaut.jpg"));
    Input request = new Input(photos, CoverUtil.getAlgorithmConf(AlgorithmType.Face), new StringLongMap(),
        AlgorithmType.Face);
    AtomicReference<Throwable> failure = new AtomicReference<>();
    Thread runner = new Thread(() -> {
      try {
        for (int i = 0; i < 6; i++) {
          ErrorPair error = new ErrorPair(0, "");
          extractor.extractFeatures(request, false, error);
          assertEquals(0, error.getFirst(), error.getSecond());
        }
      } catch (Throwable t) {
        failure.set(t);
      }
    });
    runner.start();
    for (int i = 0; i < 6; i++) {
      assertEquals(0, extractor.init());
      extractor.clearAll();
    }
    runner.join();
    if (failure.get() != null) throw new AssertionError(failure.get());
  }

  /** One thread's random walk; records are its own, the extractor is shared. */
  private static final class Walker implements Runnable {
    private final Extractor shared;
    private final Analyzer analyzer;
    private final Random random;
    private final int calls;
    private final String prefix;  // asset ids of its own: cached Results never cross threads
    private final List<ImageBuffer> buffers = new ArrayList<>();
    private final List<Resource> resources = new ArrayList<>();
    private final List<Result> results = new ArrayList<>();
    Throwable failure;

    Walker(Extractor shared, Analyzer analyzer, long seed, int calls, String prefix) {
      this.shared = shared;
      this.analyzer = analyzer;
      this.prefix = prefix;
      this.random = new Random(seed);
      this.calls = calls;
      buffers.add(new ImageBuffer());
      resources.add(new Resource(prefix));
    }

    private <T> T any(List<T> list) {
      return list.get(random.nextInt(list.size()));
    }

    private int size() {
      int[] sizes = {Integer.MIN_VALUE, -1, 0, 1, 2, 7, 16, 33, 1 << 15, Integer.MAX_VALUE};
      return random.nextBoolean() ? random.nextInt(40) : sizes[random.nextInt(sizes.length)];
    }

    private ResourceList list() {
      ResourceList list = new ResourceList();
      for (int n = random.nextInt(3); n > 0; n--) list.add(any(resources));
      return list;
    }

    private AlgorithmType kind() {
      AlgorithmType[] kinds = AlgorithmType.values();
      return kinds[random.nextInt(kinds.length)];
    }

    private void step() {
      switch (random.nextInt(15)) {
        case 0:
          buffers.add(random.nextBoolean() ? new ImageBuffer()
              : new ImageBuffer(size(), size(), "xyz", BigInteger.valueOf(random.nextInt(5000))));
          break;
        case 1:
          any(buffers).setData(random.nextInt(8) == 0 ? null : new byte[random.nextInt(5000)]);
          break;
        case 2:
          any(buffers).recycle();
          break;
        case 3: {
          ImageBuffer b = any(buffers);
          b.setWidth(size());
          b.setHeight(size());
          b.setFormat(random.nextInt(14) - 3);
          b.setRotateMode(random.nextInt(7) - 1);
          b.setLength(random.nextBoolean() ? BigInteger.valueOf(random.nextInt(5000))
              : BigInteger.ONE.shiftLeft(64).subtract(BigInteger.ONE));
          break;
        }
        case 4:
          resources.add(new Resource(prefix + random.nextInt(4), "", random.nextBoolean() ? any(buffers) : null));
          any(resources).isInvalidResource();
          break;
        case 5: {
          AlgorithmType kind = kind();
          Input input = new Input(list(), random.nextBoolean() ? "" : CoverUtil.getAlgorithmConf(kind),
              new StringLongMap(), kind);
          for (Result r : shared.extractFeatures(input, random.nextBoolean(), new ErrorPair())) results.add(r);
          break;
        }
        case 6: {
          VecAlgorithmType types = new VecAlgorithmType();
          types.add(kind());
          VecString names = new VecString(new String[] {MPFeatureExtractor.getAlgorithmTypeC300(), "x"});
          MultiAlgorithmInput input = new MultiAlgorithmInput(list(), random.nextBoolean() ? ""
              : CoverUtil.getAlgorithmConf(AlgorithmType.SceneRecog), types, names);
          for (MultiResult m : shared.extractFeatures(input, random.nextBoolean())) {
            MultiResult.ResultItem item = m.getResultItem(MPFeatureExtractor.getAlgorithmTypeC300());
            if (item != null) item.memcpyStructResult(new byte[random.nextInt(64)]);
            m.resultCount();
          }
          break;
        }
        case 7:
          shared.queryFeatures(new Input(list(), "", new StringLongMap(), kind()), random.nextBoolean());
          break;
        case 8:
          if (random.nextInt(4) == 0) assertEquals(0, shared.init());  // loads every network: slow
          break;
        case 9:
          shared.clearAll();
          shared.clearAssets(new VecString(new String[] {prefix + 1}));
          break;
        case 10:
          if (!results.isEmpty()) {
            Result r = any(results);
            r.memcpyStructResult(new byte[random.nextInt(64)]);
            if (random.nextBoolean()) r.freeStructResult();
            if (random.nextInt(4) == 0) r.freeResult();
            r.getResultLength();
          }
          break;
        case 11: {
          // Closed proxies refuse every call with IllegalStateException.
          ImageBuffer closed = new ImageBuffer();
          closed.close();
          assertThrows(IllegalStateException.class, () -> closed.setWidth(1));
          closed.close();
          break;
        }
        case 12:
          assertThrows(NullPointerException.class, () -> shared.extractFeatures((Input) null, false));
          break;
        case 13: {
          // The analyser, shared too: random kinds over the walker's buffers.
          List<Kind<?>> kinds = Kind.values();
          Analysis analysis = analyzer.analyze(prefix + random.nextInt(4), any(buffers),
              kinds.get(random.nextInt(kinds.size())), kinds.get(random.nextInt(kinds.size())));
          assertTrue(analysis.status().ok() || !analysis.status().message().isEmpty());
          break;
        }
        default:
          try (MemoryCache own = new MemoryCache(random.nextInt(3) - 1)) {
            for (Result r : results) own.save(r);
          } catch (IllegalArgumentException capacityZero) {
            // refused at construction
          }
          break;
      }
    }

    @Override
    public void run() {
      try {
        for (int i = 0; i < calls; i++) step();
      } catch (Throwable t) {
        failure = t;
      }
    }
  }

  @Test
  void randomCallsFromOneToFourThreads() throws Exception {
    long seed = Long.getLong("vqfe.seed", System.nanoTime());
    for (int threads = 1; threads <= 4; threads++) {
      Extractor shared = new Extractor(new Config(), new MemoryCache(8), new MemoryCache(-1),
          Pictures.MODEL_DIR.toString(), Pictures.frameworkConfig(tmp).toString(), false);
      Analyzer analyzer = Analyzer.builder().modelDirectory(Pictures.MODEL_DIR.toString())
          .frameworkConfig(Pictures.frameworkConfig(tmp).toString()).memoryCacheSize(16).build();
      List<Walker> walkers = new ArrayList<>();
      List<Thread> running = new ArrayList<>();
      for (int t = 0; t < threads; t++) {
        Walker walker = new Walker(shared, analyzer, seed + threads * 16 + t, 600 / threads, "t" + t + "/");
        walkers.add(walker);
        Thread thread = new Thread(walker);
        running.add(thread);
        thread.start();
      }
      for (Thread thread : running) thread.join();
      for (Walker walker : walkers) {
        if (walker.failure != null) throw new AssertionError("seed " + seed + ", " + threads + " threads", walker.failure);
      }
      shared.close();
      analyzer.close();
    }
  }
}

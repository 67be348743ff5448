package vqfe.bench;

import com.quorvane.zul.mediaprocessors.extractor_jni.AlgorithmType;
import com.quorvane.zul.mediaprocessors.extractor_jni.Config;
import com.quorvane.zul.mediaprocessors.extractor_jni.CoverUtil;
import com.quorvane.zul.mediaprocessors.extractor_jni.ErrorPair;
import com.quorvane.zul.mediaprocessors.extractor_jni.Extractor;
import com.quorvane.zul.mediaprocessors.extractor_jni.FeatureResultList;
import com.quorvane.zul.mediaprocessors.extractor_jni.ImageBuffer;
import com.quorvane.zul.mediaprocessors.extractor_jni.Input;
import com.quorvane.zul.mediaprocessors.extractor_jni.MemoryCache;
import com.quorvane.zul.mediaprocessors.extractor_jni.Resource;
import com.quorvane.zul.mediaprocessors.extractor_jni.ResourceList;
import com.quorvane.zul.mediaprocessors.extractor_jni.Result;
import com.quorvane.zul.mediaprocessors.extractor_jni.StringLongMap;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.math.BigInteger;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Locale;

/**
 * extractFeatures through JNI over assets that are all in the MemoryCache: the time per
 * asset that a Java caller sees, the result list released each call. Two walks: requests
 * without a graph text (what the binding and the engine cost; the C++ walk it is compared
 * with runs a framework whose graph loads cost nothing), and the same requests carrying the
 * kind's graph, which the open framework loads again on every call (reading the kind's
 * 10 MB model file anew). Prints a Google Benchmark style JSON document (medians of the
 * repetitions) that bench_table.py reads.
 *
 * <p>Arguments: assets, repetitions, minimum seconds per repetition, model directory.
 */
public final class CachedWalkBench {
  private CachedWalkBench() {}

  public static void main(String[] args) throws Exception {
    int assets = args.length > 0 ? Integer.parseInt(args[0]) : 1000;
    int repetitions = args.length > 1 ? Integer.parseInt(args[1]) : 5;
    double minSeconds = args.length > 2 ? Double.parseDouble(args[2]) : 0.5;
    String modelDir = args.length > 3 ? args[3] : "build/models";

    Path config = Files.createTempFile("vqfe-bench", ".json");
    Files.write(config, "{}".getBytes(StandardCharsets.UTF_8));
    MemoryCache cache = new MemoryCache(2 * assets);
    Extractor extractor = new Extractor(new Config(), cache, null, modelDir, config.toString(), false);
    int code = extractor.init();
    Files.delete(config);
    if (code != 0) throw new IllegalStateException("init failed: " + code);

    String[] names = {"jni/cached_1k/vqfe", "jni/cached_1k/with_graph"};
    Input[] requests = {request(assets, ""), request(assets, CoverUtil.getAlgorithmConf(AlgorithmType.PornCls))};
    for (Input request : requests) {
      String key = request.algorithmKey();
      for (int i = 0; i < assets; i++) {
        cache.save(new Result(assetId(i), key, AlgorithmType.PornCls));
      }
      ErrorPair error = new ErrorPair(0, "untouched");
      FeatureResultList check = extractor.extractFeatures(request, true, error);
      if (check.size() != assets || !"untouched".equals(error.getSecond())) {
        throw new IllegalStateException("the walk was not answered from the cache: " + error.getSecond());
      }
      check.delete();
    }

    ThreadMXBean threads = ManagementFactory.getThreadMXBean();
    StringBuilder out = new StringBuilder("{\"benchmarks\": [");
    for (int w = 0; w < requests.length; w++) {
      walk(extractor, requests[w], minSeconds, threads);  // warm-up: JIT and caches
      double[] cpu = new double[repetitions];
      double[] wall = new double[repetitions];
      for (int r = 0; r < repetitions; r++) {
        double[] perCall = walk(extractor, requests[w], minSeconds, threads);
        cpu[r] = perCall[0];
        wall[r] = perCall[1];
      }
      double cpuPerCall = median(cpu);
      out.append(w == 0 ? "" : ", ").append(String.format(Locale.ROOT,
          "{\"name\": \"%s_median\", \"run_name\": \"%s\", "
              + "\"run_type\": \"aggregate\", \"aggregate_name\": \"median\", \"repetitions\": %d, "
              + "\"real_time\": %.1f, \"cpu_time\": %.1f, \"time_unit\": \"ns\", \"items_per_second\": %.1f}",
          names[w], names[w], repetitions, median(wall), cpuPerCall, assets * 1e9 / cpuPerCall));
    }
    System.out.println(out.append("]}"));
  }

  static String assetId(int i) {
    return "content://media/external/images/media/" + (100000 + i);
  }

  static Input request(int assets, String graph) {
    byte[] pixels = new byte[4 * 4 * 4];
    ResourceList resources = new ResourceList();
    for (int i = 0; i < assets; i++) {
      ImageBuffer buffer = new ImageBuffer();
      buffer.setWidth(4);
      buffer.setHeight(4);
      buffer.setFormat(1);
      buffer.setData(pixels);
      buffer.setLength(BigInteger.valueOf(pixels.length));
      resources.add(new Resource(assetId(i), assetId(i) + ".jpg", buffer));
    }
    return new Input(resources, graph, new StringLongMap(), AlgorithmType.PornCls);
  }

  /** Calls until minSeconds of CPU time passed; {cpu ns, wall ns} per call. */
  static double[] walk(Extractor extractor, Input request, double minSeconds, ThreadMXBean threads) {
    long calls = 0;
    long cpuStart = threads.getCurrentThreadCpuTime();
    long wallStart = System.nanoTime();
    long cpuEnd;
    do {
      FeatureResultList results = extractor.extractFeatures(request, true, null);
      results.delete();
      calls++;
      cpuEnd = threads.getCurrentThreadCpuTime();
    } while (cpuEnd - cpuStart < minSeconds * 1e9);
    return new double[] {(cpuEnd - cpuStart) / (double) calls, (System.nanoTime() - wallStart) / (double) calls};
  }

  static double median(double[] values) {
    double[] sorted = values.clone();
    Arrays.sort(sorted);
    int n = sorted.length;
    return n % 2 == 1 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
  }
}

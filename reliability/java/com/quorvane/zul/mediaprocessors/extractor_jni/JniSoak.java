package com.quorvane.zul.mediaprocessors.extractor_jni;

import java.awt.Color;
import java.awt.Graphics2D;
import java.awt.image.BufferedImage;
import java.math.BigInteger;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.List;

/**
 * Soak through JNI: extractions as an app makes them, with a native MemoryCache of 1,000
 * entries that keeps evicting (every second request repeats the one before it, the rest
 * are new assets), and every result, list and request released by this side with delete().
 * The process's resident memory is measured after a warm-up and at the end; it must grow
 * by less than 5%. Run it with HotSpot's C2 compiler off (-XX:TieredStopAtLevel=1): C2 keeps
 * compiling through such a run and the arenas it frees stay resident in glibc's heaps, a
 * creep of the desktop JVM (the same loop in C++ stays flat), not of the library.
 *
 * <p>Usage: JniSoak EXTRACTIONS WARMUP MODEL_DIR WORK_DIR. Exit status 0 when it holds.
 */
public final class JniSoak {
  private static final int CACHE_CAPACITY = 1000;
  // Kinds whose graphs need no network: the soak is about memory, and a network run per
  // extraction (the scene kinds detect persons) would take it past its time limit.
  private static final int[] KINDS = {29, 33, 60};

  private JniSoak() {}

  public static void main(String[] args) throws Exception {
    int extractions = Integer.parseInt(args[0]);
    int warmup = Integer.parseInt(args[1]);
    Path modelDir = Paths.get(args[2]);
    Path config = Paths.get(args[3]).resolve("framework.json");
    Files.write(config, "{}".getBytes(StandardCharsets.UTF_8));

    MemoryCache cache = new MemoryCache(CACHE_CAPACITY);
    Extractor extractor = new Extractor(new Config(), cache, null, modelDir.toString(), config.toString(), false);
    if (extractor.init() != 0) throw new IllegalStateException("init failed");
    String[] graphs = new String[KINDS.length];
    for (int k = 0; k < KINDS.length; k++) graphs[k] = CoverUtil.getAlgorithmConf(AlgorithmType.swigToEnum(KINDS[k]));
    byte[][] pictures = {picture(0), picture(1), picture(2)};

    long blobs = 0;
    long bytes = 0;
    long baseline = 0;
    long started = System.nanoTime();
    for (int i = 0; i < extractions; i++) {
      if (i == warmup) baseline = settledRss();
      if (i > warmup && i % (extractions / 10) == 0) System.out.printf("[soak] after %d: %d KiB%n", i, settledRss());
      int request = i / 2;  // every second extraction repeats the previous request
      int kind = request % KINDS.length;
      ImageBuffer buffer = new ImageBuffer();
      buffer.setWidth(64);
      buffer.setHeight(48);
      buffer.setFormat(0);
      buffer.setData(pictures[request % pictures.length]);
      buffer.setLength(BigInteger.valueOf(64 * 48 * 4));
      Resource resource = new Resource("asset-" + request, "", buffer);
      ResourceList resources = new ResourceList();
      resources.add(resource);
      StringLongMap params = new StringLongMap();
      Input input = new Input(resources, graphs[kind], params, AlgorithmType.swigToEnum(KINDS[kind]));
      FeatureResultList results = extractor.extractFeatures(input, true, null);
      for (int r = 0; r < results.size(); r++) {
        Result result = results.get(r);
        long length = result.getResultLength().longValue();
        if (length > 0) {
          blobs++;
          bytes += length;
        }
        result.delete();
      }
      results.delete();
      input.delete();
      params.delete();
      resources.delete();
      resource.delete();
      buffer.delete();
    }
    long end = settledRss();
    double seconds = (System.nanoTime() - started) / 1e9;
    double growth = 100.0 * (end - baseline) / baseline;
    System.out.printf("[soak] %d extractions in %.1f s, %d blobs (%d bytes), cache capacity %d%n",
        extractions, seconds, blobs, bytes, CACHE_CAPACITY);
    System.out.printf("[soak] resident memory after %d: %d KiB, at the end: %d KiB, growth %.2f%%%n",
        warmup, baseline, end, growth);
    extractor.delete();
    cache.delete();
    if (blobs != extractions) {
      System.out.println("[soak] FAILED: an extraction gave no blob");
      System.exit(1);
    }
    if (growth >= 5.0) {
      System.out.println("[soak] FAILED: resident memory grew by 5% or more");
      System.exit(1);
    }
  }

  /** A 64 x 48 RGBA picture, different per index. */
  private static byte[] picture(int index) {
    BufferedImage image = new BufferedImage(64, 48, BufferedImage.TYPE_INT_ARGB);
    Graphics2D g = image.createGraphics();
    g.setColor(index == 0 ? new Color(90, 170, 230) : index == 1 ? new Color(25, 20, 20) : Color.WHITE);
    g.fillRect(0, 0, 64, 48);
    g.setColor(index == 0 ? new Color(60, 160, 40) : new Color(225, 170, 140));
    if (index == 0) g.fillRect(0, 24, 64, 24); else g.fillOval(16, 8, 32, 32);
    g.dispose();
    byte[] rgba = new byte[64 * 48 * 4];
    int i = 0;
    for (int y = 0; y < 48; y++) {
      for (int x = 0; x < 64; x++) {
        int argb = image.getRGB(x, y);
        rgba[i++] = (byte) (argb >> 16);
        rgba[i++] = (byte) (argb >> 8);
        rgba[i++] = (byte) argb;
        rgba[i++] = (byte) (argb >>> 24);
      }
    }
    return rgba;
  }

  /** VmRSS in KiB after a garbage collection has had its chance. */
  private static long settledRss() throws Exception {
    for (int k = 0; k < 3; k++) {
      System.gc();
      Thread.sleep(100);
    }
    List<String> lines = Files.readAllLines(Paths.get("/proc/self/status"));
    for (String line : lines) {
      if (line.startsWith("VmRSS:")) return Long.parseLong(line.replaceAll("[^0-9]", ""));
    }
    throw new IllegalStateException("no VmRSS");
  }
}

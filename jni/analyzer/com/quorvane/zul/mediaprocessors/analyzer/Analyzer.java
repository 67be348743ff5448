package com.quorvane.zul.mediaprocessors.analyzer;

import com.google.protobuf.InvalidProtocolBufferException;
import com.google.protobuf.Message;
import com.quorvane.zul.mediaprocessors.assetManager_jni.AssetManagerHolderJNI;
import com.quorvane.zul.mediaprocessors.extractor_jni.AlgorithmType;
import com.quorvane.zul.mediaprocessors.extractor_jni.CacheAdapter;
import com.quorvane.zul.mediaprocessors.extractor_jni.Config;
import com.quorvane.zul.mediaprocessors.extractor_jni.ErrorPair;
import com.quorvane.zul.mediaprocessors.extractor_jni.Extractor;
import com.quorvane.zul.mediaprocessors.extractor_jni.ImageBuffer;
import com.quorvane.zul.mediaprocessors.extractor_jni.KeptGraph;
import com.quorvane.zul.mediaprocessors.extractor_jni.MPFeatureExtractor;
import com.quorvane.zul.mediaprocessors.extractor_jni.MultiAlgorithmInput;
import com.quorvane.zul.mediaprocessors.extractor_jni.MultiResult;
import com.quorvane.zul.mediaprocessors.extractor_jni.Resource;
import com.quorvane.zul.mediaprocessors.extractor_jni.ResourceList;
import com.quorvane.zul.mediaprocessors.extractor_jni.Result;
import com.quorvane.zul.mediaprocessors.extractor_jni.SqliteCache;
import com.quorvane.zul.mediaprocessors.extractor_jni.TieredCache;
import com.quorvane.zul.mediaprocessors.extractor_jni.VecAlgorithmType;
import com.quorvane.zul.mediaprocessors.extractor_jni.VecMultiResult;
import com.quorvane.zul.mediaprocessors.extractor_jni.VecString;
import com.quorvane.zul.mediaprocessors.extractor_results.ResultMessages;
import java.io.File;
import java.math.BigInteger;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.locks.ReentrantReadWriteLock;

/**
 * Finds faces, scenes, classes and the other {@link Kind}s in images, answering from its
 * caches where it can. Build one with {@link #builder()}, call {@link #analyze} for each
 * image, and {@link #close()} it when done (try-with-resources).
 *
 * <p>All kinds asked for in one call run as one graph, once per image. The graph is loaded
 * (its model files read) by the first call that runs and kept while later calls ask for the
 * same kinds; a call for other kinds loads theirs. Answers are kept in
 * a memory cache in front of an optional persistent store: a restarted app finds them in
 * the store, and a store hit is copied into memory.
 *
 * <p>Threads: any thread may call any method at any time. Framework runs are serialised
 * inside the library (one at a time per analyser); cache lookups of other threads go on
 * meanwhile. {@link #close()} waits for the calls in progress and makes later calls throw
 * {@link IllegalStateException}. The image buffers handed in must not be changed by
 * another thread during the call that reads them.
 */
public final class Analyzer implements AutoCloseable {
  private final Extractor extractor;
  private final TieredCache cache;
  private static final int NO_RESULT = 204;
  private final Map<String, String> graphs = new ConcurrentHashMap<>();
  private final Map<Kind<?>, String> kindKeys = new ConcurrentHashMap<>();
  private final ReentrantReadWriteLock lifecycle = new ReentrantReadWriteLock();
  private boolean closed;
  // Which graph the framework holds, so that a request for it carries no graph text.
  // Guarded by runLock: a run that keeps the graph must not interleave with one that
  // changes it.
  private final Object runLock = new Object();
  private final KeptGraph keptGraph = new KeptGraph();

  private Analyzer(Extractor extractor, TieredCache cache) {
    this.extractor = extractor;
    this.cache = cache;
  }

  /**
   * A builder for an analyser.
   *
   * @return a new builder
   */
  public static Builder builder() {
    return new Builder();
  }

  /** Settings of an {@link Analyzer}, checked by {@link #build()}. */
  public static final class Builder {
    private String modelDirectory;
    private String frameworkConfig;
    private Object assetManager;
    private int memoryCacheSize = 256;
    private CacheAdapter store;
    private String sqlitePath;

    private Builder() {}

    /**
     * The directory that holds the model files (required).
     *
     * @param path a directory; with {@link #assetManager} a directory of the app's assets
     * @return this builder
     */
    public Builder modelDirectory(String path) {
      this.modelDirectory = Objects.requireNonNull(path, "modelDirectory must not be null");
      return this;
    }

    /**
     * The framework's configuration file (required).
     *
     * @param path a file path; with {@link #assetManager} the name of an asset
     * @return this builder
     */
    public Builder frameworkConfig(String path) {
      this.frameworkConfig = Objects.requireNonNull(path, "frameworkConfig must not be null");
      return this;
    }

    /**
     * Reads the framework configuration from the app's assets (Android): pass the
     * app's android.content.res.AssetManager. It is registered process-wide when the
     * analyser is built.
     *
     * @param assetManager the app's AssetManager
     * @return this builder
     */
    public Builder assetManager(Object assetManager) {
      this.assetManager = Objects.requireNonNull(assetManager, "assetManager must not be null");
      return this;
    }

    /**
     * How many answers the memory cache keeps (default 256); the least recently used go
     * first. A negative size never evicts.
     *
     * @param entries the number of answers, not 0
     * @return this builder
     */
    public Builder memoryCacheSize(int entries) {
      if (entries == 0) throw new IllegalArgumentException("memoryCacheSize must not be 0");
      this.memoryCacheSize = entries;
      return this;
    }

    /**
     * A persistent store behind the memory cache, for example a {@link SqliteCache} or
     * a store implemented in Java. Replaces {@link #sqliteStore}.
     *
     * @param store the store
     * @return this builder
     */
    public Builder persistentStore(CacheAdapter store) {
      this.store = Objects.requireNonNull(store, "store must not be null");
      this.sqlitePath = null;
      return this;
    }

    /**
     * A SQLite file as the persistent store, created when missing. Replaces
     * {@link #persistentStore}.
     *
     * @param path the store's file
     * @return this builder
     */
    public Builder sqliteStore(String path) {
      this.sqlitePath = Objects.requireNonNull(path, "path must not be null");
      this.store = null;
      return this;
    }

    /**
     * Checks the settings, opens the store and initialises the framework.
     *
     * @return the analyser
     * @throws IllegalArgumentException naming the path when the model directory, the
     *     configuration file or the SQLite store's directory does not exist, or a setting
     *     is missing
     * @throws IllegalStateException when the framework refuses to initialise (with its
     *     error name and code)
     * @throws RuntimeException when the SQLite store cannot be opened (naming the file)
     */
    public Analyzer build() {
      if (modelDirectory == null) throw new IllegalArgumentException("modelDirectory is not set");
      if (frameworkConfig == null) throw new IllegalArgumentException("frameworkConfig is not set");
      if (assetManager == null) {
        if (!new File(modelDirectory).isDirectory()) {
          throw new IllegalArgumentException("model directory does not exist: " + modelDirectory);
        }
        if (!new File(frameworkConfig).isFile()) {
          throw new IllegalArgumentException("framework configuration does not exist: " + frameworkConfig);
        }
      } else {
        AssetManagerHolderJNI.setAssetManager(assetManager);
      }
      if (sqlitePath != null) {
        File folder = new File(sqlitePath).getAbsoluteFile().getParentFile();
        if (folder == null || !folder.isDirectory()) {
          throw new IllegalArgumentException("the SQLite store's directory does not exist: " + folder);
        }
      }
      CacheAdapter persistent = sqlitePath != null ? new SqliteCache(sqlitePath) : store;
      TieredCache tiered = null;
      Extractor extractor = null;
      boolean built = false;
      try {
        tiered = new TieredCache(memoryCacheSize, persistent);
        // The analyser reads and fills the cache itself (see keyOf); the extractor only
        // forwards the clears to it.
        extractor = new Extractor(new Config(), tiered, null, modelDirectory, frameworkConfig, false);
        int code = extractor.init();
        if (code != 0) {
          String what = code == -1 ? "framework configuration asset not found: " + frameworkConfig
              : "framework initialisation failed: " + ErrorCode.of(code) + " (" + code + ")";
          throw new IllegalStateException(what);
        }
        built = true;
        return new Analyzer(extractor, tiered);
      } finally {
        // The store opened here belongs to the tiered cache alone, so that close() (or a
        // failed build) closes its file now rather than when the collector gets to it.
        if (sqlitePath != null) persistent.delete();
        if (!built) {
          if (extractor != null) extractor.delete();
          if (tiered != null) tiered.delete();
        }
      }
    }
  }

  /**
   * Analyses one image for every given kind, in one run of one graph. Answers found in
   * the caches for every kind are returned without running; otherwise all kinds run and
   * their answers are cached.
   *
   * <p>Failures of the image (an unusable size or format, a width, height or length of 0,
   * fewer bytes than width, height and format need, a framework error) are reported in
   * {@link Analysis#status()} and nothing of them is cached; kinds
   * without an answer are absent from the analysis. A kind the analysis found nothing of
   * (no pet in the photo, say) is an answer like any other, with empty lists (no pet
   * faces), and is cached. A kind the run gave no output for at all is reported with
   * code 204 ("Vantor Result is NULL", {@link ErrorCode#UNKNOWN}) naming the kinds, and
   * runs again next time.
   *
   * @param assetId the image's id, the first half of its cache keys
   * @param image the pixels (for example from ImagePixels); its length must be set
   * @param kinds the kinds wanted, at least one (duplicates count once)
   * @return the answers
   * @throws NullPointerException when an argument or kind is null
   * @throws IllegalArgumentException when no kind is given
   * @throws IllegalStateException after {@link #close()}, or when the image has been closed
   */
  public Analysis analyze(String assetId, ImageBuffer image, Kind<?>... kinds) {
    Objects.requireNonNull(assetId, "assetId must not be null");
    Objects.requireNonNull(image, "image must not be null");
    Objects.requireNonNull(kinds, "kinds must not be null");
    LinkedHashSet<Kind<?>> wanted = new LinkedHashSet<>();
    for (Kind<?> kind : kinds) wanted.add(Objects.requireNonNull(kind, "a kind is null"));
    if (wanted.isEmpty()) throw new IllegalArgumentException("no kind asked for");
    lifecycle.readLock().lock();
    try {
      if (closed) throw new IllegalStateException("the analyzer is closed");
      return analyzeOpen(assetId, image, new ArrayList<>(wanted));
    } finally {
      lifecycle.readLock().unlock();
    }
  }

  /**
   * Analyses RGBA8888 pixels (4 bytes per pixel, rows top to bottom).
   *
   * @param assetId the image's id
   * @param width pixels per row
   * @param height rows
   * @param rgba the pixels; fewer than width x height x 4 bytes is reported as INVALID_FORMAT
   * @param kinds the kinds wanted
   * @return the answers
   * @see #analyze(String, ImageBuffer, Kind...)
   */
  public Analysis analyze(String assetId, int width, int height, byte[] rgba, Kind<?>... kinds) {
    Objects.requireNonNull(rgba, "rgba must not be null");
    try (ImageBuffer image = new ImageBuffer()) {
      image.setWidth(width);
      image.setHeight(height);
      image.setData(rgba);
      image.setLength(BigInteger.valueOf(rgba.length));
      return analyze(assetId, image, kinds);
    }
  }

  /**
   * Forgets every cached answer, in memory and in the persistent store.
   *
   * @throws IllegalStateException after {@link #close()}
   */
  public void clearCache() {
    lifecycle.readLock().lock();
    try {
      if (closed) throw new IllegalStateException("the analyzer is closed");
      extractor.clearAll();
    } finally {
      lifecycle.readLock().unlock();
    }
  }

  /**
   * Waits for the calls in progress, then releases the framework and the caches (the
   * persistent store's file stays). Calling it again does nothing.
   */
  @Override
  public void close() {
    lifecycle.writeLock().lock();
    try {
      if (closed) return;
      closed = true;
      extractor.delete();
      cache.delete();
      keptGraph.delete();
    } finally {
      lifecycle.writeLock().unlock();
    }
  }

  private Analysis analyzeOpen(String assetId, ImageBuffer image, List<Kind<?>> wanted) {
    VecAlgorithmType types = new VecAlgorithmType();
    VecString names = new VecString();
    StringBuilder graphKey = new StringBuilder();
    for (Kind<?> kind : wanted) {
      if (kind.outputName() != null) {
        names.add(kind.outputName());
      } else {
        types.add(kind.algorithmType());
      }
      graphKey.append(kind).append(',');
    }
    String graph = graphs.computeIfAbsent(graphKey.toString(), k -> MPFeatureExtractor.severalKindGraph(types, names));
    ResourceList resources = new ResourceList();
    resources.add(new Resource(assetId, "", image));
    try {
      Analysis cached = fromCache(assetId, wanted);
      if (cached != null) return cached;
      Status empty = emptyImage(image);
      if (empty != null) return new Analysis(assetId, empty, Analysis.Source.RUN, new LinkedHashMap<>());
      synchronized (runLock) {
        // A request for the graph the framework holds carries no text (the framework would
        // release and reload it). The answers are cached under keyOf's keys, which do not
        // depend on the request's text.
        try (MultiAlgorithmInput request =
            new MultiAlgorithmInput(resources, keptGraph.requestText(graph), types, names)) {
          Analysis analysis = run(assetId, request, wanted);
          // Only a graph that ran gives answers.
          if (!analysis.answers().isEmpty()) keptGraph.ran(graph);
          return analysis;
        }
      }
    } finally {
      resources.delete();
      types.delete();
      names.delete();
    }
  }

  // The algorithm key of a kind's answer: the several-kind key form (digest of the graph,
  // bar, kind) over the kind's own graph, not over the merged graph of a call. So an
  // answer is found again whatever other kinds it was computed with.
  private String keyOf(Kind<?> kind) {
    return kindKeys.computeIfAbsent(kind, k -> {
      VecAlgorithmType types = new VecAlgorithmType();
      VecString names = new VecString();
      if (k.outputName() != null) {
        names.add(k.outputName());
      } else {
        types.add(k.algorithmType());
      }
      String graph = MPFeatureExtractor.severalKindGraph(types, names);
      ResourceList none = new ResourceList();
      try (MultiAlgorithmInput probe = new MultiAlgorithmInput(none, graph, types, names)) {
        return k.outputName() != null ? probe.algorithmKey(k.outputName()) : probe.algorithmKey(k.algorithmType());
      } finally {
        none.delete();
        types.delete();
        names.delete();
      }
    });
  }

  private void remember(String assetId, Kind<?> kind, byte[] blob) {
    try (Result answer = new Result(assetId, keyOf(kind), kind.algorithmType() != null ? kind.algorithmType()
        : AlgorithmType.AllNodes)) {
      if (kind.outputName() != null) answer.setAlgorithmStringType(kind.outputName());
      if (blob != null) {
        answer.setResultNative(blob);
        answer.setResultLength(BigInteger.valueOf(blob.length));
      }
      cache.save(answer);
    }
  }

  // Every kind's answer from the caches, or null when one is missing. An answer cached
  // without blob bytes is an empty message: an empty message packs to no bytes.
  private Analysis fromCache(String assetId, List<Kind<?>> wanted) {
    Map<Kind<?>, Message> answers = new LinkedHashMap<>();
    Analysis.Source source = Analysis.Source.MEMORY;
    for (Kind<?> kind : wanted) {
      String key = keyOf(kind);
      TieredCache.Tier tier = cache.find(assetId, key);
      if (tier == TieredCache.Tier.MISS) return null;
      if (tier == TieredCache.Tier.STORE) source = Analysis.Source.STORE;
      Result hit = cache.query(assetId, key);
      if (hit == null) return null;  // evicted meanwhile by another thread
      try {
        byte[] blob = ResultMessages.blobOf(hit);
        Message answer = parse(kind, blob == null ? new byte[0] : blob);
        if (answer == null) return null;  // a stored answer that no longer parses is run again
        answers.put(kind, answer);
      } finally {
        hit.delete();
      }
    }
    return new Analysis(assetId, Status.OK, source, answers);
  }

  // The engine skips an image of width, height or length 0 without a word; here that is
  // a failure of the image, and nothing is cached (a later call with the pixels runs).
  private static Status emptyImage(ImageBuffer image) {
    BigInteger length = image.getLength();
    if (image.getWidth() != 0 && image.getHeight() != 0 && length != null && length.signum() != 0) return null;
    return new Status(ErrorCode.INVALID_FORMAT.code(), "no pixels to analyse: the image is " + image.getWidth() + "x"
        + image.getHeight() + " with a length of " + length + " bytes (ImagePixels sets the length)");
  }

  // As a single-kind run reports a kind the framework gave no output for.
  private static Status noResult(List<Kind<?>> kinds) {
    return new Status(NO_RESULT, "Vantor Result is NULL: no output for " + kinds);
  }

  private Analysis run(String assetId, MultiAlgorithmInput request, List<Kind<?>> wanted) {
    Map<Kind<?>, Message> answers = new LinkedHashMap<>();
    List<Kind<?>> missing = new ArrayList<>();
    try (ErrorPair error = new ErrorPair(0, "")) {
      // The cache was asked above, per kind; every new answer goes into it below.
      VecMultiResult out = extractor.extractFeatures(request, false, error);
      try (MultiResult result = out.get(0)) {
        for (Kind<?> kind : wanted) {
          MultiResult.ResultItem item = kind.outputName() != null ? result.getResultItem(kind.outputName())
              : result.getResultItem(kind.algorithmType());
          byte[] blob = item == null ? null : bytesOf(item);
          if (item != null) item.delete();
          Message answer = parse(kind, blob);
          if (answer == null) {
            missing.add(kind);
          } else {
            answers.put(kind, answer);
            remember(assetId, kind, blob);
          }
        }
      } finally {
        out.delete();
      }
      Status status = Status.OK;
      if (error.getFirst() != 0) {
        status = new Status(error.getFirst(), error.getSecond());
      } else if (!missing.isEmpty()) {
        // The graph produces every kind asked for; a kind without output is reported and
        // not cached (an empty cached answer reads back as an empty message).
        status = noResult(missing);
      }
      return new Analysis(assetId, status, Analysis.Source.RUN, answers);
    }
  }

  // The item's blob; no bytes is an empty message (no pet faces, say), not a missing one.
  private static byte[] bytesOf(MultiResult.ResultItem item) {
    BigInteger size = item.getSize();
    if (size.signum() == 0) return new byte[0];
    if (size.signum() < 0 || size.bitLength() > 31) return null;
    byte[] bytes = new byte[size.intValue()];
    item.memcpyStructResult(bytes);
    return bytes;
  }

  private static Message parse(Kind<?> kind, byte[] blob) {
    if (blob == null) return null;
    try {
      return kind.outputName() != null ? ResultMessages.parse(kind.outputName(), blob)
          : ResultMessages.parse(kind.algorithmType(), blob);
    } catch (InvalidProtocolBufferException e) {
      return null;
    }
  }
}

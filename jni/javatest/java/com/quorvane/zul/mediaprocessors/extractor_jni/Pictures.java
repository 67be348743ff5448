package com.quorvane.zul.mediaprocessors.extractor_jni;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import javax.imageio.ImageIO;

/** Fixtures of the end-to-end tests: test photos as resources, and ready extractors. */
final class Pictures {
  static final Path SOURCE_DIR = Paths.get(System.getenv().getOrDefault("VQFE_SOURCE_DIR", "."));
  static final Path BINARY_DIR = Paths.get(System.getenv().getOrDefault("VQFE_BINARY_DIR", "build"));
  static final Path MODEL_DIR = BINARY_DIR.resolve("models");
  static final Path TESTDATA = SOURCE_DIR.resolve("testdata");

  private Pictures() {}

  /** The photo decoded to RGBA8888 pixels, as an app hands over a decoded bitmap. */
  static Resource resource(String assetId, String file) throws IOException {
    Path path = TESTDATA.resolve(file);
    ImageBuffer buffer = ImagePixels.fromBufferedImage(ImageIO.read(path.toFile()));
    return new Resource(assetId, path.toString(), buffer);
  }

  static ResourceList resources(Resource... resources) {
    ResourceList list = new ResourceList();
    for (Resource r : resources) list.add(r);
    return list;
  }

  /** A framework configuration file with no faults. */
  static Path frameworkConfig(Path dir) throws IOException {
    Path file = dir.resolve("framework.json");
    Files.write(file, "{}".getBytes(StandardCharsets.UTF_8));
    return file;
  }

  static Extractor initialised(Path dir, CacheAdapter cache, CacheAdapter storeCache) throws IOException {
    Extractor extractor = new Extractor(new Config(), cache, storeCache, MODEL_DIR.toString(),
        frameworkConfig(dir).toString(), false);
    int code = extractor.init();
    if (code != 0) throw new IllegalStateException("init failed: " + code);
    return extractor;
  }

  static byte[] blob(Result result) {
    byte[] bytes = new byte[result.getResultLength().intValueExact()];
    result.memcpyStructResult(bytes);
    return bytes;
  }
}

package com.quorvane.zul.mediaprocessors.analyzer;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorvane.zul.mediaprocessors.extractor_jni.ImageBuffer;
import com.quorvane.zul.mediaprocessors.extractor_jni.ImagePixels;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The analyser loads a graph once and keeps it while the kinds asked for stay the same.
 * A load reads the model files: with the files taken away after the first run, a run
 * that keeps the graph still answers and one that would load it fails.
 */
class AnalyzerGraphTest {
  private static final Path SOURCE_DIR = Paths.get(System.getenv().getOrDefault("VQFE_SOURCE_DIR", "."));
  private static final Path MODEL_DIR =
      Paths.get(System.getenv().getOrDefault("VQFE_BINARY_DIR", "build")).resolve("models");
  private static final Kind<?>[] KINDS = {Kind.FACE, Kind.CLASSIFICATION};
  @TempDir Path tmp;

  private ImageBuffer photo(String name) throws IOException {
    return ImagePixels.fromBufferedImage(ImageIO.read(SOURCE_DIR.resolve("testdata/" + name).toFile()));
  }

  private Analyzer analyzer(Path models, Path store) throws IOException {
    Path config = tmp.resolve("framework.json");
    Files.write(config, "{}".getBytes(StandardCharsets.UTF_8));
    return Analyzer.builder().modelDirectory(models.toString()).frameworkConfig(config.toString())
        .sqliteStore(store.toString()).build();
  }

  // Links to the model files, so that they can be taken away without copying them.
  private static void linkModels(Path models) throws IOException {
    try (DirectoryStream<Path> files = Files.newDirectoryStream(MODEL_DIR)) {
      for (Path file : files) Files.createSymbolicLink(models.resolve(file.getFileName()), file.toAbsolutePath());
    }
  }

  private static void unlinkModels(Path models) throws IOException {
    try (DirectoryStream<Path> links = Files.newDirectoryStream(models)) {
      for (Path link : links) Files.delete(link);
    }
  }

  private static void assertSameAnswers(Analysis expected, Analysis actual) {
    assertTrue(actual.status().ok(), actual.status().toString());
    assertEquals(expected.answers(), actual.answers());
  }

  @Test
  void oneLoadForSeveralPhotosAndAReloadWhenTheKindsChange() throws Exception {
    Path models = Files.createDirectory(tmp.resolve("models"));
    linkModels(models);
    Path kept = tmp.resolve("kept.db");
    Analysis coffee;
    try (Analyzer analyzer = analyzer(models, kept)) {
      assertTrue(analyzer.analyze("astronaut", photo("astronaut.jpg"), KINDS).status().ok());
      unlinkModels(models);
      coffee = analyzer.analyze("coffee", photo("coffee.jpg"), KINDS);
      assertTrue(coffee.status().ok(), "the second photo loaded the graph again: " + coffee.status());
      // Other kinds need another graph, whose load fails without the model files ...
      Analysis skeleton = analyzer.analyze("coffee", photo("coffee.jpg"), Kind.SKELETON);
      assertFalse(skeleton.status().ok(), "a graph of other kinds was not loaded");
      // ... and is tried again once they are back; then the first kinds load again too.
      linkModels(models);
      Analysis retried = analyzer.analyze("coffee", photo("coffee.jpg"), Kind.SKELETON);
      assertTrue(retried.status().ok(), "the failed load was not tried again: " + retried.status());
      Analysis rocket = analyzer.analyze("rocket", photo("rocket.jpg"), KINDS);
      try (Analyzer fresh = analyzer(MODEL_DIR, tmp.resolve("fresh.db"))) {
        assertSameAnswers(fresh.analyze("rocket", photo("rocket.jpg"), KINDS), rocket);
      }
    }
    // Each answer is as a request that loads its own graph gives, filed under the same keys.
    try (Analyzer reference = analyzer(MODEL_DIR, tmp.resolve("reference.db"));
        Analyzer reopened = analyzer(MODEL_DIR, kept)) {
      Analysis stored = reopened.analyze("coffee", photo("coffee.jpg"), KINDS);
      assertEquals(Analysis.Source.STORE, stored.source());
      assertSameAnswers(reference.analyze("coffee", photo("coffee.jpg"), KINDS), stored);
      assertEquals(coffee.answers(), stored.answers());
    }
  }
}

package com.quorvane.zul.mediaprocessors.analyzer;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.quorvane.zul.mediaprocessors.extractor_jni.ImageBuffer;
import com.quorvane.zul.mediaprocessors.extractor_jni.ImagePixels;
import com.quorvane.zul.mediaprocessors.extractor_jni.MPFeatureExtractor;
import com.quorvane.zul.mediaprocessors.extractor_results.C_FaceBuffer;
import com.quorvane.zul.mediaprocessors.extractor_results.C_NHClassificationBuffer;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.List;
import java.util.stream.Stream;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The analyser layer end to end, with the open framework and a SQLite store. */
class AnalyzerTest {
  private static final Path SOURCE_DIR = Paths.get(System.getenv().getOrDefault("VQFE_SOURCE_DIR", "."));
  private static final Path MODEL_DIR =
      Paths.get(System.getenv().getOrDefault("VQFE_BINARY_DIR", "build")).resolve("models");
  @TempDir Path tmp;
  private Path config;
  private ImageBuffer astronaut;

  @BeforeEach
  void setUp() throws Exception {
    config = tmp.resolve("framework.json");
    Files.write(config, "{}".getBytes(StandardCharsets.UTF_8));
    astronaut = ImagePixels.fromBufferedImage(ImageIO.read(SOURCE_DIR.resolve("testdata/astronaut.jpg").toFile()));
  }

  private Analyzer.Builder builder() {
    return Analyzer.builder().modelDirectory(MODEL_DIR.toString()).frameworkConfig(config.toString());
  }

  @Test
  void buildRefusesMissingPathsNamingThem() {
    IllegalArgumentException e = assertThrows(IllegalArgumentException.class,
        () -> Analyzer.builder().modelDirectory("/no/such/models").frameworkConfig(config.toString()).build());
    assertEquals("model directory does not exist: /no/such/models", e.getMessage());
    e = assertThrows(IllegalArgumentException.class,
        () -> builder().frameworkConfig(tmp.resolve("missing.json").toString()).build());
    assertEquals("framework configuration does not exist: " + tmp.resolve("missing.json"), e.getMessage());
    assertThrows(IllegalArgumentException.class, () -> Analyzer.builder().frameworkConfig("x").build());
    e = assertThrows(IllegalArgumentException.class,
        () -> builder().sqliteStore(tmp.resolve("no/such/folder/answers.db").toString()).build());
    assertEquals("the SQLite store's directory does not exist: " + tmp.resolve("no/such/folder"), e.getMessage());
    assertThrows(IllegalArgumentException.class, () -> builder().memoryCacheSize(0));
    assertThrows(NullPointerException.class, () -> builder().modelDirectory(null));
  }

  @Test
  void closeAndAFailedBuildCloseTheSqliteStoreFile() throws Exception {
    Path fds = Paths.get("/proc/self/fd");
    assumeTrue(Files.isDirectory(fds), "needs /proc");
    Path store = tmp.resolve("answers.db");
    Analyzer analyzer = builder().sqliteStore(store.toString()).build();
    assertTrue(opens(fds, store));
    analyzer.close();
    assertFalse(opens(fds, store), "the store's file is open after close()");
    Files.write(config, "{broken".getBytes(StandardCharsets.UTF_8));
    assertThrows(IllegalStateException.class, () -> builder().sqliteStore(store.toString()).build());
    assertFalse(opens(fds, store), "the store's file is open after a failed build");
  }

  private static boolean opens(Path fds, Path file) throws IOException {
    try (Stream<Path> open = Files.list(fds)) {
      return open.anyMatch(fd -> {
        try {
          return Files.readSymbolicLink(fd).startsWith(file);  // the file and its -journal
        } catch (IOException gone) {
          return false;
        }
      });
    }
  }

  @Test
  void allKindsInOneRunThenFromMemoryThenFromTheStoreAfterARestart() throws Exception {
    String store = tmp.resolve("answers.db").toString();
    Kind<?>[] kinds = {Kind.FACE, Kind.SCENE, Kind.CLASSIFICATION, Kind.C300, Kind.SENSITIVE};
    try (Analyzer analyzer = builder().sqliteStore(store).build()) {
      Analysis first = analyzer.analyze("astronaut", astronaut, kinds);
      assertTrue(first.status().ok(), first.status().toString());
      assertEquals(Analysis.Source.RUN, first.source());
      assertFalse(first.fromCache());
      C_FaceBuffer faces = first.get(Kind.FACE);
      assertTrue(faces.getMFaceBaseInfosCount() > 0, "astronaut has a face");
      assertEquals(kinds.length, first.answers().size());
      assertNull(first.get(Kind.SKELETON));  // not asked for

      Analysis second = analyzer.analyze("astronaut", astronaut, kinds);
      assertEquals(Analysis.Source.MEMORY, second.source());
      assertEquals("astronaut: NO_ERROR from MEMORY, answers [FACE, SCENE, CLASSIFICATION, C300, SENSITIVE]",
          second.toString());
      assertEquals(first.get(Kind.CLASSIFICATION), second.get(Kind.CLASSIFICATION));
    }
    try (Analyzer restarted = builder().sqliteStore(store).build()) {
      Analysis fromStore = restarted.analyze("astronaut", astronaut, Kind.FACE, Kind.C300);
      assertEquals(Analysis.Source.STORE, fromStore.source());
      assertNotNull(fromStore.get(Kind.C300));
      assertEquals(Analysis.Source.MEMORY, restarted.analyze("astronaut", astronaut, Kind.C300).source());
      // A kind never run for this image makes the whole request run.
      assertEquals(Analysis.Source.RUN, restarted.analyze("astronaut", astronaut, Kind.C300, Kind.PET_FACE).source());
      restarted.clearCache();
      assertEquals(Analysis.Source.RUN, restarted.analyze("astronaut", astronaut, Kind.C300).source());
    }
  }

  @Test
  void aKindFoundNothingOfIsAnEmptyAnswerAndCachedAsSuch() {
    String store = tmp.resolve("answers.db").toString();
    try (Analyzer analyzer = builder().sqliteStore(store).build()) {
      // No pet in the astronaut: an answer without pet faces (its blob packs to no bytes).
      Analysis first = analyzer.analyze("astronaut", astronaut, Kind.FACE, Kind.PET_FACE);
      assertTrue(first.status().ok(), first.status().toString());
      assertEquals(0, first.get(Kind.PET_FACE).getMFacePetInfosCount());
      assertTrue(first.get(Kind.FACE).getMFaceBaseInfosCount() > 0);
      Analysis second = analyzer.analyze("astronaut", astronaut, Kind.FACE, Kind.PET_FACE);
      assertEquals(Analysis.Source.MEMORY, second.source());
      assertTrue(second.status().ok(), second.status().toString());
      assertEquals(0, second.get(Kind.PET_FACE).getMFacePetInfosCount());
    }
    try (Analyzer restarted = builder().sqliteStore(store).build()) {
      Analysis fromStore = restarted.analyze("astronaut", astronaut, Kind.PET_FACE);
      assertEquals(Analysis.Source.STORE, fromStore.source());
      assertTrue(fromStore.status().ok(), fromStore.status().toString());
      assertEquals(0, fromStore.get(Kind.PET_FACE).getMFacePetInfosCount());
    }
  }

  @Test
  void topClassesComeMostConfidentFirst() throws Exception {
    try (Analyzer analyzer = builder().build()) {
      C_NHClassificationBuffer answer = analyzer.analyze("astronaut", astronaut, Kind.CLASSIFICATION).get(Kind.CLASSIFICATION);
      List<TopClass> top = TopClass.of(answer, 5);
      assertFalse(top.isEmpty());
      assertTrue(top.size() <= 5);
      for (int i = 1; i < top.size(); i++) assertTrue(top.get(i - 1).confidence() >= top.get(i).confidence(), top.toString());
      for (TopClass c : top) assertTrue(c.confidence() > 0, top.toString());
      assertEquals("one person", new TopClass("2252_alone", 0.8f).displayName());
      assertEquals("no_such_label", new TopClass("no_such_label", 0.8f).displayName());
      assertTrue(TopClass.of(null, 3).isEmpty());
      // Shown to people: the same order, none under the floor the native summary uses.
      List<TopClass> all = TopClass.of(answer, 1000), shown = TopClass.shown(answer, 1000);
      assertEquals(0.3f, MPFeatureExtractor.getShownConfidence());
      int found = 0;
      for (TopClass c : all) found += c.confidence() >= 0.3f ? 1 : 0;
      assertEquals(found, shown.size(), all.toString());
      for (int i = 0; i < shown.size(); i++) assertEquals(all.get(i).label(), shown.get(i).label());
      assertTrue(TopClass.shown(answer, 1).size() <= 1);
      assertTrue(TopClass.shown(null, 3).isEmpty());
    }
  }

  @Test
  void badImagesAndMisuseAreReportedNotFatal() throws Exception {
    Analyzer analyzer = builder().memoryCacheSize(4).build();
    Analysis bad = analyzer.analyze("short", 640, 480, new byte[100], Kind.FACE, Kind.SCENE);
    assertEquals(ErrorCode.INVALID_FORMAT, bad.status().error());
    assertTrue(bad.status().message().contains("image data holds 100 bytes, 1228800 needed"), bad.status().message());
    assertTrue(bad.answers().isEmpty());
    // No pixels (0 x 0, or a forgotten setLength): a failure of the image, not "no face
    // here", and not cached: the same id with its pixels runs.
    Analysis empty = analyzer.analyze("later", 0, 0, new byte[0], Kind.FACE);
    assertEquals(ErrorCode.INVALID_FORMAT, empty.status().error());
    assertTrue(empty.status().message().startsWith("no pixels to analyse: the image is 0x0"), empty.status().message());
    assertTrue(empty.answers().isEmpty());
    try (ImageBuffer noLength = new ImageBuffer()) {
      noLength.setWidth(2);
      noLength.setHeight(2);
      noLength.setData(new byte[16]);
      assertEquals(ErrorCode.INVALID_FORMAT, analyzer.analyze("later", noLength, Kind.FACE).status().error());
    }
    Analysis later = analyzer.analyze("later", astronaut, Kind.FACE);
    assertEquals(Analysis.Source.RUN, later.source());
    assertTrue(later.status().ok(), later.status().toString());
    assertTrue(later.get(Kind.FACE).getMFaceBaseInfosCount() > 0);
    assertThrows(IllegalArgumentException.class, () -> analyzer.analyze("a", astronaut));
    assertThrows(NullPointerException.class, () -> analyzer.analyze("a", (ImageBuffer) null, Kind.FACE));
    assertThrows(NullPointerException.class, () -> analyzer.analyze("a", astronaut, Kind.FACE, null));
    ImageBuffer released = new ImageBuffer();
    released.close();
    assertThrows(IllegalStateException.class, () -> analyzer.analyze("released", released, Kind.FACE));
    analyzer.close();
    analyzer.close();
    IllegalStateException closed = assertThrows(IllegalStateException.class,
        () -> analyzer.analyze("a", astronaut, Kind.FACE));
    assertEquals("the analyzer is closed", closed.getMessage());
    assertEquals(ErrorCode.UNKNOWN, ErrorCode.of(204));
    assertEquals(ErrorCode.INTERNAL_ERROR, ErrorCode.of(9));
  }
}

package com.quorvane.zul.mediaprocessors.jnitest;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorvane.zul.mediaprocessors.ImageScorer_jni.ImageScorer;
import java.awt.image.BufferedImage;
import java.nio.file.Path;
import java.nio.file.Paths;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** ImageScorerJNI through its generated proxy, on a real PNG. */
class ImageScorerTest {
  private static final Path MODEL =
      Paths.get(System.getenv().getOrDefault("VQFE_BINARY_DIR", "build"), "models", "quality_brisque.model");
  @TempDir Path tmp;

  @Test
  void scoresAPng() throws Exception {
    // A PNG written here: a smooth gradient with a sharp square.
    BufferedImage image = new BufferedImage(128, 96, BufferedImage.TYPE_INT_RGB);
    for (int y = 0; y < 96; y++) {
      for (int x = 0; x < 128; x++) {
        boolean square = x > 40 && x < 80 && y > 30 && y < 60;
        image.setRGB(x, y, square ? 0xffffff : (x * 2) << 16 | (y * 2) << 8 | 64);
      }
    }
    Path png = tmp.resolve("gradient.png");
    assertTrue(ImageIO.write(image, "png", png.toFile()));

    ImageScorer scorer = new ImageScorer(MODEL.toString(), 0);
    assertEquals(0.0f, scorer.getScore());
    assertEquals(-1, scorer.scoreImage(png.toString(), 0, 0));  // not initialised
    assertEquals(0, scorer.init());
    assertEquals(0, scorer.scoreImage(png.toString(), 0, 0));
    float score = scorer.getScore();
    assertTrue(score >= 0.0f && score <= 1.0f, "score " + score);
    assertNotEquals(0, scorer.scoreImage(tmp.resolve("missing.png").toString(), 0, 0));
    assertEquals(score, scorer.getScore());  // a failed call leaves the last score
    assertEquals(0, scorer.destroy());
    assertEquals(0, scorer.destroy());  // twice is harmless
    assertEquals(-1, scorer.scoreImage(png.toString(), 0, 0));
    scorer.delete();

    NullPointerException e = assertThrows(NullPointerException.class, () -> new ImageScorer(null, 0));
    assertEquals("null string", e.getMessage());
    ImageScorer second = new ImageScorer(MODEL.toString(), 0);
    e = assertThrows(NullPointerException.class, () -> second.scoreImage(null, 0, 0));
    assertEquals("null string", e.getMessage());
    assertEquals(0, second.destroy());  // never initialised
    second.delete();
  }
}

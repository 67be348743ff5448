package com.quorvane.zul.mediaprocessors.jnitest;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorvane.zul.mediaprocessors.assetManager_jni.AssetManagerHolderJNI;
import com.quorvane.zul.mediaprocessors.extractor_jni.Config;
import com.quorvane.zul.mediaprocessors.extractor_jni.Extractor;
import com.quorvane.zul.mediaprocessors.extractor_jni.MemoryCache;
import java.io.File;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The framework configuration served from registered assets instead of the file system. */
class AssetManagerTest {
  @TempDir Path assets;

  @AfterEach
  void unregister() {
    AssetManagerHolderJNI.setAssetManager(null);
  }

  private static int initWith(String configName) {
    Extractor extractor = new Extractor(new Config(), new MemoryCache(4), null, "models", configName, false);
    try {
      return extractor.init();
    } finally {
      extractor.delete();
    }
  }

  @Test
  void configurationIsReadFromTheAssets() throws Exception {
    Files.write(assets.resolve("framework.json"), "{}".getBytes(StandardCharsets.UTF_8));
    Files.createDirectories(assets.resolve("conf"));
    Files.write(assets.resolve("conf/nested.json"), "{}".getBytes(StandardCharsets.UTF_8));

    AssetManagerHolderJNI.setAssetManager(assets.toString());
    assertEquals(0, initWith("framework.json"));  // an asset name, not a path
    assertEquals(0, initWith("conf/nested.json"));
    assertEquals(-1, initWith("missing.json"));

    AssetManagerHolderJNI.setAssetManager(new File(assets.toString()));  // java.io.File works too
    assertEquals(0, initWith("framework.json"));

    // Cleared: names are file paths again, so the asset name alone is not found.
    AssetManagerHolderJNI.setAssetManager(null);
    assertTrue(initWith("framework.json") != 0);
    assertEquals(0, initWith(assets.resolve("framework.json").toString()));
  }

  @Test
  void unusableManagersAreRefusedAndKeepTheRegistration() throws Exception {
    Files.write(assets.resolve("framework.json"), "{}".getBytes(StandardCharsets.UTF_8));
    AssetManagerHolderJNI.setAssetManager(assets.toString());
    IllegalArgumentException e =
        assertThrows(IllegalArgumentException.class, () -> AssetManagerHolderJNI.setAssetManager(42));
    assertEquals("not a usable asset manager", e.getMessage());
    assertThrows(IllegalArgumentException.class,
        () -> AssetManagerHolderJNI.setAssetManager(assets.resolve("no-such-dir").toString()));
    assertEquals(0, initWith("framework.json"));  // still the earlier registration
  }
}

package com.quorvane.zul.mediaprocessors.assetManager_jni;

/**
 * Registers the application's assets with the extractor. Once registered, the framework
 * configuration file and the model files are read from the assets instead of the file
 * system. Register before {@code Extractor.init()}; a later call replaces the registration.
 */
public final class AssetManagerHolderJNI {
  static {
    try {
      System.loadLibrary("ExtractorJni");
    } catch (UnsatisfiedLinkError e) {
      // Already loaded by the host under another name or path.
    }
  }

  private AssetManagerHolderJNI() {}

  /**
   * @param assetManager on Android the context's {@code android.content.res.AssetManager};
   *     on desktop a {@code String} or {@code java.io.File} naming the asset root directory
   *     (asset names are paths relative to it); {@code null} clears the registration.
   */
  public static native void setAssetManager(Object assetManager);
}

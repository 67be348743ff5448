package com.quorvane.zul.mediaprocessors.jnitest;

/** Test-only natives (libExtractorJniTestHooks.so). */
public final class TestHooks {
  static {
    System.loadLibrary("ExtractorJniTestHooks");
  }

  private TestHooks() {}

  /**
   * Calls the callback's native onResult on a new native thread; returns that thread's
   * GetEnv status after the call (-2 = detached again), or 1 if the callback threw.
   */
  public static native int onResultOnNativeThread(long callbackHandle, byte[] data);

  /** A second native shared reference to the callback behind a ByteArrayCallBack handle. */
  public static native long copyCallbackHolder(long callbackHandle);

  /** Drops a reference made by copyCallbackHolder. */
  public static native void deleteCallbackHolder(long holder);

  /** The C++ decoder's JSON of a blob of the kind, or "error: " and its reason. */
  public static native String blobToJson(int kind, byte[] blob);
}

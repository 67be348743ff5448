package com.quorvane.zul.mediaprocessors.analyzer;

/** The outcome of analysing one image: ok, or an error code with the engine's message. */
public final class Status {
  /** Success. */
  public static final Status OK = new Status(0, "");

  private final int code;
  private final String message;

  Status(int code, String message) {
    this.code = code;
    this.message = message;
  }

  /**
   * Whether the image was analysed without failure.
   *
   * @return true on success
   */
  public boolean ok() {
    return code == 0;
  }

  /**
   * The error as a constant ({@link ErrorCode#NO_ERROR} on success).
   *
   * @return the error code
   */
  public ErrorCode error() {
    return ErrorCode.of(code);
  }

  /**
   * The raw numeric code (0 on success), also for codes that {@link ErrorCode#UNKNOWN} stands for.
   *
   * @return the code
   */
  public int code() {
    return code;
  }

  /**
   * The engine's message, empty on success.
   *
   * @return the message
   */
  public String message() {
    return message;
  }

  /**
   * The error name, code and message, or "NO_ERROR".
   *
   * @return a readable form
   */
  @Override
  public String toString() {
    return ok() ? "NO_ERROR" : error() + " (" + code + "): " + message;
  }
}

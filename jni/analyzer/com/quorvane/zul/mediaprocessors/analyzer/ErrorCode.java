package com.quorvane.zul.mediaprocessors.analyzer;

/** Why an image could not be analysed: the framework's error codes with their names. */
public enum ErrorCode {
  /** 0: nothing failed. */
  NO_ERROR(0),
  /** 1: the model resource finder is missing or unusable. */
  INVALID_RES_FINDER(1),
  /** 2: the framework was not initialised. */
  NOT_INIT(2),
  /** 3: the framework configuration or the request is invalid (also: a null request). */
  INVALID_CONFIG(3),
  /** 4: the graph text could not be loaded. */
  INVALID_GRAPH(4),
  /** 5: a model file is missing or unusable. */
  INVALID_MODEL(5),
  /** 6: the algorithm kind is not supported. */
  INVALID_TYPE(6),
  /** 7: a graph node is missing or failed while running. */
  INVALID_NODE(7),
  /**
   * 8: the image is unusable: its size or format, or fewer bytes than width, height and
   * format need.
   */
  INVALID_FORMAT(8),
  /** 9: an internal error of the framework, or a call from inside a run of the same extractor. */
  INTERNAL_ERROR(9),
  /**
   * Any other code: 204 (the run gave no output for a kind), 500 (an exception in the
   * framework), -1 (no configuration asset).
   */
  UNKNOWN(-1);

  private final int code;

  ErrorCode(int code) {
    this.code = code;
  }

  /**
   * The numeric code (-1 for {@link #UNKNOWN}, which stands for every other value).
   *
   * @return the code
   */
  public int code() {
    return code;
  }

  /**
   * The constant of a numeric code; every value outside 0 to 9 is {@link #UNKNOWN}.
   *
   * @param code a framework or engine error code
   * @return its constant
   */
  public static ErrorCode of(int code) {
    return code >= 0 && code <= 9 ? values()[code] : UNKNOWN;
  }
}

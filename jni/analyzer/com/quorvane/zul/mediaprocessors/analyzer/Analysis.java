package com.quorvane.zul.mediaprocessors.analyzer;

import com.google.protobuf.Message;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.Map;

/** What an {@link Analyzer} found in one image: one typed answer per kind asked for. */
public final class Analysis {
  /** Where the answers came from. */
  public enum Source {
    /** The framework ran on the image. */
    RUN,
    /** Every answer came from the analyser's memory cache. */
    MEMORY,
    /** At least one answer came from the persistent store (and is in memory now). */
    STORE
  }

  private final String assetId;
  private final Status status;
  private final Source source;
  private final Map<Kind<?>, Message> answers;

  Analysis(String assetId, Status status, Source source, Map<Kind<?>, Message> answers) {
    this.assetId = assetId;
    this.status = status;
    this.source = source;
    this.answers = Collections.unmodifiableMap(new LinkedHashMap<>(answers));
  }

  /**
   * The image's id, as given to {@link Analyzer#analyze}.
   *
   * @return the asset id
   */
  public String assetId() {
    return assetId;
  }

  /**
   * The outcome: ok, or why some or all kinds have no answer.
   *
   * @return the status
   */
  public Status status() {
    return status;
  }

  /**
   * Where the answers came from.
   *
   * @return the source
   */
  public Source source() {
    return source;
  }

  /**
   * Whether every answer came from a cache (memory or store) without running the framework.
   *
   * @return true when nothing ran
   */
  public boolean fromCache() {
    return source != Source.RUN;
  }

  /**
   * The answer of one kind.
   *
   * @param <T> the kind's message type
   * @param kind a kind asked for
   * @return its answer, or null when the kind was not asked for or has no answer (see {@link #status()})
   */
  public <T extends Message> T get(Kind<T> kind) {
    Message answer = answers.get(kind);
    return answer == null ? null : kind.messageType().cast(answer);
  }

  /**
   * Every answer, in the order the kinds were asked for.
   *
   * @return the answers by kind
   */
  public Map<Kind<?>, Message> answers() {
    return answers;
  }

  /**
   * The asset id, the status, the source and the kinds answered, as in
   * {@code astronaut: NO_ERROR from RUN, answers [FACE, SCENE]}. The answers themselves are
   * left out (an embedding alone is thousands of numbers): print {@link #get} for those.
   *
   * @return a readable form
   */
  @Override
  public String toString() {
    return assetId + ": " + status + " from " + source + ", answers " + answers.keySet();
  }
}

package com.quorvane.zul.mediaprocessors.analyzer;

import com.quorvane.zul.mediaprocessors.extractor_results.C_NHClassificationBuffer;
import com.quorvane.zul.mediaprocessors.extractor_results.C_NHClassificationInfo;
import com.quorvane.zul.mediaprocessors.extractor_jni.MPFeatureExtractor;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/** One class of a classification answer: its label, the name to show, its confidence. */
public final class TopClass {
  private final String label;
  private final String displayName;
  private final float confidence;

  TopClass(String label, float confidence) {
    this.label = label;
    this.displayName = displayName(label);
    this.confidence = confidence;
  }

  // The one place where a label gets the name shown to people: the library's table of
  // display names, the label itself where it has none.
  private static String displayName(String label) {
    return MPFeatureExtractor.displayName(label);
  }

  /**
   * The classes of a classification answer, most confident first (ties keep the
   * answer's order), at most limit of them. Classes at confidence 0 (nothing measured
   * for them) are left out.
   *
   * @param answer a classification answer ({@link Kind#CLASSIFICATION}, {@link Kind#RELATION},
   *     {@link Kind#C300}, {@link Kind#RELATION_OUTPUT}); null gives an empty list
   * @param limit the most classes wanted
   * @return the classes, sorted by confidence, highest first
   */
  public static List<TopClass> of(C_NHClassificationBuffer answer, int limit) {
    List<TopClass> classes = new ArrayList<>();
    if (answer == null) return classes;
    for (C_NHClassificationInfo info : answer.getMClassificationInfosList()) {
      int n = Math.min(info.getIdCount(), info.getConfidenceCount());
      for (int i = 0; i < n; i++) {
        int id = info.getId(i);
        String label = id >= 0 && id < answer.getMLabelsCount() ? answer.getMLabels(id) : Integer.toString(id);
        if (info.getConfidence(i) > 0) classes.add(new TopClass(label, info.getConfidence(i)));
      }
    }
    Collections.sort(classes, (a, b) -> Float.compare(b.confidence, a.confidence));
    return classes.size() > limit ? new ArrayList<>(classes.subList(0, Math.max(0, limit))) : classes;
  }

  /**
   * The classes of a classification answer to show to people: as {@link #of}, but only those
   * with a confidence of at least {@link MPFeatureExtractor#getShownConfidence()} (0.3), under
   * which the library's own summaries and pictures show no label: such a class was not found.
   *
   * @param answer a classification answer, as for {@link #of}; null gives an empty list
   * @param limit the most classes wanted
   * @return the classes shown, sorted by confidence, highest first
   */
  public static List<TopClass> shown(C_NHClassificationBuffer answer, int limit) {
    float floor = MPFeatureExtractor.getShownConfidence();
    List<TopClass> classes = new ArrayList<>();
    for (TopClass c : of(answer, Integer.MAX_VALUE)) {
      if (c.confidence >= floor && classes.size() < limit) classes.add(c);
    }
    return classes;
  }

  /**
   * The model's label, as in 2584_sky.
   *
   * @return the label
   */
  public String label() {
    return label;
  }

  /**
   * The name to show for the label (the label itself where no display name is known).
   *
   * @return the display name
   */
  public String displayName() {
    return displayName;
  }

  /**
   * The confidence, 0 to 1.
   *
   * @return the confidence
   */
  public float confidence() {
    return confidence;
  }

  /**
   * The display name and the confidence with two decimals.
   *
   * @return a readable form
   */
  @Override
  public String toString() {
    return String.format(java.util.Locale.ROOT, "%s %.2f", displayName, confidence);
  }
}

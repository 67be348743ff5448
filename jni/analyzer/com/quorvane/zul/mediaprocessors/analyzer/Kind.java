package com.quorvane.zul.mediaprocessors.analyzer;

import com.google.protobuf.Message;
import com.quorvane.zul.mediaprocessors.extractor_jni.AlgorithmType;
import com.quorvane.zul.mediaprocessors.extractor_jni.MPFeatureExtractor;
import com.quorvane.zul.mediaprocessors.extractor_results.*;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;

/**
 * One thing an {@link Analyzer} can find in an image, with the message type its answer
 * comes in: {@code analysis.get(Kind.FACE)} is a {@link C_FaceBuffer}. Every constant
 * has a built-in graph; several kinds asked for together run as one graph, once per
 * image.
 *
 * @param <T> the message type of this kind's answer
 */
public final class Kind<T extends Message> {
  /** Faces: rectangles, 106 landmarks, pose and tracking ids. */
  public static final Kind<C_FaceBuffer> FACE = new Kind<>("FACE", AlgorithmType.Face, null, C_FaceBuffer.class);
  /** Body skeletons: key points per person. */
  public static final Kind<C_SkeletonBuffer> SKELETON =
      new Kind<>("SKELETON", AlgorithmType.Skeleton, null, C_SkeletonBuffer.class);
  /** Face recognition features, to compare faces across images. */
  public static final Kind<C_FaceVerifyBuffer> FACE_VERIFY =
      new Kind<>("FACE_VERIFY", AlgorithmType.FaceVerify, null, C_FaceVerifyBuffer.class);
  /** Faces grouped into clusters of the same person. */
  public static final Kind<C_FaceClustingBuffer> FACE_CLUSTERING =
      new Kind<>("FACE_CLUSTERING", AlgorithmType.FaceClusting, null, C_FaceClustingBuffer.class);
  /** Portrait matting: the foreground mask of people. */
  public static final Kind<C_MattingResult> MATTING =
      new Kind<>("MATTING", AlgorithmType.Matting, null, C_MattingResult.class);
  /** Scene recognition: named scenes with probabilities. */
  public static final Kind<C_SceneRecogBuffer> SCENE =
      new Kind<>("SCENE", AlgorithmType.SceneRecog, null, C_SceneRecogBuffer.class);
  /** An image feature vector and score for finding similar images. */
  public static final Kind<C_SimilarityBuffer> SIMILARITY =
      new Kind<>("SIMILARITY", AlgorithmType.Similarity, null, C_SimilarityBuffer.class);
  /** Aesthetic scores of the image. */
  public static final Kind<C_AfterEffectBuffer> AESTHETICS =
      new Kind<>("AESTHETICS", AlgorithmType.AfterEffect, null, C_AfterEffectBuffer.class);
  /** Sensitive-content classification: a flag and its confidence. */
  public static final Kind<C_PornClsBuffer> SENSITIVE =
      new Kind<>("SENSITIVE", AlgorithmType.PornCls, null, C_PornClsBuffer.class);
  /** Face attributes: age, gender, expression, quality (from the expression graph). */
  public static final Kind<C_FaceAttributeBuffer> FACE_ATTRIBUTE =
      new Kind<>("FACE_ATTRIBUTE", AlgorithmType.FaceAttribute, null, C_FaceAttributeBuffer.class);
  /** Scene recognition, third version: class ids with confidences and a feature. */
  public static final Kind<C_SceneRecogV3Buffer> SCENE_V3 =
      new Kind<>("SCENE_V3", AlgorithmType.SceneRecogV3, null, C_SceneRecogV3Buffer.class);
  /** Salient regions of the image. */
  public static final Kind<C_SaliencySegInfo> SALIENCY =
      new Kind<>("SALIENCY", AlgorithmType.SaliencySeg, null, C_SaliencySegInfo.class);
  /** Pet matting: the foreground mask of pets. */
  public static final Kind<C_PetMattingBuffer> PET_MATTING =
      new Kind<>("PET_MATTING", AlgorithmType.PetMatting, null, C_PetMattingBuffer.class);
  /** Pet faces: rectangles and landmarks. */
  public static final Kind<C_FacePetDetectBuffer> PET_FACE =
      new Kind<>("PET_FACE", AlgorithmType.FacePetDetect, null, C_FacePetDetectBuffer.class);
  /** Image classification over the built-in label set (see {@link TopClass}). */
  public static final Kind<C_NHClassificationBuffer> CLASSIFICATION =
      new Kind<>("CLASSIFICATION", AlgorithmType.NHClassification, null, C_NHClassificationBuffer.class);
  /** Relation classification (who is with whom), as classes (see {@link TopClass}). */
  public static final Kind<C_NHClassificationBuffer> RELATION =
      new Kind<>("RELATION", AlgorithmType.RelationRecog, null, C_NHClassificationBuffer.class);
  /** The classification graph's output under the name ClassificationPostProcess_c300. */
  public static final Kind<C_NHClassificationBuffer> C300 =
      new Kind<>("C300", null, MPFeatureExtractor.getAlgorithmTypeC300(), C_NHClassificationBuffer.class);
  /** The relation graph's output under the name ClassificationPostProcess_relation. */
  public static final Kind<C_NHClassificationBuffer> RELATION_OUTPUT =
      new Kind<>("RELATION_OUTPUT", null, MPFeatureExtractor.getAlgorithmTypeRelation(),
          C_NHClassificationBuffer.class);

  private static final List<Kind<?>> ALL = Collections.unmodifiableList(Arrays.asList(
      FACE, SKELETON, FACE_VERIFY, FACE_CLUSTERING, MATTING, SCENE, SIMILARITY, AESTHETICS, SENSITIVE,
      FACE_ATTRIBUTE, SCENE_V3, SALIENCY, PET_MATTING, PET_FACE, CLASSIFICATION, RELATION, C300,
      RELATION_OUTPUT));

  private final String name;
  private final AlgorithmType algorithmType;
  private final String outputName;
  private final Class<T> messageType;

  private Kind(String name, AlgorithmType algorithmType, String outputName, Class<T> messageType) {
    this.name = name;
    this.algorithmType = algorithmType;
    this.outputName = outputName;
    this.messageType = messageType;
  }

  /**
   * Every kind, in a fixed order.
   *
   * @return the kinds
   */
  public static List<Kind<?>> values() {
    return ALL;
  }

  /**
   * The engine's algorithm kind, or null for a kind named by its output node.
   *
   * @return the algorithm kind or null
   */
  public AlgorithmType algorithmType() {
    return algorithmType;
  }

  /**
   * The output-node name (for example ClassificationPostProcess_c300), or null for a kind
   * given by its algorithm kind.
   *
   * @return the output name or null
   */
  public String outputName() {
    return outputName;
  }

  /**
   * The message class of this kind's answer.
   *
   * @return the message class
   */
  public Class<T> messageType() {
    return messageType;
  }

  /**
   * The constant's name, as in {@code FACE}.
   *
   * @return the name
   */
  @Override
  public String toString() {
    return name;
  }
}

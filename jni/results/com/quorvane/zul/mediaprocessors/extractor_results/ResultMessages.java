package com.quorvane.zul.mediaprocessors.extractor_results;

import com.google.protobuf.InvalidProtocolBufferException;
import com.google.protobuf.Message;
import com.quorvane.zul.mediaprocessors.extractor_jni.AlgorithmType;
import com.quorvane.zul.mediaprocessors.extractor_jni.MultiResult;
import com.quorvane.zul.mediaprocessors.extractor_jni.Result;
import java.math.BigInteger;
import java.util.Objects;

/**
 * Reads result blobs as typed messages: which message each algorithm kind produces, and
 * the parsed message of a {@link Result} or a {@link MultiResult.ResultItem}.
 *
 * <p>Kinds map to messages as follows: Face {@link C_FaceBuffer}, Skeleton
 * {@link C_SkeletonBuffer}, FaceVerify {@link C_FaceVerifyBuffer}, FaceClusting
 * {@link C_FaceClustingBuffer}, Matting {@link C_MattingResult}, SceneRecog
 * {@link C_SceneRecogBuffer}, Similarity {@link C_SimilarityBuffer}, AfterEffect
 * {@link C_AfterEffectBuffer}, PornCls {@link C_PornClsBuffer}, FaceAttribute
 * {@link C_FaceAttributeBuffer}, SceneRecogV3 {@link C_SceneRecogV3Buffer}, SaliencySeg
 * {@link C_SaliencySegInfo}, PetMatting {@link C_PetMattingBuffer}, FacePetDetect
 * {@link C_FacePetDetectBuffer}, NHClassification and RelationRecog
 * {@link C_NHClassificationBuffer}; every string kind (the output node of a
 * classification graph, such as {@code ClassificationPostProcess_c300}) gives
 * {@link C_NHClassificationBuffer} too. FaceExpression and the whole-graph kind -1
 * produce no blob.
 *
 * <p>Stateless and safe from any thread; the {@code Result} or item itself is not. A
 * null argument throws {@link NullPointerException} naming it.
 */
public final class ResultMessages {
  private ResultMessages() {}

  /**
   * The message class of an algorithm kind's blobs.
   *
   * @param kind the kind's number (4 face, 7 skeleton, ...)
   * @return the generated message class
   * @throws IllegalArgumentException for a kind that produces no blob
   */
  public static Class<? extends Message> messageType(int kind) {
    return messageOf(kind).getClass();
  }

  /**
   * The message class of an algorithm kind's blobs.
   *
   * @param kind the kind
   * @return the generated message class
   * @throws IllegalArgumentException for a kind that produces no blob
   */
  public static Class<? extends Message> messageType(AlgorithmType kind) {
    return messageType(requireKind(kind).swigValue());
  }

  /**
   * The message class of a string kind's blobs: every string kind is a classification
   * output, {@link C_NHClassificationBuffer}.
   *
   * @param stringKind the output node's name, such as {@code ClassificationPostProcess_c300}
   * @return {@code C_NHClassificationBuffer.class}
   * @throws IllegalArgumentException for an empty name
   */
  public static Class<? extends Message> messageType(String stringKind) {
    requireStringKind(stringKind);
    return C_NHClassificationBuffer.class;
  }

  /**
   * Parses a blob of an algorithm kind.
   *
   * @param kind the kind's number
   * @param blob the blob's bytes
   * @return the message, of the class {@link #messageType(int)} names
   * @throws InvalidProtocolBufferException when the bytes are not such a message
   * @throws IllegalArgumentException for a kind that produces no blob
   */
  public static Message parse(int kind, byte[] blob) throws InvalidProtocolBufferException {
    return messageOf(kind).getParserForType().parseFrom(requireBlob(blob));
  }

  /**
   * Parses a blob of an algorithm kind.
   *
   * @param kind the kind
   * @param blob the blob's bytes
   * @return the message, of the class {@link #messageType(AlgorithmType)} names
   * @throws InvalidProtocolBufferException when the bytes are not such a message
   * @throws IllegalArgumentException for a kind that produces no blob
   */
  public static Message parse(AlgorithmType kind, byte[] blob) throws InvalidProtocolBufferException {
    return parse(requireKind(kind).swigValue(), blob);
  }

  /**
   * Parses a blob of a string kind (a classification output).
   *
   * @param stringKind the output node's name
   * @param blob the blob's bytes
   * @return the classification message
   * @throws InvalidProtocolBufferException when the bytes are not such a message
   */
  public static C_NHClassificationBuffer parse(String stringKind, byte[] blob)
      throws InvalidProtocolBufferException {
    requireStringKind(stringKind);
    return C_NHClassificationBuffer.parseFrom(requireBlob(blob));
  }

  /**
   * Parses the blob of a result, by the result's own kind (its string kind when it has
   * one). The result keeps its blob.
   *
   * @param result a result returned by the extractor or a cache
   * @return the message, or null when the result holds no blob (a failed or skipped
   *     asset, or a blob already handed elsewhere)
   * @throws InvalidProtocolBufferException when the blob is not a message of that kind
   */
  public static Message parse(Result result) throws InvalidProtocolBufferException {
    byte[] blob = blobOf(result);
    if (blob == null) return null;
    String stringKind = result.getAlgorithmStringType();
    return stringKind.isEmpty() ? parse(result.getAlgorithmType().swigValue(), blob) : parse(stringKind, blob);
  }

  /**
   * Parses the blob of a result as the expected message class.
   *
   * @param result a result returned by the extractor or a cache
   * @param type the message class the caller expects, such as {@code C_FaceBuffer.class}
   * @param <T> the message class
   * @return the message, or null when the result holds no blob
   * @throws InvalidProtocolBufferException when the blob is not a message of that kind
   * @throws IllegalArgumentException when the result's kind produces other messages
   */
  public static <T extends Message> T parse(Result result, Class<T> type) throws InvalidProtocolBufferException {
    Objects.requireNonNull(type, "type must not be null");
    return expect(parse(result), type, result.getAlgorithmStringType().isEmpty()
        ? messageType(result.getAlgorithmType()) : C_NHClassificationBuffer.class);
  }

  /**
   * Parses the blob of one item of a several-kind result. The item keeps its blob. An
   * item is its kind's output, so an item of size 0 is the empty message (the kind found
   * nothing, no pet faces say: an empty message packs to no bytes). An item without blob
   * is no answer: an output the library has no encoder for, or a blob an earlier request
   * took out of the cache that answered this one.
   *
   * @param item an item of a {@link MultiResult}
   * @return the message, or null when the item holds no blob
   * @throws InvalidProtocolBufferException when the blob is not a message of that kind
   */
  public static Message parse(MultiResult.ResultItem item) throws InvalidProtocolBufferException {
    Objects.requireNonNull(item, "item must not be null");
    if (item.getData() == null) return null;
    BigInteger size = item.getSize();
    byte[] blob = size.signum() == 0 ? new byte[0] : toBytes(size, item::memcpyStructResult);
    if (blob == null) return null;
    String stringKind = item.getStringType();
    return stringKind.isEmpty() ? parse(item.getType().swigValue(), blob) : parse(stringKind, blob);
  }

  /**
   * Parses the blob of one item of a several-kind result as the expected message class.
   *
   * @param item an item of a {@link MultiResult}
   * @param type the message class the caller expects
   * @param <T> the message class
   * @return the message (the empty message for an item of size 0), or null when the item
   *     holds no blob
   * @throws InvalidProtocolBufferException when the blob is not a message of that kind
   * @throws IllegalArgumentException when the item's kind produces other messages
   */
  public static <T extends Message> T parse(MultiResult.ResultItem item, Class<T> type)
      throws InvalidProtocolBufferException {
    Objects.requireNonNull(type, "type must not be null");
    return expect(parse(item), type, item.getStringType().isEmpty()
        ? messageType(item.getType()) : C_NHClassificationBuffer.class);
  }

  /**
   * The bytes of a result's blob (a copy).
   *
   * @param result a result
   * @return the blob, or null when the result holds none (also after {@code freeResult()},
   *     which keeps the length)
   * @throws IllegalStateException when the result's length is more than a Java array holds
   */
  public static byte[] blobOf(Result result) {
    Objects.requireNonNull(result, "result must not be null");
    if (result.getResult() == null) return null;
    return toBytes(result.getResultLength(), result::memcpyStructResult);
  }

  private interface Copier {
    void copyInto(byte[] destination);
  }

  private static byte[] toBytes(BigInteger length, Copier copier) {
    if (length.signum() <= 0) return null;
    if (length.bitLength() > 31) {
      throw new IllegalStateException("a blob of " + length + " bytes does not fit a Java array (was its length set by hand?)");
    }
    byte[] blob = new byte[length.intValue()];
    copier.copyInto(blob);
    return blob;
  }

  private static <T extends Message> T expect(Message message, Class<T> type, Class<? extends Message> kindType) {
    if (!type.equals(kindType)) {
      throw new IllegalArgumentException("the result's kind gives " + kindType.getSimpleName() + ", not "
          + type.getSimpleName());
    }
    return type.cast(message);
  }

  private static AlgorithmType requireKind(AlgorithmType kind) {
    return Objects.requireNonNull(kind, "kind must not be null");
  }

  private static byte[] requireBlob(byte[] blob) {
    return Objects.requireNonNull(blob, "blob must not be null");
  }

  private static void requireStringKind(String stringKind) {
    if (stringKind == null || stringKind.isEmpty()) {
      throw new IllegalArgumentException("a string kind is a non-empty output node name");
    }
  }

  private static Message messageOf(int kind) {
    switch (kind) {
      case 4: return C_FaceBuffer.getDefaultInstance();
      case 7: return C_SkeletonBuffer.getDefaultInstance();
      case 8: return C_FaceVerifyBuffer.getDefaultInstance();
      case 10: return C_FaceClustingBuffer.getDefaultInstance();
      case 12: return C_MattingResult.getDefaultInstance();
      case 25: return C_SceneRecogBuffer.getDefaultInstance();
      case 29: return C_SimilarityBuffer.getDefaultInstance();
      case 30: return C_AfterEffectBuffer.getDefaultInstance();
      case 33: return C_PornClsBuffer.getDefaultInstance();
      case 46: return C_FaceAttributeBuffer.getDefaultInstance();
      case 58: return C_SceneRecogV3Buffer.getDefaultInstance();
      case 60: return C_SaliencySegInfo.getDefaultInstance();
      case 71: return C_PetMattingBuffer.getDefaultInstance();
      case 95: return C_FacePetDetectBuffer.getDefaultInstance();
      case 121:
      case 130: return C_NHClassificationBuffer.getDefaultInstance();
      default: throw new IllegalArgumentException("kind " + kind + " produces no result blob");
    }
  }
}

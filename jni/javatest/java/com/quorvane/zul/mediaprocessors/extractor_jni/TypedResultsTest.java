package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.google.protobuf.Message;
import com.quorvane.zul.mediaprocessors.extractor_results.C_FaceAttribute;
import com.quorvane.zul.mediaprocessors.extractor_results.C_FaceAttributeBuffer;
import com.quorvane.zul.mediaprocessors.extractor_results.C_FaceBuffer;
import com.quorvane.zul.mediaprocessors.extractor_results.C_FacePetDetectBuffer;
import com.quorvane.zul.mediaprocessors.extractor_results.C_NHClassificationBuffer;
import com.quorvane.zul.mediaprocessors.extractor_results.ResultMessages;
import com.quorvane.zul.mediaprocessors.jnitest.TestHooks;
import java.math.BigInteger;
import java.nio.file.Path;
import java.util.HashSet;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The typed results jar reads every blob exactly as the C++ decoder does. */
class TypedResultsTest {
  @TempDir Path tmp;

  /** Same JSON from both decoders, and protobuf-java writes the very same bytes back. */
  private static void assertDecodesAsCpp(int kind, byte[] blob, Message message) {
    assertEquals(TestHooks.blobToJson(kind, blob), MessageJson.of(message), "kind " + kind);
    assertArrayEquals(blob, message.toByteArray(), "kind " + kind);
  }

  @Test
  void everyKindOfRealBlobDecodesAsInCpp() throws Exception {
    ResourceList photos = Pictures.resources(Pictures.resource("astronaut", "astronaut.jpg"),
        Pictures.resource("chelsea", "chelsea.jpg"));
    Set<Class<?>> seen = new HashSet<>();
    try (Extractor extractor = Pictures.initialised(tmp, new MemoryCache(64), null)) {
      for (AlgorithmType kind : AlgorithmType.values()) {
        String graph = CoverUtil.getAlgorithmConf(kind);
        if (graph.isEmpty() || kind == AlgorithmType.FaceExpression) continue;
        Input request = new Input(photos, graph, new StringLongMap(), kind);
        for (Result result : extractor.extractFeatures(request, false, null)) {
          byte[] blob = ResultMessages.blobOf(result);
          if (blob == null) continue;
          Message message = ResultMessages.parse(result);
          assertSame(ResultMessages.messageType(kind), message.getClass());
          assertDecodesAsCpp(kind.swigValue(), blob, message);
          seen.add(message.getClass());
        }
      }
    }
    assertEquals(14, seen.size(), "blob formats seen: " + seen);

    // FaceAttribute has no built-in graph: a blob written by Java, read by C++.
    C_FaceAttributeBuffer attributes = C_FaceAttributeBuffer.newBuilder()
        .addMFaceAttributeInfos(C_FaceAttribute.newBuilder().setAge(31.5f).setBoyProb(0.125f).setGender(1)
            .setAttractive(1e-7f).setHappyScore(Float.NaN).setExpType(-2).addExpProbs(0.1f).addExpProbs(1e20f)
            .setRealFaceProb(0.99999994f).setQuality(-0f))
        .build();
    assertDecodesAsCpp(46, attributes.toByteArray(), ResultMessages.parse(AlgorithmType.FaceAttribute,
        attributes.toByteArray()));
  }

  @Test
  void kindsMapToTheirMessages() throws Exception {
    try (Extractor extractor = Pictures.initialised(tmp, new MemoryCache(8), null)) {
      ResourceList photos = Pictures.resources(Pictures.resource("astronaut", "astronaut.jpg"));
      VecAlgorithmType kinds = new VecAlgorithmType();
      kinds.add(AlgorithmType.Face);
      kinds.add(AlgorithmType.NHClassification);
      kinds.add(AlgorithmType.FacePetDetect);
      MultiAlgorithmInput request = new MultiAlgorithmInput(photos,
          MPFeatureExtractor.severalKindGraph(kinds, new VecString()), kinds, new VecString());
      MultiResult multi = extractor.extractFeatures(request, false).get(0);
      // No pet in the astronaut: an item of size 0, the empty message, not "no answer".
      MultiResult.ResultItem pets = multi.getResultItem(AlgorithmType.FacePetDetect);
      assertEquals(BigInteger.ZERO, pets.getSize());
      assertEquals(0, ResultMessages.parse(pets, C_FacePetDetectBuffer.class).getMFacePetInfosCount());
      MultiResult.ResultItem classes = multi.getResultItem(AlgorithmType.NHClassification);
      C_NHClassificationBuffer typed = ResultMessages.parse(classes, C_NHClassificationBuffer.class);
      assertTrue(typed.getSerializedSize() > 0);
      assertThrows(IllegalArgumentException.class, () -> ResultMessages.parse(classes, C_FaceBuffer.class));
      // A string kind is a classification output whatever its name.
      byte[] blob = typed.toByteArray();
      assertEquals(typed, ResultMessages.parse(MPFeatureExtractor.getAlgorithmTypeC300(), blob));
      try (Result named = new Result()) {
        named.setAlgorithmStringType("custom_output");
        named.setResultNative(blob);
        named.setResultLength(BigInteger.valueOf(blob.length));
        assertEquals(typed, ResultMessages.parse(named));
        named.setResultLength(BigInteger.ONE.shiftLeft(40));  // set wrong by hand
        assertThrows(IllegalStateException.class, () -> ResultMessages.blobOf(named));
        named.freeResult();  // the length stays, the blob is gone
        assertNull(ResultMessages.blobOf(named));
        assertNull(ResultMessages.parse(named));
      }
      // The memory cache keeps the Results a several-kind run offers it, whose blobs stay
      // with the items; answered from it, the items hold no blob: no answer, not "no
      // faces" or a message missing its required fields.
      extractor.extractFeatures(request, true);
      MultiResult cached = extractor.extractFeatures(request, true).get(0);
      assertEquals(3, cached.resultCount());
      assertNull(cached.getResultItem(AlgorithmType.FacePetDetect).getData());
      assertNull(ResultMessages.parse(cached.getResultItem(AlgorithmType.FacePetDetect)));
      assertNull(ResultMessages.parse(cached.getResultItem(AlgorithmType.Face), C_FaceBuffer.class));
    }
    assertNull(ResultMessages.parse(new Result("asset", "key", AlgorithmType.Face)), "no blob, no message");
    assertThrows(IllegalArgumentException.class, () -> ResultMessages.messageType(AlgorithmType.FaceExpression));
    assertThrows(IllegalArgumentException.class, () -> ResultMessages.messageType(-1));
    assertSame(C_NHClassificationBuffer.class, ResultMessages.messageType(130));
    // A null argument is named, not a NullPointerException from deep inside.
    assertEquals("result must not be null",
        assertThrows(NullPointerException.class, () -> ResultMessages.parse((Result) null)).getMessage());
    assertEquals("kind must not be null",
        assertThrows(NullPointerException.class, () -> ResultMessages.messageType((AlgorithmType) null)).getMessage());
    assertEquals("blob must not be null",
        assertThrows(NullPointerException.class, () -> ResultMessages.parse(4, null)).getMessage());
    assertEquals("type must not be null", assertThrows(NullPointerException.class,
        () -> ResultMessages.parse(new Result("asset", "key", AlgorithmType.Face), null)).getMessage());
  }
}

package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import java.nio.file.Path;
import java.util.UUID;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The PostgreSQL store from Java, against the server of VQFE_TEST_PG_URI (scripts/test starts one). */
class PgStoreTest {
  @TempDir Path tmp;

  @Test
  void storeSharedByTwoObjectsAndUnreachableServerIsAnException() throws Exception {
    String uri = System.getenv("VQFE_TEST_PG_URI");
    assumeTrue(uri != null && !uri.isEmpty(), "VQFE_TEST_PG_URI is not set: no PostgreSQL server to test against");
    // Asset ids of this run only: the server's database outlives the test.
    String astronaut = "astronaut-" + UUID.randomUUID();
    String chelsea = "chelsea-" + UUID.randomUUID();
    Input request = new Input(
        Pictures.resources(Pictures.resource(astronaut, "astronaut.jpg"), Pictures.resource(chelsea, "chelsea.jpg")),
        CoverUtil.getAlgorithmConf(AlgorithmType.Face), new StringLongMap(), AlgorithmType.Face);
    PgCache store = new PgCache(uri);
    FeatureResultList first = Pictures.initialised(tmp, store, store).extractFeatures(request, true, null);

    CacheAdapter other = new PgCache(uri);
    Result stored = other.query(astronaut, request.algorithmKey());
    assertArrayEquals(Pictures.blob(first.get(0)), Pictures.blob(stored));
    assertEquals(2, Pictures.initialised(tmp, other, null).queryFeatures(request).size());
    VecString both = new VecString();
    both.add(astronaut);
    both.add(chelsea);
    other.clear(both);
    assertEquals(0, store.query(request).size());

    RuntimeException refused = assertThrows(RuntimeException.class,
        () -> new PgCache("postgresql:///x?host=/nonexistent/socket/dir"));
    assertTrue(refused.getMessage().contains("result store postgresql:///x"), refused.getMessage());
  }
}

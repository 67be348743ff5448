package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The Java sample runs from an unrelated working directory, the second time from its store. */
class SampleTest {
  @TempDir Path tmp;

  private String runSample(Path workingDir, String... args) throws IOException, InterruptedException {
    Path java = Paths.get(System.getProperty("java.home"), "bin", "java");
    Path jar = Pictures.BINARY_DIR.toAbsolutePath().resolve("lib/ExtractorSample.jar");
    Path log = tmp.resolve("sample.log");
    String[] command = new String[4 + args.length];
    command[0] = java.toString();
    command[1] = "-Xcheck:jni";
    command[2] = "-jar";
    command[3] = jar.toString();
    System.arraycopy(args, 0, command, 4, args.length);
    Process process = new ProcessBuilder(command).directory(workingDir.toFile()).redirectErrorStream(true)
        .redirectOutput(log.toFile()).start();
    assertTrue(process.waitFor(120, TimeUnit.SECONDS), "sample timed out");
    String output = new String(Files.readAllBytes(log), StandardCharsets.UTF_8);
    assertEquals(0, process.exitValue(), output);
    assertFalse(output.contains("WARNING"), output);
    return output;
  }

  @Test
  void runsFromAnyDirectoryAndReusesItsStore() throws Exception {
    Path workingDir = Files.createDirectory(tmp.resolve("elsewhere"));
    String photo = Pictures.TESTDATA.toAbsolutePath().resolve("astronaut.jpg").toString();
    Path store = tmp.resolve("store/results.db");
    String first = runSample(workingDir, "--store", store.toString(), photo);
    assertTrue(first.contains("astronaut.jpg: NO_ERROR, answered by RUN"), first);
    assertTrue(first.contains("astronaut.jpg faces: 1 face(s) [score"), first);
    assertTrue(first.contains("astronaut.jpg classes: ["), first);
    assertTrue(first.contains("astronaut.jpg skeletons: 1 person(s)"), first);
    assertTrue(Files.size(store) > 0);
    // A new process is answered from the store: the same typed results.
    String second = runSample(workingDir, "--store", store.toString(), photo);
    assertTrue(second.contains("astronaut.jpg: NO_ERROR, answered by STORE"), second);
    assertEquals(typedLines(first), typedLines(second));
  }

  private static String typedLines(String output) {
    StringBuilder kept = new StringBuilder();
    for (String line : output.split("\n")) {
      if (line.startsWith("astronaut.jpg ")) kept.append(line).append('\n');
    }
    return kept.toString();
  }
}

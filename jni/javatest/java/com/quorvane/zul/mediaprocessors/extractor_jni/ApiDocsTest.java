package com.quorvane.zul.mediaprocessors.extractor_jni;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.lang.reflect.Executable;
import java.lang.reflect.Parameter;
import java.util.Arrays;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;

/** The jar keeps the C++ parameter names, so IDEs show what each argument means. */
class ApiDocsTest {
  private static String names(Executable method) {
    return Arrays.stream(method.getParameters()).map(Parameter::getName).collect(Collectors.joining(","));
  }

  @Test
  void parameterNamesSurviveCompilation() throws Exception {
    assertEquals("config,cache,storeCache,modelDir,frameworkConfigPath,initFlag",
        names(Extractor.class.getConstructor(Config.class, CacheAdapter.class, CacheAdapter.class, String.class,
            String.class, boolean.class)));
    assertEquals("input,useCache,error",
        names(Extractor.class.getMethod("extractFeatures", Input.class, boolean.class, ErrorPair.class)));
    assertEquals("resList,algorithmConf,intParams,type",
        names(Input.class.getConstructor(ResourceList.class, String.class, StringLongMap.class, AlgorithmType.class)));
    assertEquals("argb,width,height", names(ImagePixels.class.getMethod("fromArgb", int[].class, int.class, int.class)));
  }
}

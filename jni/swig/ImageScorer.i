// ImageScorerJNI (package com.quorvane.zul.mediaprocessors.ImageScorer_jni): the image
// quality scorer as its own small module in libExtractorJni.so. The scorer crosses as
// a plain handle to a heap ImageScorer; Java must call destroy() before delete().
%module(jniclassname="ImageScorerJNI") ImageScorerModule

%{
#include "vantor/image_scorer.h"
%}

%include <std_string.i>

%pragma(java) jniclasscode=%{
  static {
    try {
      System.loadLibrary("ExtractorJni");
    } catch (UnsatisfiedLinkError e) {
      try {
        delete_ImageScorer(0);  // loaded by the host already?
      } catch (UnsatisfiedLinkError notLoaded) {
        throw e;
      }
    }
  }
%}

// Only the lifecycle methods are part of the Java surface.
%ignore VQFeature::ImageScorer::modelPath;
%ignore VQFeature::ImageScorer::option;

%include "vantor/image_scorer.h"

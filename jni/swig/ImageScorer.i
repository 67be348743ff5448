// ImageScorerJNI (package com.quorvane.zul.mediaprocessors.ImageScorer_jni): the image
// quality scorer as its own small module in libExtractorJni.so. The scorer crosses as
// a plain handle to a heap ImageScorer; Java calls destroy() before delete(), or close()
// for both.
%module(jniclassname="ImageScorerJNI") ImageScorerModule

%{
#include "vantor/image_scorer.h"
%}

%include <std_string.i>
%include "lifetimes.i"
%pragma(java) moduleclassmodifiers="/** Module class of the image scorer binding (no members). */\npublic class"
%pragma(java) jniclassclassmodifiers="/** The native methods behind ImageScorer; use ImageScorer instead. */\npublic class"

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

// close() is the whole documented ending (destroy(), then delete()), so that
// try-with-resources releases the framework's scorer as well.
%typemap(javacode) VQFeature::ImageScorer %{
  /**
   * Ends the scorer: {@link #destroy()}, then {@link #delete()}. Calling it again does
   * nothing; any other call afterwards throws {@link IllegalStateException}.
   */
  @Override
  public synchronized void close() {
    if (swigCPtr != 0) {
      destroy();
    }
    delete();
  }
%}

%include "vantor/image_scorer.h"

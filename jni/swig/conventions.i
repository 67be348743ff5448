// Conversions every native method shares: exceptions at the boundary, strings, 64-bit
// numbers, enumerations, and loading of the library.

// SWIG runs with SWIGWORDSIZE64, so int64_t is long as in the C++ it wraps (LP64);
// the collections of int64_t are then the very types the engine uses.
%include <stdint.i>
%include <std_string.i>
%include <std_shared_ptr.i>
%include <enums.swg>
%javaconst(1);
// Fields of class type are read and written by reference, so a null value handed to a
// setter is refused like any other null reference instead of being dereferenced.
%naturalvar;

// The JNI class loads libExtractorJni.so itself before SWIG's static block runs
// swig_module_init. A host that loaded the library already (System.load with a path)
// loses nothing; if the library is really missing, the loader's own error is thrown.
%pragma(java) jniclasscode=%{
  static {
    try {
      System.loadLibrary("ExtractorJni");
    } catch (UnsatisfiedLinkError e) {
      try {
        AlgorithmTypeC300_get();
      } catch (UnsatisfiedLinkError notLoaded) {
        throw e;
      }
    }
  }
%}

// Unsigned 64-bit values cross as java.math.BigInteger both ways (null is refused with
// "BigInteger null"; wider values keep their low 64 bits); signed ones as long.
%apply unsigned long long { unsigned long };
%apply const unsigned long long & { const unsigned long & };
// The conversion itself: the number's two's-complement big-endian bytes (toByteArray),
// the first sign-extended, each further one shifted in, low 64 bits kept. Written out
// (rather than SWIG's) to check for an exception from toByteArray before going on.
%typemap(in) unsigned long {
  $1 = 0;
  if (!$input) {
    SWIG_JavaThrowException(jenv, SWIG_JavaNullPointerException, "BigInteger null");
    return $null;
  }
  if (!vqfe_BigIntegerToUnsigned(jenv, $input, &$1)) return $null;
}
%typemap(in) const unsigned long & ($*1_ltype temp) {
  temp = 0;
  if (!$input) {
    SWIG_JavaThrowException(jenv, SWIG_JavaNullPointerException, "BigInteger null");
    return $null;
  }
  if (!vqfe_BigIntegerToUnsigned(jenv, $input, &temp)) return $null;
  $1 = &temp;
}
%{
// False when Java raised an exception (left pending for the caller).
static bool vqfe_BigIntegerToUnsigned(JNIEnv* jenv, jobject number, unsigned long* out) {
  jclass clazz = jenv->GetObjectClass(number);
  jmethodID toByteArray = jenv->GetMethodID(clazz, "toByteArray", "()[B");
  jenv->DeleteLocalRef(clazz);
  if (!toByteArray) return false;
  jbyteArray bytes = (jbyteArray)jenv->CallObjectMethod(number, toByteArray);
  if (jenv->ExceptionCheck() || !bytes) return false;
  jsize size = jenv->GetArrayLength(bytes);
  jbyte* elements = jenv->GetByteArrayElements(bytes, 0);
  if (!elements) {
    jenv->DeleteLocalRef(bytes);
    return false;
  }
  unsigned long value = 0;
  if (size > 0) {
    value = (unsigned long)(long)elements[0];
    for (jsize i = 1; i < size; i++) value = (value << 8) | (unsigned long)(unsigned char)elements[i];
  }
  jenv->ReleaseByteArrayElements(bytes, elements, 0);
  jenv->DeleteLocalRef(bytes);
  *out = value;
  return true;
}
%}
%apply long long { long };
%apply const long long & { const long & };

// Null checks of reference arguments: "<type> reference is null".
%typemap(in) SWIGTYPE & %{ $1 = *($&1_ltype)&$input;
  if (!$1) {
    SWIG_JavaThrowException(jenv, SWIG_JavaNullPointerException, "$1_type reference is null");
    return $null;
  } %}

// The one place where C++ exceptions become Java exceptions. A Java exception thrown
// inside a callback comes back through the engine as Swig::DirectorException; the
// native method that started the work re-raises the original Java exception. The
// engine itself throws nothing else on purpose (the result store reports I/O failures
// by exception); the remaining handlers keep a
// stray C++ exception (bad arguments, memory) from aborting the virtual machine.
%exception {
  try {
    $action
  } catch (const Swig::DirectorException& e) {
    e.throwException(jenv);
    return $null;
  } catch (const std::invalid_argument& e) {
    SWIG_JavaThrowException(jenv, SWIG_JavaIllegalArgumentException, e.what());
    return $null;
  } catch (const std::bad_alloc& e) {
    SWIG_JavaThrowException(jenv, SWIG_JavaOutOfMemoryError, e.what());
    return $null;
  } catch (const std::exception& e) {
    // e.g. a result store that cannot be opened or written
    SWIG_JavaThrowException(jenv, SWIG_JavaRuntimeException, e.what());
    return $null;
  }
}
%{
#include <new>
#include <stdexcept>
%}

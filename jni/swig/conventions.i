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

// The JNI class loads libExtractorJni.so itself (a host that loaded it already, e.g.
// through System.load, loses nothing) before SWIG's static block runs swig_module_init.
%pragma(java) jniclasscode=%{
  static {
    try {
      System.loadLibrary("ExtractorJni");
    } catch (UnsatisfiedLinkError e) {
      // Already loaded by the host under another name or path; swig_module_init below
      // fails loudly if it is not.
    }
  }
%}

// Unsigned 64-bit values cross as java.math.BigInteger both ways (null is refused with
// "BigInteger null"; wider values keep their low 64 bits); signed ones as long.
%apply unsigned long long { unsigned long };
%apply const unsigned long long & { const unsigned long & };
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
// engine itself throws nothing else on purpose; the remaining handlers only keep a
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
  }
}
%{
#include <new>
#include <stdexcept>
%}

// Proxy lifetimes. A proxy that owns its native object is AutoCloseable: close() is
// delete(), so try-with-resources releases the object, and a second close() does
// nothing. (The vector classes keep SWIG's own interface list: they have close() but
// are not AutoCloseable.) A call on a deleted proxy reaches the native side with handle 0 and
// is refused there with IllegalStateException before anything is dereferenced;
// destructors still accept handle 0 and do nothing.
%typemap(javainterfaces) SWIGTYPE "AutoCloseable"
%typemap(javacode) SWIGTYPE %{
  /**
   * Releases the native object, as {@link #delete()} does. Calling it again does
   * nothing; any other call afterwards throws {@link IllegalStateException}.
   */
  public void close() {
    delete();
  }
%}

%typemap(check) SWIGTYPE* self %{
  if (!$1 && !vqfe_is_destructor("$symname")) {
    SWIG_JavaThrowException(jenv, SWIG_JavaIllegalStateException, "$1_basetype has been deleted ($symname)");
    return $null;
  }
%}
%{
// Evaluated at compile time: whether a wrapper is one of the delete_ natives.
static constexpr bool vqfe_is_destructor(const char* symbol) {
  return symbol[0] == 'd' && symbol[1] == 'e' && symbol[2] == 'l' && symbol[3] == 'e' && symbol[4] == 't' &&
         symbol[5] == 'e' && symbol[6] == '_';
}
%}

// delete() with its Javadoc: SWIG's own body, for proxies of TYPE. OWN and OWN_DERIVED
// name the ownership flags of a base and a derived proxy (they differ for shared
// handles).
%define %vqfe_delete_doc
"/**\n   * Releases the native object now instead of at garbage collection: this proxy's own\n   * object, or for a shared object this proxy's reference to it (the engine, the caches\n   * and other proxies keep theirs). Calling it again does nothing; any other call on\n   * this proxy afterwards throws {@link IllegalStateException}.\n   */\n  public synchronized"
%enddef
%define %vqfe_documented_delete(TYPE, OWN, OWN_DERIVED)
%typemap(javadestruct, methodname="delete", methodmodifiers=%vqfe_delete_doc) TYPE {
    if (swigCPtr != 0) {
      if (OWN) {
        OWN = false;
        $jnicall;
      }
      swigCPtr = 0;
    }
  }
%typemap(javadestruct_derived, methodname="delete", methodmodifiers=%vqfe_delete_doc) TYPE {
    if (swigCPtr != 0) {
      if (OWN_DERIVED) {
        OWN_DERIVED = false;
        $jnicall;
      }
      swigCPtr = 0;
    }
    super.delete();
  }
%enddef
%vqfe_documented_delete(SWIGTYPE, swigCMemOwn, swigCMemOwn)

// The Extractor is the one proxy that any thread may call while others use it, so its
// calls hold the proxy's monitor, as delete() does: close() from another thread waits
// for the call in progress instead of destroying the engine under it. (The engine runs
// these calls one at a time anyway; a call from inside a run on the same thread, a Java
// cache calling back into its Extractor, still goes ahead, the monitor being reentrant.)
%javamethodmodifiers VQFeature::Extractor::init "public synchronized";
%javamethodmodifiers VQFeature::Extractor::extractFeatures "public synchronized";
%javamethodmodifiers VQFeature::Extractor::queryFeatures "public synchronized";
%javamethodmodifiers VQFeature::Extractor::clearAll "public synchronized";
%javamethodmodifiers VQFeature::Extractor::clearAssets "public synchronized";
%javamethodmodifiers VQFeature::Extractor::clearTypes "public synchronized";

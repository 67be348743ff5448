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

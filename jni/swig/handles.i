// Which classes cross as shared handles (the address of a heap-held std::shared_ptr):
// every engine class the engine keeps by shared pointer, and the callback interfaces.
// Everything else (collections, ErrorPair, VantorFeatureData, CoverUtil,
// NativeStringUtils) crosses as a plain handle to the object itself.

// %shared_ptr, and the Javadoc of the methods SWIG writes for such a proxy.
%define %vqfe_shared(TYPE)
%shared_ptr(TYPE)
%vqfe_documented_delete(TYPE, swigCMemOwn, swigCMemOwnDerived)
%typemap(directorowner_release, methodname="swigReleaseOwnership") TYPE %{
  /** Makes the native side the owner of this Java implementation (used by the binding). */
  public void $methodname() {
    swigSetCMemOwn(false);
    $jnicall;
  }
%}
%typemap(directorowner_take, methodname="swigTakeOwnership") TYPE %{
  /** Makes this proxy the owner of its native side again (used by the binding). */
  public void $methodname() {
    swigSetCMemOwn(true);
    $jnicall;
  }
%}
%enddef

%vqfe_shared(Vantor::VantorAlgorithmInput)
%vqfe_shared(Vantor::VantorHeaderProvider)
%vqfe_shared(Vantor::VantorNetworkDelegate)
%vqfe_shared(Vantor::VantorThreadDelegate)
%vqfe_shared(VQ::AppConfig)
%vqfe_shared(VQFeature::ModelsDownloadCallback)
%vqfe_shared(VQFeature::Config)
%vqfe_shared(VQFeature::ImageBuffer)
%vqfe_shared(VQFeature::Resource)
%vqfe_shared(VQFeature::Input)
%vqfe_shared(VQFeature::MultiAlgorithmInput)
%vqfe_shared(VQFeature::IResult)
%vqfe_shared(VQFeature::Result)
%vqfe_shared(VQFeature::MultiResult)
%vqfe_shared(VQFeature::MultiResult::ResultItem)
%vqfe_shared(VQFeature::CacheAdapter)
%vqfe_shared(VQFeature::MemoryCache)
%vqfe_shared(VQFeature::SqliteCache)
%vqfe_shared(VQFeature::TieredCache)
%vqfe_shared(VQFeature::Extractor)
%vqfe_shared(VQFeature::StructResultCopyCallBack)
%vqfe_shared(VQFeature::ByteArrayCallBack)

// The extractor and the request of a call live until the call returns. A Java cache
// called back by the run may close either (delete() frees the proxy's holder, and with
// it the last reference): the run must not go on over freed objects. SWIG's own
// wrappers use the holder itself; these keep a copy of it for the call.
%typemap(check) VQFeature::Extractor* self (std::shared_ptr<VQFeature::Extractor> callKeeps) %{
  if (!$1 && !vqfe_is_destructor("$symname")) {
    SWIG_JavaThrowException(jenv, SWIG_JavaIllegalStateException, "$1_basetype has been deleted ($symname)");
    return $null;
  }
  if (smartarg$argnum) callKeeps = *smartarg$argnum;
%}
%define %vqfe_kept_for_the_call(TYPE)
%typemap(in) const std::shared_ptr<TYPE>& (std::shared_ptr<TYPE> callKeeps) %{
  if ($input) callKeeps = **(std::shared_ptr<TYPE>**)&$input;
  $1 = &callKeeps;
%}
%enddef
%vqfe_kept_for_the_call(VQFeature::Input)
%vqfe_kept_for_the_call(VQFeature::MultiAlgorithmInput)

// The error pair is a plain handle: closed inside the call, it would be written after it
// was freed. The run writes into a copy, which goes back to the pair afterwards if the
// pair's proxy still holds it (under the proxy's lock, which its delete() takes too).
%typemap(in) VQFeature::ErrorPair* error (VQFeature::ErrorPair callPair) %{
  $1 = *(VQFeature::ErrorPair**)&$input;
  if ($1) {
    callPair = *$1;
    $1 = &callPair;
  }
%}
%typemap(argout) VQFeature::ErrorPair* error %{
  if ($1) {
    jthrowable pending = jenv->ExceptionOccurred();  // kept for the caller
    if (pending) jenv->ExceptionClear();
    if (jenv->MonitorEnter(jarg$argnum_) == JNI_OK) {
      if (vqfe_proxy_holds(jenv, jarg$argnum_, jarg$argnum)) **(VQFeature::ErrorPair**)&jarg$argnum = callPair$argnum;
      jenv->MonitorExit(jarg$argnum_);
    }
    if (pending) jenv->Throw(pending);
  }
%}
%{
// Whether the Java proxy still holds the native object of handle (delete() zeroes it).
static bool vqfe_proxy_holds(JNIEnv* jenv, jobject proxy, jlong handle) {
  if (proxy == nullptr) return false;
  jclass type = jenv->GetObjectClass(proxy);
  jfieldID field = jenv->GetFieldID(type, "swigCPtr", "J");
  jenv->DeleteLocalRef(type);
  if (field == nullptr) {
    jenv->ExceptionClear();
    return false;
  }
  return jenv->GetLongField(proxy, field) == handle;
}
%}

// Host-side platform objects and the download callback are only stored and handed
// back; Java never creates them.
%nodefaultctor Vantor::VantorHeaderProvider;
%nodefaultctor Vantor::VantorNetworkDelegate;
%nodefaultctor Vantor::VantorThreadDelegate;
%nodefaultctor VQFeature::ModelsDownloadCallback;

// Parts of the headers that are not part of the Java surface.
%ignore VQFeature::Extractor::ExtractorImpl;
%ignore VQFeature::Extractor::extractFeatureByVantor;
%ignore VQFeature::MultiResult::items;
%ignore VQFeature::ImageBuffer::data;
%ignore VQFeature::ImageBuffer::readableBytes;
%ignore Vantor::VantorImageBuffer;
%ignore VQFeature::VantorGraph;
%ignore VQFeature::kPostProcessorNames;
%ignore VQFeature::KeptGraph::keyAliases;  // for stores that file answers by the request's keys
%ignore *::operator=;
%ignore VQFeature::Config::Config(const Config&);
%warnfilter(520) Vantor::VantorImageBuffer;

// Config.modelsDownloadCallback is handed out as the field itself: the address of the
// Config's own shared_ptr, not a new holder. The Java proxy does not own it and is
// valid only while the Config lives.
%typemap(out) std::shared_ptr<VQFeature::ModelsDownloadCallback> const& VQFeature::Config::modelsDownloadCallback
  %{ *(std::shared_ptr<VQFeature::ModelsDownloadCallback>**)&$result =
         const_cast<std::shared_ptr<VQFeature::ModelsDownloadCallback>*>($1); %}
%typemap(javaout) std::shared_ptr<VQFeature::ModelsDownloadCallback> const& VQFeature::Config::modelsDownloadCallback {
    long cPtr = $jnicall;
    return (cPtr == 0) ? null : new ModelsDownloadCallback(cPtr, false);
  }

// Which classes cross as shared handles (the address of a heap-held std::shared_ptr):
// every engine class the engine keeps by shared pointer, and the callback interfaces.
// Everything else (collections, ErrorPair, VantorFeatureData, CoverUtil,
// NativeStringUtils) crosses as a plain handle to the object itself.

%shared_ptr(Vantor::VantorAlgorithmInput)
%shared_ptr(Vantor::VantorHeaderProvider)
%shared_ptr(Vantor::VantorNetworkDelegate)
%shared_ptr(Vantor::VantorThreadDelegate)
%shared_ptr(VQ::AppConfig)
%shared_ptr(VQFeature::ModelsDownloadCallback)
%shared_ptr(VQFeature::Config)
%shared_ptr(VQFeature::ImageBuffer)
%shared_ptr(VQFeature::Resource)
%shared_ptr(VQFeature::Input)
%shared_ptr(VQFeature::MultiAlgorithmInput)
%shared_ptr(VQFeature::IResult)
%shared_ptr(VQFeature::Result)
%shared_ptr(VQFeature::MultiResult)
%shared_ptr(VQFeature::MultiResult::ResultItem)
%shared_ptr(VQFeature::CacheAdapter)
%shared_ptr(VQFeature::MemoryCache)
%shared_ptr(VQFeature::SqliteCache)
%shared_ptr(VQFeature::Extractor)
%shared_ptr(VQFeature::StructResultCopyCallBack)
%shared_ptr(VQFeature::ByteArrayCallBack)

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
%ignore Vantor::VantorImageBuffer;
%ignore VQFeature::VantorGraph;
%ignore VQFeature::kPostProcessorNames;
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

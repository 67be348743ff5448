// Interfaces Java may implement. Each gets a SwigDirector_ bridge class that forwards
// the engine's virtual calls to the Java object (attaching a foreign thread for the
// call) and turns a Java exception into Swig::DirectorException.
%feature("director") VQFeature::StructResultCopyCallBack;
%feature("director") VQFeature::ByteArrayCallBack;
%feature("director") VQFeature::CacheAdapter;
%feature("director") VQFeature::IResult;
%feature("director") Vantor::VantorAlgorithmInput;
// The director feature is inherited; the library's own implementations stay native.
%feature("nodirector") VQFeature::MemoryCache;
%feature("nodirector") VQFeature::SqliteCache;
%feature("nodirector") VQFeature::TieredCache;
%feature("nodirector") VQFeature::Result;
%feature("nodirector") VQFeature::MultiResult;

// The decoded records have no Java form: the accessors stay native. A Java IResult
// exists only as the upcast target of Result and MultiResult, and its bridge answers
// every accessor with the pure-virtual exception.
%ignore afterEffectBuffer;
%ignore sceneRecogBuffer;
%ignore sceneRecogV3Buffer;
%ignore faceVerifyBuffer;
%ignore pornClsBuffer;
%ignore similarityBuffer;
%ignore faceBuffer;
%ignore faceAttributeBuffer;
%ignore relationRecogBuffer;
%ignore c300Buffer;
%ignore clip128Buffer;
%ignore nHClassificationBuffer;
%ignore petMattingBuffer;
%ignore facePetDetectBuffer;
%ignore saliencySegInfo;
%ignore skeletonBuffer;
%ignore mattingResult;
%ignore faceClustingBuffer;

// Callback buffers cross as byte[]: copied in, and copied back after the Java method
// returned normally, so Java may edit the bytes in place.
%apply (char *STRING, size_t LENGTH) { (char* data, unsigned long size) };

// VantorAlgorithmInput's type is read through a method of its own name.
%ignore Vantor::VantorAlgorithmInput::type;
%rename(type) Vantor::VantorAlgorithmInput::inputType;
%extend Vantor::VantorAlgorithmInput {
  /// The kind of input: an image, a texture or a tensor.
  Vantor::VantorInputType inputType() const { return $self->type; }
}

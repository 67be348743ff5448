// Javadoc for what has no /// comment in our headers: the framework's own types, the
// collections and the pair that SWIG instantiates, and the members SWIG writes itself.
// (Enum constants are documented on their enum.)

%define %vqfe_class_doc(TEXT, TYPE...)
%typemap(javaclassmodifiers) TYPE "/**\n * " TEXT "\n */\npublic class"
%enddef
%define %vqfe_enum_doc(TEXT, TYPE...)
%typemap(javaclassmodifiers) TYPE "/**\n * " TEXT "\n */\npublic enum"
%enddef

%pragma(java) moduleclassmodifiers="/**\n * The library's free functions and constants: the string kinds, text helpers and\n * the no-op byte sink.\n */\npublic class"
%pragma(java) jniclassclassmodifiers="/**\n * The native methods of libExtractorJni.so behind the proxy classes; call the proxies\n * instead. Loading this class loads the library.\n */\npublic class"

%vqfe_enum_doc("The algorithm kinds. Each kind with a blob has its own message type (see\n * ExtractorResults.jar, ResultMessages): Face 4, Skeleton 7, FaceVerify 8, FaceClusting 10,\n * Matting 12, SceneRecog 25, Similarity 29, AfterEffect 30, PornCls 33, FaceAttribute 46,\n * SceneRecogV3 58, SaliencySeg 60, PetMatting 71, FacePetDetect 95, NHClassification\n * 121 and RelationRecog 130. FaceExpression 9 produces no blob; AllNodes -1 runs a\n * whole graph for a MultiAlgorithmInput. The numbers are part of every cache key.", enum Vantor::AlgorithmType)
%vqfe_enum_doc("What a framework input holds: an image, a texture or a tensor.", enum Vantor::VantorInputType)
%vqfe_enum_doc("Pixel layouts of ImageBuffer.format; ImagePixels always fills RGBA8888 (0).", enum Vantor::VantorPixelFormat)
%vqfe_enum_doc("Rotation of an image in quarter turns (ImageBuffer.rotateMode).", enum Vantor::VantorRotation)
%typemap(javabody) enum SWIGTYPE %{
  /**
   * The native value of this constant.
   *
   * @return the value the C++ enumeration gives it
   */
  public final int swigValue() {
    return swigValue;
  }

  /**
   * The constant of a native value.
   *
   * @param swigValue a value of the C++ enumeration
   * @return its constant
   * @throws IllegalArgumentException when no constant has that value
   */
  public static $javaclassname swigToEnum(int swigValue) {
    $javaclassname[] swigValues = $javaclassname.class.getEnumConstants();
    if (swigValue < swigValues.length && swigValue >= 0 && swigValues[swigValue].swigValue == swigValue)
      return swigValues[swigValue];
    for ($javaclassname swigEnum : swigValues)
      if (swigEnum.swigValue == swigValue)
        return swigEnum;
    throw new IllegalArgumentException("No enum " + $javaclassname.class + " with value " + swigValue);
  }

  @SuppressWarnings("unused")
  private $javaclassname() {
    this.swigValue = SwigNext.next++;
  }

  @SuppressWarnings("unused")
  private $javaclassname(int swigValue) {
    this.swigValue = swigValue;
    SwigNext.next = swigValue+1;
  }

  @SuppressWarnings("unused")
  private $javaclassname($javaclassname swigEnum) {
    this.swigValue = swigEnum.swigValue;
    SwigNext.next = this.swigValue+1;
  }

  private final int swigValue;

  private static class SwigNext {
    private static int next = 0;
  }
%}

%vqfe_class_doc("A framework input (the framework's own base class). No Java method takes one\n * (the raw run on such an input, extractFeatureByVantor, is C++ only): Java hands over\n * pixels in an ImageBuffer.", Vantor::VantorAlgorithmInput)
%vqfe_class_doc("The host's request-header provider for the framework's services; carried in\n * AppConfig, never created from Java.", Vantor::VantorHeaderProvider)
%vqfe_class_doc("The host's network delegate for the framework; carried in AppConfig, never\n * created from Java.", Vantor::VantorNetworkDelegate)
%vqfe_class_doc("The host's thread delegate for the framework; carried in AppConfig, never\n * created from Java.", Vantor::VantorThreadDelegate)
%typemap(javaclassmodifiers) SWIGTYPE *, SWIGTYPE &, SWIGTYPE [] "/**\n * An opaque native pointer: Java can only hand it back to the native side.\n */\npublic class"

// Constructors SWIG writes where the headers declare none.
%javamethodmodifiers VQFeature::CoverUtil::CoverUtil "/** Not needed: every method is static. */\n  public";
%javamethodmodifiers VQFeature::NativeStringUtils::NativeStringUtils "/** Not needed: every method is static. */\n  public";
%javamethodmodifiers VQFeature::IResult::IResult "/** For the binding; Java reads results through Result and MultiResult. */\n  public";
%javamethodmodifiers VQFeature::CacheAdapter::CacheAdapter "/**\n   * A cache implemented in Java: override the methods the engine will call (query,\n   * save and the clears it is given); an unimplemented one throws when called.\n   */\n  public";
%javamethodmodifiers VQFeature::StructResultCopyCallBack::StructResultCopyCallBack "/** A callback implemented in Java: override onResult. */\n  public";
%javamethodmodifiers VQFeature::ByteArrayCallBack::ByteArrayCallBack "/** A callback implemented in Java: override onResult. */\n  public";
%javamethodmodifiers Vantor::VantorAlgorithmInput::VantorAlgorithmInput "/** An input of the given kind. */\n  public";
%javamethodmodifiers VQFeature::VantorFeatureData::VantorFeatureData "/** No text. */\n  public";

// The collections and the error pair.
%define %vqfe_vector_doc(ELEMENT, TYPE...)
%vqfe_class_doc("A native std::vector of " ELEMENT ", usable as a java.util.List. Release it with\n * delete() (or close()) when done, or leave it to the garbage collector.", TYPE)
%enddef
%vqfe_vector_doc("texts", std::vector<std::string>)
%vqfe_vector_doc("algorithm kinds", std::vector<Vantor::AlgorithmType>)
%vqfe_vector_doc("resources (shared)", std::vector<std::shared_ptr<VQFeature::Resource>>)
%vqfe_vector_doc("results (shared)", std::vector<std::shared_ptr<VQFeature::Result>>)
%vqfe_vector_doc("several-kind results (shared)", std::vector<std::shared_ptr<VQFeature::MultiResult>>)
%define %vqfe_map_doc(VALUE, TYPE...)
%vqfe_class_doc("A native std::unordered_map from texts to " VALUE ", usable as a java.util.Map;\n * the graph parameters of an Input. Release it with delete() or close(), or leave it\n * to the garbage collector.", TYPE)
%enddef
%vqfe_map_doc("longs", std::unordered_map<std::string, long>)
%vqfe_map_doc("floats", std::unordered_map<std::string, float>)
%vqfe_map_doc("texts", std::unordered_map<std::string, std::string>)
%vqfe_class_doc("The error report of an extraction: (code, message) of the call's last failure.\n * The engine writes it only when something fails and never clears it, so start from\n * new ErrorPair(0, \"\") and read getFirst() after the call: 0 means no failure.", std::pair<int, std::string>)
%javamethodmodifiers capacity "/**\n   * The number of elements the vector holds without growing.\n   *\n   * @return the capacity\n   */\n  public";
%javamethodmodifiers reserve "/**\n   * Grows the capacity to at least n elements.\n   *\n   * @param n the capacity wanted\n   */\n  public";
%javamethodmodifiers vector "/** A new vector: empty, a copy of another, or count copies of one value. */\n  public";
%javamethodmodifiers unordered_map "/** A new map: empty or a copy of another. */\n  public";
%javamethodmodifiers std::pair<int, std::string>::pair "/** A new pair: (0, \"\"), the given code and message, or a copy. */\n  public";
%javamethodmodifiers std::pair<int, std::string>::first "/** The error code (0 when nothing failed). */\n  public";
%javamethodmodifiers std::pair<int, std::string>::second "/** The error message. */\n  public";

// Collections cross as plain handles to the native container; the Java classes
// (java.util.AbstractList / AbstractMap) are built on small checked primitives that
// raise IndexOutOfBoundsException themselves.
%include <std_vector.i>
%include <std_unordered_map.i>
%include <std_pair.i>

// Null collection references are refused with "<type> reference is null", the type
// spelt as apps have always seen it. Two spellings differ from the C++ they wrap:
// StringLongMap is the engine's unordered_map<string, int64_t> (long on LP64) but
// reports itself as long long, and Input's constructors report their collections as
// non-const references.
%define %vqfe_null_reference(TEXT, TYPE...)
%typemap(in) TYPE %{ $1 = *($&1_ltype)&$input;
  if (!$1) {
    SWIG_JavaThrowException(jenv, SWIG_JavaNullPointerException, TEXT);
    return $null;
  } %}
%enddef

%vqfe_null_reference("std::unordered_map< std::string,long long > const & reference is null",
    const std::unordered_map<std::string, long>&)
%vqfe_null_reference("std::vector< std::shared_ptr< VQFeature::Resource > > & reference is null",
    const VQFeature::ResourceList& resList)
%vqfe_null_reference("std::unordered_map< std::string,int64_t > & reference is null",
    const VQFeature::IntParams& intParams)
%vqfe_null_reference("std::unordered_map< std::string,float > & reference is null",
    const VQFeature::FloatParams& floatParams)
%vqfe_null_reference("std::unordered_map< std::string,std::string > & reference is null",
    const VQFeature::StringParams& stringParams)

// Map iterators handed in by value.
%define %vqfe_null_iterator(TEXT, TYPE...)
%typemap(in) TYPE ($&1_type argp) %{ argp = *($&1_ltype*)&$input;
  if (!argp) {
    SWIG_JavaThrowException(jenv, SWIG_JavaNullPointerException, TEXT);
    return $null;
  }
  $1 = *argp; %}
%enddef
// (Applied in MPFeatureExtractor.i right before StringLongMap is instantiated.)
%define %vqfe_long_map_iterator_messages
%vqfe_null_iterator("Attempt to dereference null std::unordered_map< std::string,long long >::iterator",
    std::unordered_map<std::string, long>::iterator)
%vqfe_null_iterator("Attempt to dereference null std::unordered_map< std::string,long long >::iterator const",
    const std::unordered_map<std::string, long>::iterator)
%enddef

// MultiAlgorithmInput's constructor keeps the const-reference wording: it is declared
// here with the resource list spelt out (the header's spelling would pick up Input's
// wording above).
%ignore VQFeature::MultiAlgorithmInput::MultiAlgorithmInput(const ResourceList&, const std::string&,
    const std::vector<Vantor::AlgorithmType>&, const std::vector<std::string>&);
%extend VQFeature::MultiAlgorithmInput {
  /// resources: the pictures. algorithmConf: the graph JSON. types, stringTypes: the
  /// outputs wanted, each an output of the graph.
  MultiAlgorithmInput(const std::vector<std::shared_ptr<VQFeature::Resource>>& resources,
                      const std::string& algorithmConf, const std::vector<Vantor::AlgorithmType>& types,
                      const std::vector<std::string>& stringTypes) {
    return new VQFeature::MultiAlgorithmInput(resources, algorithmConf, types, stringTypes);
  }
}

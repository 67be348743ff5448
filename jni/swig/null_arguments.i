// Null arguments named in Java terms. The natives keep refusing a null collection, map
// or pair with the C++ type in the message ("std::vector< ... > const & reference is
// null"); the proxies check first, so Java callers read the parameter's name and Java
// class instead: "resList must not be null (ResourceList)".
%typemap(javain, pre="    if ($javainput == null) throw new NullPointerException(\"$javainput must not be null ($javaclassname)\");") SWIGTYPE & "$javaclassname.getCPtr($javainput)"

// The extractor's requests: a null Input or MultiAlgorithmInput would give an empty
// answer that looks like an empty resource list. Scoped to the Extractor's methods
// (applied around its %include) because the caches take the same parameter.
%define %vqfe_requests_not_null
%typemap(javain, pre="    if ($javainput == null) throw new NullPointerException(\"$javainput must not be null (Input)\");") const std::shared_ptr<VQFeature::Input>& input "Input.getCPtr($javainput)"
%typemap(javain, pre="    if ($javainput == null) throw new NullPointerException(\"$javainput must not be null (MultiAlgorithmInput)\");") const std::shared_ptr<VQFeature::MultiAlgorithmInput>& input "MultiAlgorithmInput.getCPtr($javainput)"
%enddef
%define %vqfe_clear_requests_not_null
%clear const std::shared_ptr<VQFeature::Input>& input;
%clear const std::shared_ptr<VQFeature::MultiAlgorithmInput>& input;
%enddef

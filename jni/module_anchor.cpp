// libExtractorJni.so is vqfe_core linked whole; this unit gives the target a source of
// its own (CMake requires one) until the binding's generated sources join it.
namespace VQFeature {
namespace detail {
extern const char kLibraryVersion[] = "2.9.115";
}
}  // namespace VQFeature

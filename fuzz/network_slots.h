// The models fuzz_network and fuzz_named_network feed damaged bytes to, each with a graph
// that loads it: the input's first byte picks one (modulo the count), the seed maker
// writes seeds behind it.
#pragma once

#include <cstddef>

namespace vqfe_fuzz {

struct NetworkSlot {
    const char* model;  // the name the fuzzed bytes are served under
    const char* graph;
};

#define VQFE_FUZZ_FACE_NODE(extra)                                                                         \
    R"({"name":"face_0","type":"face","config":{"keymaps":{"stringParam":{"face_base_model_key":"qm_face")" \
    extra R"(}}}})"
#define VQFE_FUZZ_GRAPH(nodes, links) \
    R"({"nodes":[{"name":"input_0","type":"imageProducer"},)" nodes R"(],"links":[)" links "]}"
#define VQFE_FUZZ_LINK(to, index) R"({"fromNode":"input_0","fromIndex":0,"toNode":")" to R"(","toIndex":)" #index "}"
#define VQFE_FUZZ_FACE_LINKS(node) \
    VQFE_FUZZ_LINK("face_0", 0) "," VQFE_FUZZ_LINK(node, 0) R"(,{"fromNode":"face_0","fromIndex":0,"toNode":")" node R"(","toIndex":1})"

inline constexpr NetworkSlot kSlots[] = {
    {"qm_face", VQFE_FUZZ_GRAPH(VQFE_FUZZ_FACE_NODE(""), VQFE_FUZZ_LINK("face_0", 0))},
    {"qm_petface",
     VQFE_FUZZ_GRAPH(R"({"name":"pet_0","type":"face_pet_detect","config":{"keyMaps":{"intParam":{"face_pet_detect_config_type":3},"stringParam":{"face_pet_detect_model_key":"qm_petface"}}}})",
                     VQFE_FUZZ_LINK("pet_0", 0))},
    {"qm_face_extra", VQFE_FUZZ_GRAPH(VQFE_FUZZ_FACE_NODE(R"(,"face_extra_model_key":"qm_face_extra")"), VQFE_FUZZ_LINK("face_0", 0))},
    {"qm_skeleton",
     VQFE_FUZZ_GRAPH(R"({"name":"skeleton_0","type":"skeleton","config":{"keyMaps":{"intParam":{"skeleton_body_max_count":2},"stringParam":{"skeleton_model_key":"qm_skeleton"}}}})",
                     VQFE_FUZZ_LINK("skeleton_0", 0))},
    {"qm_matting", VQFE_FUZZ_GRAPH(R"({"name":"matting_0","type":"matting"})", VQFE_FUZZ_LINK("matting_0", 0))},
    {"qm_c1_small",
     VQFE_FUZZ_GRAPH(R"({"name":"scene_0","type":"scene_recognition","config":{"keymaps":{"intParam":{"scene_recog_use_old":1}}}})",
                     VQFE_FUZZ_LINK("scene_0", 0))},
    {"qm_c1_det", VQFE_FUZZ_GRAPH(R"({"name":"scene_0","type":"scene_recog_v3"})", VQFE_FUZZ_LINK("scene_0", 0))},
    {"qm_faceverify",
     VQFE_FUZZ_GRAPH(VQFE_FUZZ_FACE_NODE("") R"(,{"name":"verify_0","type":"face_verify","config":{"keymaps":{"stringParam":{"face_verify_model_key":"qm_faceverify"}}}})",
                     VQFE_FUZZ_FACE_LINKS("verify_0"))},
    {"qm_face_attribute_age",
     VQFE_FUZZ_GRAPH(VQFE_FUZZ_FACE_NODE("") R"(,{"name":"attr_0","type":"expression_detect","config":{"keymaps":{"stringParam":{"face_attr_age_gender_model_dir":"qm_face_attribute_age","face_attr_expression_model_dir":"qm_face_attribute_exp","face_attr_extra_model_dir":"qm_face_attribute_extra"},"intParam":{"face_attr_detect_ability":23}}}})",
                     VQFE_FUZZ_FACE_LINKS("attr_0"))},
    {"qm_porn_classifier",
     VQFE_FUZZ_GRAPH(R"({"name":"porn_cls_0","type":"porn_cls","config":{"keymaps":{"stringParam":{"model_name":"qm_porn_classifier"}}}})",
                     VQFE_FUZZ_LINK("porn_cls_0", 0))},
};
inline constexpr size_t kSlotCount = sizeof kSlots / sizeof kSlots[0];

// The slots of fuzz_named_network: the model is one a bundle of the graph names (a
// reference), so the graph runs once on a photo with a person after loading, and the run
// fetches it. A target of its own: a run costs a detector pass, many times a load.
inline constexpr NetworkSlot kNamedSlots[] = {
    // The scene's bundle (qm_c1_small, built) names qm_skeleton's body network, fetched to
    // check the photo's person.
    {"qm_skeleton",
     VQFE_FUZZ_GRAPH(R"({"name":"scene_0","type":"scene_recognition","config":{"keymaps":{"intParam":{"scene_recog_use_old":1}}}})",
                     VQFE_FUZZ_LINK("scene_0", 0))},
};
inline constexpr size_t kNamedSlotCount = sizeof kNamedSlots / sizeof kNamedSlots[0];

#undef VQFE_FUZZ_FACE_NODE
#undef VQFE_FUZZ_GRAPH
#undef VQFE_FUZZ_LINK
#undef VQFE_FUZZ_FACE_LINKS

// The real models the graphs name besides the fuzzed one.
inline constexpr const char* kRealModels[] = {"qm_face", "qm_face_attribute_exp", "qm_face_attribute_extra", "qm_c1_small"};

}  // namespace vqfe_fuzz

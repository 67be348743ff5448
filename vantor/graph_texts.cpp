// The built-in graph texts and the default model list, character for character.
//
// Each text is the framework's graph format as the framework accepts it, irregularities
// included: "keymaps" and "keyMaps" both occur, some integers are hexadecimal ("0x900"),
// the recognition graph has a trailing comma (",}"), and misspelt keys and labels
// ("similartiy_thres", "face_clusting", "gymnasimum_c2", "_class_labels") are what the
// models expect. Do not reformat or correct them.
#include "vantor/graph_texts.h"

namespace VQFeature {
namespace GraphTexts {

// Kind 4 (Face).
const char* const kKind4 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":5,"face_fast_mode":0,"face_detect_mode":262144,"face_detect_ability":256,"face_force_detect":1},"floatParam":{},"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0}]})json";

// Kind 7 (Skeleton).
const char* const kKind7 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"skeleton_0","type":"skeleton","config":{"keyMaps":{"intParam":{"skeleton_force_detect":1,"skeleton_body_max_count":2,"skeleton_image_mode":1},"floatParam":{},"stringParam":{"skeleton_model_key":"qm_skeleton"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"skeleton_0","toIndex":0}]})json";

// Kind 8 (FaceVerify).
const char* const kKind8 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":10,"face_fast_mode":0,"face_detect_mode":0x40000,"face_detect_ability":0x900},"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}},{"name":"face_verify_0","type":"face_verify","config":{"keymaps":{"intParam":{},"stringParam":{"face_verify_model_key":"qm_faceverify"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_verify_0","toIndex":0},{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},{"fromNode":"face_0","fromIndex":0,"toNode":"face_verify_0","toIndex":1}]})json";

// Kind 9 (FaceExpression).
const char* const kKind9 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":5,"face_fast_mode":0,"face_detect_mode":262144,"face_detect_ability":256},"floatParam":{},"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}},{"name":"expression_detect_0","type":"expression_detect","config":{"keymaps":{"stringParam":{"face_attr_age_gender_model_dir":"qm_face_attribute_age","face_attr_expression_model_dir":"qm_face_attribute_exp","face_attr_extra_model_dir":"qm_face_attribute_extra"},"intParam":{"face_attr_detect_ability":23,"face_attr_force_detect":1}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"expression_detect_0","toIndex":0},{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},{"fromNode":"face_0","fromIndex":0,"toNode":"expression_detect_0","toIndex":1}]})json";

// Kind 10 (FaceClusting).
const char* const kKind10 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":10,"face_fast_mode":0,"face_detect_mode":262144,"face_detect_ability":2304},"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}},{"name":"face_verify_0","type":"face_verify","config":{"keymaps":{"intParam":{},"stringParam":{"face_verify_model_key":"qm_faceverify"}}}},{"name":"face_clusting_0","type":"face_clusting","config":{"keymaps":{"intParam":{},"stringParam":{"face_clusting_model_key":"qm_bigbrother"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_verify_0","toIndex":0},{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},{"fromNode":"face_0","fromIndex":0,"toNode":"face_verify_0","toIndex":1},{"fromNode":"face_verify_0","fromIndex":0,"toNode":"face_clusting_0","toIndex":0}]})json";

// Kind 12 (Matting).
const char* const kKind12 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"matting_0","type":"matting","config":{"keyMaps":{"intParam":{},"floatParam":{},"stringParam":{}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"matting_0","toIndex":0}]})json";

// Kind 25 (SceneRecog).
const char* const kKind25 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"scene_recognition_0","type":"scene_recognition","config":{"keymaps":{"intParam":{"scene_recog_use_old":1}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"scene_recognition_0","toIndex":0}]})json";

// Kind 29 (Similarity).
const char* const kKind29 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"similarity_0","type":"similarity","config":{"keyMaps":{"intParam":{"similarity_func":0},"stringParam":{"model_name":"qm_sim"},"floatParam":{"similartiy_thres":0.86}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"similarity_0","toIndex":0}]})json";

// Kind 30 (AfterEffect).
const char* const kKind30 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":10,"face_fast_mode":0,"face_detect_mode":262144},"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}},{"name":"after_effect_0","type":"after_effect","config":{"keymaps":{"intParam":{"after_effect_func_type":1}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},{"fromNode":"input_0","fromIndex":0,"toNode":"after_effect_0","toIndex":0},{"fromNode":"face_0","fromIndex":0,"toNode":"after_effect_0","toIndex":1}]})json";

// Kind 33 (PornCls).
const char* const kKind33 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"porn_cls_0","type":"porn_cls","config":{"keymaps":{"intParam":{},"stringParam":{"model_name":"qm_porn_classifier"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"porn_cls_0","toIndex":0}]})json";

// Kind 58 (SceneRecogV3).
const char* const kKind58 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"scene_recog_v3_0","type":"scene_recog_v3","config":{"keymaps":{"intParam":{}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"scene_recog_v3_0","toIndex":0}]})json";

// Kind 60 (SaliencySeg).
const char* const kKind60 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"saliency_seg_0","type":"saliency_seg","config":{"keymaps":{"stringParam":{"saliency_model_key":"bingo_saliency_seg"},"intParam":{"saliency_model_type":0}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"saliency_seg_0","toIndex":0}]})json";

// Kind 71: pet face detection, image mode 0 (differs from kind 95 in that one digit).
const char* const kKind71 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_pet_detect_0","type":"face_pet_detect","config":{"keyMaps":{"intParam":{"face_pet_detect_use_imagemode":0,"face_pet_detect_config_type":3},"floatParam":{},"stringParam":{"face_pet_detect_model_key":"qm_petface"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_pet_detect_0","toIndex":0}]})json";

// Kind 95: pet face detection, image mode 1.
const char* const kKind95 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_pet_detect_0","type":"face_pet_detect","config":{"keyMaps":{"intParam":{"face_pet_detect_use_imagemode":1,"face_pet_detect_config_type":3},"floatParam":{},"stringParam":{"face_pet_detect_model_key":"qm_petface"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_pet_detect_0","toIndex":0}]})json";

// Kind 121 (NHClassification): 208 classes; the labels and thresholds follow, in class order.

const char* const kKind121Head =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"ImageTransform","type":"nh_image_transform","config":{"keyMaps":{"intParam":{"data_convert_rtype":3,"cvt_color_code":1,"resize_width":224,"resize_height":224},"floatParam":{"data_convert_beta":-128,"data_convert_alpha":1},"stringParam":{"transforms":"cvt_color:resize:data_convert"}}}},{"name":"NodeHubToTensor","type":"nh_convert_to_tensor","config":{"keyMaps":{"intParam":{},"floatParam":{},"stringParam":{}}}},{"name":"Inference","type":"nh_inference","config":{"keyMaps":{"intParam":{"output_convert":1,"data_format":1,"num_thread":2,"forward_type":0},"floatParam":{},"stringParam":{"output_names":"feature_mix_layer.0:output.0","model_name":"nodehub_c3_300"}}}},{"name":"ClassificationPostProcess","type":"nh_classification","config":{"keyMaps":{"intParam":{"num_classes":208,"do_soft_max":2,"sort_by_threshold":1,"feature_mode":1,"feature_dim":1280},"floatParam":{},"stringParam":{"output_names":"output.0","feature_name":"feature_mix_layer.0","class_labels":")json";

const char* const kKind121Middle =
    R"json(","class_thresholds":")json";

const char* const kKind121Tail =
    R"json("}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"ImageTransform","toIndex":0},{"fromNode":"ImageTransform","fromIndex":0,"toNode":"NodeHubToTensor","toIndex":0},{"fromNode":"NodeHubToTensor","fromIndex":0,"toNode":"Inference","toIndex":0},{"fromNode":"Inference","fromIndex":0,"toNode":"ClassificationPostProcess","toIndex":0}]})json";

// Spelling kept: "gymnasimum_c2", "Elepant_c2", "Americal_Fast_Food_c2"; "Swimming_c2" twice.
const char* const kClassLabels208 =
    R"json(98_Shoes,155_Sunglasses,1089_Dress,687_miniskirt,1972_kimono,1098_Uniforms,1277_Hanfu_photo,1975_underwear,696_Swimsuit,2420_Wedding_dress,595_Ethnic_customs,1903_cheongsam,1898_physical_education,1141_Yoga,LuYing_c2,Ski_c2,1565_Mountaineering,Swimming_c2,PaoBu_c2,537_Dancer,156_Halloween,1560_Christmas,1300_Party,1036_birthday,jiehunzhao_c2,1362_new_Year,Graduation_c2,312_Military_training,1647_concert,2423_Cosplay,1057_shopping,701_reading,956_Holding_hands,1920_Performance,Card_game_c2,shineijiudianjucan_c2,selfie_c1_c2,672_Family_photography,QinZiSheYing_c2,group_c1_c2,yinger_c2,ertong_c2,2143_Old_man,1248_crowd,1536_Two,2252_alone,2001_student,1072_Pregnant_woman,desert_c2,hill_c1_c2,mountain_snowy_c2,Cave_c2,moutain_path_c2,1714_Terraced_field,formal_garden_c2,farm_c2,lawn_c2,1276_jungle,2107_Flower_sea,islet_c2,1215_Underwater,lake_c1_c2,ocean_c2,2125_pond,1031_Water_droplets,creek_c2,2220_waterfall,2023_reef,beach_c1_c2,2584_sky,2397_Galaxy,1044_lightning,2568_Sunset,1550_rainbow,2358_Cloud_sea,2265_Blue_sky_and_white_clouds,1570_dark_clouds,2259_moon,nightscape_c1_c2,2002_Fireworks,Bonfire_c2,1257_Neon,1235_Rainy_day,xuejing_c2,2408_fog,flower_c1_c2,tree_c1_c2,1636_tulip,1872_sunflower,132_cactus,2461_Lotus,2482_Cherry_blossoms,950_Rose,670_lavender,885_Dandelion,1911_ginkgo,1612_reed,DuoRouZhiWu_c2,2172_Rape_flower,1840_Potted_plant,2077_Maple_leaf,mianshi_c2,zhongcan_c2,hotpot_c2,Americal_Fast_Food_c2,HaiXian_c2,grill_c2,sushi_c2,ShaLa_c2,snacks_c2,2201_dessert,cake_c2,fruit_c2,drink_c2,bread_new,1544_bookstore,1625_restaurant,446_hospital,1863_bar,1541_the_mall,2244_school,shiwaiyoulechagn_c2,carrousel_c2,park_c2,1434_Site,1504_Ferris_wheel,fountain_c2,1597_CBD,street_c1_c2,food_court_c2,1411_Interior_design,amusement_arcade_c2,ktv_c2,movie_theater_c2,1029_playground,soccer_field_c2,badminton_indoor_c2,Snooker_c2,golf_course_c2,baseball_c2,basketball_court_indoor_c2,tennis_outdoor_c2,Swimming_c2,gymnasimum_c2,ruin_c2,1719_Royal_palace,Tower_c2,Stele_c2,gujianzhu_c2,1441_castle,WesternArch_c2,statue_c1_c2,xiangcunjianzhu_c2,1693_bicycle,1402_motorcycle,2239_Traffic_flow,car_c1_c2,1615_Bus,2225_aircraft,1421_Ship,2314_subway,subway_platform,GaoTie_c2,911_Light_Rail,train_station_c2,bridge_c2,ZhanDao_c2,2387_road,1657_doll,sr_camera_c2,502_guitar,1060_book,1457_Crafts,screen_c2,tv_c2,mobilephone_c2,Pc_game_c2,2098_Anime,scrawl_mark_c2,823_calligraphy,725_sketch,bankcard_c2,card_data_c2,qrcode_c2,text_c1_c2,puzzle_c2,solidcolor_bg_c2,585_Jellyfish,204_goldfish,Tortoise_c2,KingPenguin_c2,2452_bird,Peacock_c2,cat_c1_c2,dog_c1_c2,1132_monkey,399_deer,Panda_c2,184_sheep,327_camel,1628_horse,415_Cattle,Tiger_c2,Giraffe_c2,Hamster_c2,Elepant_c2,Pig_c2,rabbit_c2)json";

const char* const kClassThresholds208 =
    R"json(0.7,0.3,0.6,0.8,0.65,0.65,0.945,0.45,0.7,0.95,0.73,0.8,0.7,0.55,0.92,0.96,0.57,0.92,0.96,0.92,0.5,0.9,0.4,0.85,0.9,0.86,0.89,0.2,0.85,0.75,0.74,0.45,0.5,0.85,0.97,0.78,0.9,0.3,0.4,0.6,0.32,0.92,0.84,0.5,0.8,0.85,0.75,0.84,0.955,0.72,0.7,0.8,0.9,0.2,0.9,0.9,0.8,0.55,0.6,0.1,0.8,0.87,0.87,0.4,0.51,0.78,0.78,0.72,0.75,0.2,0.1,0.1,0.95,0.11,0.35,0.7,0.83,0.89,0.9,0.15,0.26,0.9,0.9,0.85,0.9,0.1,0.85,0.21,0.1,0.38,0.5,0.9,0.53,0.38,0.1,0.5,0.9,0.75,0.95,0.7,0.15,0.9,0.75,0.98,0.11,0.9,0.88,0.62,0.91,0.7,0.93,1.0,0.55,0.95,1.0,0.83,0.7,0.7,0.7,0.8,0.4,0.75,0.1,0.4,0.58,0.1,0.74,0.93,0.84,0.65,0.59,0.15,0.26,0.8,0.4,0.83,0.85,0.7,0.8,0.84,0.83,0.78,0.95,0.75,0.9,0.1,0.4,0.38,0.65,0.75,0.24,0.9,0.88,0.99,0.98,0.93,0.18,0.1,0.5,0.59,0.92,0.025,0.92,0.94,0.9,0.91,0.1,0.9,0.93,0.97,0.6,0.91,0.95,0.92,0.985,0.83,0.83,0.73,0.5,0.06,0.79,0.1,0.1,0.1,0.48,0.9,0.85,0.1,0.84,0.53,0.1,0.72,0.79,0.47,0.73,0.1,0.3,0.1,0.44,0.8,0.9,0.48,0.1,0.14,0.73,0.1,0.54,0.14)json";

// Kind 130 (RelationRecog): labels under "_class_labels" on purpose.
const char* const kKind130 =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"ImageTransform","type":"nh_image_transform","config":{"keyMaps":{"intParam":{"data_convert_rtype":3,"cvt_color_code":1,"resize_width":224,"resize_height":224},"floatParam":{"data_convert_beta":-128,"data_convert_alpha":1},"stringParam":{"transforms":"cvt_color:resize:data_convert"}}}},{"name":"NodeHubToTensor","type":"nh_convert_to_tensor","config":{"keyMaps":{"intParam":{},"floatParam":{},"stringParam":{}}}},{"name":"Inference","type":"relation_recog","config":{"keyMaps":{"intParam":{"output_convert":1,"data_format":1,"num_thread":2,"forward_type":0},"floatParam":{},"stringParam":{"input_names":"data0:data1","output_names":"final_fc.3","model_name":"nodehub_relation"}}}},{"name":"ClassificationPostProcess","type":"nh_classification","config":{"keyMaps":{"intParam":{"num_classes":10,"do_soft_max":2,"sort_by_threshold":0,"feature_mode":0,"feature_dim":0},"floatParam":{},"stringParam":{"output_names":"final_fc.3","_class_labels":"peopletype,couple,friend,girlfriend,brother,family,baby,boy,girl,oldman","class_thresholds":"0.55,0.93,0.9,0.94,0.95,0.93,0.75,0.84,0.8,0.9"}}}},{"name":"face_0","type":"face","config":{"keyMaps":{"intParam":{"face_max_num":5,"face_fast_mode":0,"face_detect_mode":0x20000,"face_detect_ability":0x100,"face_force_detect":1},"floatParam":{},"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}},{"name":"expression_detect_0","type":"expression_detect","config":{"keyMaps":{"intParam":{"face_attr_detect_ability":2,"face_attr_force_detect":1},"floatParam":{},"stringParam":{"face_attr_age_gender_model_dir":"qm_face_attribute_age","face_attr_expression_model_dir":"qm_face_attribute_exp"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"ImageTransform","toIndex":0},{"fromNode":"ImageTransform","fromIndex":0,"toNode":"NodeHubToTensor","toIndex":0},{"fromNode":"NodeHubToTensor","fromIndex":0,"toNode":"Inference","toIndex":0},{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},{"fromNode":"face_0","fromIndex":0,"toNode":"Inference","toIndex":1},{"fromNode":"input_0","fromIndex":0,"toNode":"expression_detect_0","toIndex":0},{"fromNode":"face_0","fromIndex":0,"toNode":"expression_detect_0","toIndex":1},{"fromNode":"expression_detect_0","fromIndex":0,"toNode":"Inference","toIndex":2},{"fromNode":"Inference","fromIndex":0,"toNode":"ClassificationPostProcess","toIndex":0}]})json";

const char* const kGradingGraph =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"scene_recognition_0","type":"scene_recognition","config":{"keymaps":{"intParam":{"scene_recog_use_old":1},"stringParam":{"scene_model_key":"qm_c1_smartscan"}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"scene_recognition_0","toIndex":0}]})json";

// "face_detect_mode":111111 and the trailing ",}" are kept as they stand.
const char* const kRecognitionGraph =
    R"json({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"},{"name":"face_0","type":"face","config":{"keymaps":{"intParam":{"face_max_num":10,"face_fast_mode":0,"face_detect_mode":111111,},"stringParam":{"face_base_model_key":"qm_face","face_extra_model_key":"qm_face_extra"}}}},{"name":"after_effect_0","type":"after_effect","config":{"keymaps":{"intParam":{"after_effect_func_type":1}}}}],"links":[{"fromNode":"input_0","fromIndex":0,"toNode":"face_0","toIndex":0},{"fromNode":"input_0","fromIndex":0,"toNode":"after_effect_0","toIndex":0},{"fromNode":"face_0","fromIndex":0,"toNode":"after_effect_0","toIndex":1}]})json";

// "qm_sim" is listed twice on purpose.
const char* const kDefaultModels =
    R"json(nodehub_c3_300_upgrade,qm_leader_db,nodehub_clip_d128,nodehub_c3_300,qm_face,qm_bigbrother,qm_faceverify,qm_face_extra,qm_face_attribute,qm_face_attribute_extra,qm_porn_classifier,qm_c1_small,qm_c1_det,qm_after_effect,qm_sim,qm_C2Cls,qm_face_attribute_exp,qm_face_attribute_age,qm_petface,nodehub_relation,qm_skeleton,bingo_saliency_seg,qm_matting,qm_sim)json";


}  // namespace GraphTexts
}  // namespace VQFeature

// Prints the cache keys of a sample request: the MD5 of its graph text and the
// algorithm keys of a single-kind and a several-kind request over it.
#include <iostream>

#include "extractor/algorithm_types.h"
#include "extractor/input.h"
#include "vantor/md5.h"

int main() {
    using VQFeature::Input;
    using VQFeature::MultiAlgorithmInput;
    using Vantor::AlgorithmType;

    const std::string graph = R"({"version":"1.0","mode":2,"nodes":[{"name":"input_0","type":"imageProducer"}],"links":[]})";
    Input single({}, graph, {{"face_max_num", 5}}, {{"score_thres", 0.5f}}, {}, AlgorithmType::Face);
    MultiAlgorithmInput several({}, graph, {AlgorithmType::Face, AlgorithmType::SceneRecog},
                                {VQFeature::AlgorithmTypeC300});

    std::cout << "graph md5:              " << VQFeature::md5(graph) << "\n"
              << "face request key:       " << single.algorithmKey() << "\n"
              << "several-kind face key:  " << several.algorithmKey(AlgorithmType::Face) << "\n"
              << "several-kind c300 key:  " << several.algorithmKey(std::string(VQFeature::AlgorithmTypeC300))
              << "\n";
    return 0;
}

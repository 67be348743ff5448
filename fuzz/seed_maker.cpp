// Writes the seed corpora of the fuzz targets (fuzz/corpus/<target>/), from real data:
//   decoders/  every built-in template run by the open framework on small copies of the
//              test photographs, each result packed by the blob encoders, behind the
//              decoder's index byte (decoder_table.h); plus each decoder's empty blob;
//   graph/     the built-in templates and the two named graphs;
//   config/    the empty configuration and one with every kind of fault;
//   model_name/ every default model name, and versioned, suffixed and directory forms;
//   string_utils/ the default model list and short texts;
//   network/   per model of fuzz_network, behind its slot byte: the built model with each
//              network in it replaced by a tiny one (fuzz/tiny_networks/) or cut to 4 KiB,
//              a cascade by the one-stage tiny_cascade.xml;
//   named_network/ the same for the named models of fuzz_named_network.
// Run it from a default build: cmake --build --preset default --target fuzz_seed_maker
// && build/bin/fuzz_seed_maker [corpus]. Files are named by content, so reruns replace
// them; a corpus name writes that corpus alone.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <filesystem>
#include <fstream>
#include <string>

#include <opencv2/imgproc.hpp>

#include "decoder_table.h"
#include "network_slots.h"
#include "extractor/extractor_impl.h"
#include "jni/string_utils.h"
#include "testing/framework_harness.h"
#include "vantor/cover_util.h"

namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    std::printf("%8zu  %s\n", bytes.size(), path.string().c_str());
}

const vqfe_fuzz::Decoder* decoderOfKind(int kind, size_t& index) {
    for (index = 0; index < vqfe_fuzz::kDecoderCount; ++index) {
        if (vqfe_fuzz::kDecoders[index].kind == kind || (kind == 130 && vqfe_fuzz::kDecoders[index].kind == 121)) {
            return &vqfe_fuzz::kDecoders[index];
        }
    }
    return nullptr;
}

// The kinds a template's run yields a blob for (template 9 produces the attributes of 46).
int resultKind(int templateKind) { return templateKind == 9 ? 46 : templateKind; }

// (kind, text) of every built-in template.
std::vector<std::pair<int, std::string>> templates() {
    std::vector<std::pair<int, std::string>> out;
    for (int kind = 4; kind <= 130; ++kind) {
        std::string text = VQFeature::CoverUtil::getAlgorithmConf(static_cast<Vantor::AlgorithmType>(kind));
        if (!text.empty()) out.emplace_back(kind, std::move(text));
    }
    return out;
}

void writeBlobs(const fs::path& dir) {
    kv::testing::SystemHarness h;
    const char* images[] = {"astronaut.jpg", "chelsea.jpg", "coffee.jpg"};
    for (const auto& [kind, graph] : templates()) {
        if (h->loadGraph(graph) != Vantor::NO_ERROR) {
            std::fprintf(stderr, "template %d does not load: %s\n", kind, h->getLastErrorMessage().c_str());
            continue;
        }
        const int type = resultKind(kind);
        size_t index;
        const vqfe_fuzz::Decoder* decoder = decoderOfKind(type, index);
        if (decoder == nullptr) continue;
        for (const char* file : images) {
            // Copies large enough for the detectors to find faces, and small ones where the
            // result holds a mask or map, keep every seed at a few kilobytes.
            const bool map = type == 12 || type == 60 || type == 121;
            const int width = map ? 48 : type == 71 ? 120 : type == 95 ? 200 : 400;
            cv::Mat photo = kv::testing::loadTestImage(file), small;
            cv::resize(photo, small, cv::Size(width, photo.rows * width / photo.cols), 0, 0, cv::INTER_AREA);
            auto input = kv::testing::rgbaInput(small);
            if (h->execute(input->buffer, static_cast<Vantor::AlgorithmType>(type)) != Vantor::NO_ERROR) continue;
            unsigned long size = 0;
            void* blob = VQFeature::Extractor::ExtractorImpl::resultConvert(
                static_cast<Vantor::AlgorithmType>(type), h->getResult(static_cast<Vantor::AlgorithmType>(type)), &size);
            if (blob == nullptr) continue;
            std::string bytes(1, static_cast<char>(index));
            bytes.append(static_cast<const char*>(blob), size);
            std::free(blob);
            writeFile(dir / (std::string(decoder->name) + "-" + std::to_string(kind) + "-" + fs::path(file).stem().string() + ".bin"), bytes);
        }
    }
    for (size_t i = 0; i < vqfe_fuzz::kDecoderCount; ++i) {
        writeFile(dir / (std::string(vqfe_fuzz::kDecoders[i].name) + "-empty.bin"), std::string(1, static_cast<char>(i)));
    }
}

void writeGraphs(const fs::path& dir) {
    for (const auto& [kind, graph] : templates()) writeFile(dir / ("template-" + std::to_string(kind) + ".json"), graph);
    writeFile(dir / "grading.json", VQFeature::VantorGraph::gradingGraph());
    writeFile(dir / "recognition.json", VQFeature::VantorGraph::recognitionGraph());
}

void writeModelNames(const fs::path& dir) {
    for (const std::string& name : VQFeature::split(VQFeature::CoverUtil::getDefaultModels(), ",")) {
        writeFile(dir / name, name);
        writeFile(dir / (name + "-forms"), "models/" + name + "_v2.0.model");
    }
    const char* forms[] = {"qm_face_extra_v10.model", "qm_sim.dat", "qm_matting_model", "x-y_v1.model", "a.b", ""};
    for (size_t i = 0; i < sizeof forms / sizeof forms[0]; ++i) writeFile(dir / ("form-" + std::to_string(i)), forms[i]);
}

void writeTexts(const fs::path& dir) {
    writeFile(dir / "default-models", VQFeature::CoverUtil::getDefaultModels());
    writeFile(dir / "blank", std::string("a b\0a", 5) + std::string(1, '\x01'));
    writeFile(dir / "contains", std::string("abababc\0ababc\0", 14) + std::string(2, '\x03'));
}

void writeConfigs(const fs::path& dir) {
    writeFile(dir / "empty.json", "{}");
    writeFile(dir / "faults.json", R"({"faults": {"25": {"execute": 4}, "33": {"result": null}, "58": {"throw": "boom"}}, "device": [1, 2.5e3, true, false, "x\u00e9\n"]})");
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The parts of a "korvid-bundle" model as (name, content); none for any other model.
std::vector<std::pair<std::string, std::string>> bundleParts(const std::string& model) {
    std::vector<std::pair<std::string, std::string>> parts;
    const std::string magic = "korvid-bundle\n";
    if (model.compare(0, magic.size(), magic) != 0) return parts;
    for (size_t at = magic.size(); at < model.size();) {
        const size_t eol = model.find('\n', at), space = model.find(' ', at);
        const size_t size = std::stoul(model.substr(space + 1, eol - space - 1));
        parts.emplace_back(model.substr(at, space - at), model.substr(eol + 1, size));
        at = eol + 1 + size;
    }
    return parts;
}

// named: the slots are fuzz_named_network's, their seeds named <model>-named-*.
void writeNetworkSeeds(const fs::path& dir, const vqfe_fuzz::NetworkSlot* slots, size_t count, bool named) {
    const std::string tinyCascade = readFile(VQFE_FUZZ_TINY_CASCADE);
    std::vector<std::pair<std::string, std::string>> tinyNetworks;
    for (const auto& entry : fs::directory_iterator(VQFE_FUZZ_TINY_NETWORKS)) {
        tinyNetworks.emplace_back(entry.path().stem().string(), readFile(entry.path()));
    }
    for (size_t slot = 0; slot < count; ++slot) {
        const std::string name = slots[slot].model;
        const std::string model = readFile(fs::path(VQFE_FUZZ_NETWORKS) / (name + ".model"));
        const std::string stem = named ? name + "-named" : name;
        const std::string prefix(1, static_cast<char>(slot));
        const auto parts = bundleParts(model);
        // A network of the model (or the model itself) in one of its replacements.
        auto variant = [&](const std::string& network) {
            if (parts.empty()) return prefix + network;
            std::string bundle = prefix + "korvid-bundle\n";
            for (const auto& [part, content] : parts) {
                const bool isNetwork = !content.empty() && content[0] == '\x08';
                const bool isCascade = content.find("<cascade") != std::string::npos;
                const std::string& kept = isNetwork ? network : isCascade ? tinyCascade : content;
                bundle += part + " " + std::to_string(kept.size()) + "\n" + kept;
            }
            return bundle;
        };
        for (const auto& [tiny, network] : tinyNetworks) writeFile(dir / (stem + "-" + tiny + ".bin"), variant(network));
        std::string first = model;
        for (const auto& part : parts) {
            if (!part.second.empty() && part.second[0] == '\x08') {
                first = part.second;
                break;
            }
        }
        writeFile(dir / (stem + "-head.bin"), variant(first.substr(0, 4096)));
    }
    if (!named) writeFile(dir / "qm_petface-tiny_cascade.bin", std::string(1, '\x01') + tinyCascade);
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path corpus = VQFE_FUZZ_CORPUS;
    const std::string only = argc > 1 ? argv[1] : "";
    auto wanted = [&only](const char* name) { return only.empty() || only == name; };
    if (wanted("decoders")) writeBlobs(corpus / "decoders");
    if (wanted("graph")) writeGraphs(corpus / "graph");
    if (wanted("config")) writeConfigs(corpus / "config");
    if (wanted("model_name")) writeModelNames(corpus / "model_name");
    if (wanted("string_utils")) writeTexts(corpus / "string_utils");
    if (wanted("network")) writeNetworkSeeds(corpus / "network", vqfe_fuzz::kSlots, vqfe_fuzz::kSlotCount, false);
    if (wanted("named_network")) {
        writeNetworkSeeds(corpus / "named_network", vqfe_fuzz::kNamedSlots, vqfe_fuzz::kNamedSlotCount, true);
    }
    return 0;
}

#include "tools/vqfe/library_cli.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>

#include "cache/store_index.h"
#include "encoding/display_names.h"
#include "encoding/message_json.h"
#include "library/duplicates.h"
#include "library/photo_library.h"
#include "tools/vqfe/counted.h"
#include "tools/vqfe/report.h"
#include "tools/vqfe/usage.h"

namespace vqfe {
namespace {

const char* const kPeopleUsage =
    "usage: vqfe people --store FILE|URI [--json]\n"
    "       vqfe people --store FILE|URI name ID NAME\n"
    "       vqfe people --store FILE|URI merge ID ID\n"
    "\n"
    "Without an action: puts every face of the store not yet in a person into one (an\n"
    "existing person, or a new one) and prints the persons, the largest first. Faces go\n"
    "together by average linkage of their descriptors at the calibrated same-person\n"
    "similarity. Persons keep their ids across runs.\n"
    "  name ID NAME   names the person ID (an id or a name)\n"
    "  merge ID ID    moves the faces of the second person into the first\n"
    "  --json         one object per person and line:\n"
    "                 {\"person\": ID, \"name\": NAME or null, \"faces\": [{\"image\": PATH, \"box\": [x, y, w, h]}, ...]}\n"
    "                 (the box normalised to the image, y from the top)\n"
    "\n"
    "Exit status: 0 done, 1 the store failed, 2 a usage error or an unknown person.\n";

// The hash limits come from the grouping's own constants.
std::string duplicatesUsage() {
    return "usage: vqfe duplicates --store FILE|URI [--similar] [--json]\n"
           "\n"
           "Prints groups of the same photo (resized, recompressed, lightly cropped or brightened\n"
           "copies): at most " + std::to_string(kSamePhoto.hashBits) +
           " of the 64 perceptual-hash bits differ and the aspect ratios agree.\n"
           "Every two photos of a group pass (no chains of neighbours). One group per paragraph,\n"
           "one path per line.\n"
           "  --similar   also the same scene a little zoomed, panned or cropped: up to " +
           std::to_string(kSimilarPhoto.hashBits) + " bits,\n"
           "              any aspect, unless the classes seen contradict (needs --kind\n"
           "              classification); other shots of a scene mostly differ by more and are\n"
           "              not found, as the hash cannot tell them from unrelated photos\n"
           "  --json      one JSON array of paths per group and line\n";
}

const char* const kSearchUsage =
    "usage: vqfe search --store FILE|URI [--label NAME]... [--min-score S] [--person ID|NAME]\n"
    "                   [--min-faces N]\n"
    "\n"
    "Prints the images that match every condition, one path per line, best first (the\n"
    "higher the labels' scores and the more faces of the person, the earlier). Photos of\n"
    "equal score follow by their faces, then path, and a note on standard error says how\n"
    "many tie: among photos of one score the order is no ranking (a scene label's score\n"
    "stops at 0.85, which only the strongest evidence reaches).\n"
    "  --label NAME      a scene label or class over its threshold, by its name in the\n"
    "                    results or its display name, in any case (\"people\", \"sunset\",\n"
    "                    \"cat\", \"one person\"); with none found, the store's labels are listed\n"
    "  --min-score S     a label counts from score S on (0 to 1; default 0.3, the score from\n"
    "                    which the summary, the pictures and the report show a label)\n"
    "  --person ID|NAME  a person of 'vqfe people'\n"
    "  --min-faces N     at least N faces\n";

const char* const kReindexUsage =
    "usage: vqfe reindex --store FILE|URI [IMAGE|DIR...]\n"
    "\n"
    "Builds the store's index from its stored results (a store written before the index\n"
    "existed needs this once); the results themselves are only read. The images given are\n"
    "matched to their results by content, which records their paths and sizes.\n";

const char* const kReportUsage =
    "usage: vqfe report --store FILE|URI --out DIR [--pictures DIR]\n"
    "\n"
    "Writes a static HTML report into DIR (index.html): a page per person with face\n"
    "thumbnails, groups of copies and of similar photos side by side, labels with their\n"
    "counts and photos (best score first), and a page per photo with its results, copies\n"
    "and similar photos. Photos go by their file names, with the folders that tell two\n"
    "files of one name apart. It needs no server and loads nothing from outside DIR. DIR\n"
    "must be new, empty or an earlier report.\n"
    "  --pictures DIR   annotated pictures of 'vqfe extract --draw DIR', shown on photo pages\n";

std::string boxJson(const std::array<float, 4>& box) {
    char text[96];
    std::snprintf(text, sizeof text, "[%.4f, %.4f, %.4f, %.4f]", box[0], box[1], box[2], box[3]);
    return text;
}

// Why a store gives no persons: faces found, but no descriptors to compare them by.
void explainNoPeople(PhotoLibrary& library) {
    const VQFeature::IndexSnapshot snapshot = library.index().snapshot(false);
    if (!snapshot.faces.empty()) return;
    size_t faces = 0, photos = 0;
    for (const auto& image : snapshot.images) {
        if (image.faces > 0) faces += static_cast<size_t>(image.faces), ++photos;
    }
    std::cerr << "vqfe people: no face descriptors in the store"
              << (faces ? " (it has " + counted(faces, "face", "faces") + " in " + counted(photos, "photo", "photos") + ")" : "")
              << "; persons come from the face-verify kind: vqfe extract --kind face-verify --store "
              << library.store() << " PHOTOS\n";
}

void printPeople(const std::vector<Person>& people, bool json) {
    for (const Person& person : people) {
        if (json) {
            std::string line = "{\"person\": " + std::to_string(person.id) +
                               ", \"name\": " + (person.name.empty() ? "null" : VQFeature::jsonQuoted(person.name)) +
                               ", \"faces\": [";
            for (size_t i = 0; i < person.faces.size(); ++i) {
                line += std::string(i ? ", " : "") + "{\"image\": " + VQFeature::jsonQuoted(person.faces[i].image) +
                        ", \"box\": " + boxJson(person.faces[i].box) + "}";
            }
            std::cout << line << "]}\n";
            continue;
        }
        std::cout << "person " << person.id << (person.name.empty() ? "" : " (" + person.name + ")") << ": "
                  << counted(person.faces.size(), "face", "faces") << "\n";
        for (const PersonFace& face : person.faces) std::cout << "  " << face.image << "\n";
    }
}

int peopleCommand(PhotoLibrary& library, const std::vector<std::string>& words, bool json) {
    if (words.empty()) {
        const PeopleUpdate update = library.updatePeople();
        std::cerr << "vqfe people: " << counted(update.newFaces, "new face", "new faces") << ": " << update.joined
                  << " joined known persons, " << counted(update.newPersons, "new person", "new persons") << "\n";
        const std::vector<Person> people = library.people();
        if (people.empty()) explainNoPeople(library);
        printPeople(people, json);
        return 0;
    }
    if (words[0] == "name" && words.size() == 3) {
        const long long id = library.person(words[1]);
        library.name(id, words[2]);
        std::cerr << "vqfe people: person " << id << " is " << words[2] << "\n";
        return 0;
    }
    if (words[0] == "merge" && words.size() == 3) {
        const long long into = library.person(words[1]);
        const long long from = library.person(words[2]);
        library.merge(into, from);
        std::cerr << "vqfe people: person " << from << " merged into person " << into << "\n";
        return 0;
    }
    return usageError("people takes 'name ID NAME' or 'merge ID ID'", kPeopleUsage);
}

bool isPeopleAction(const std::vector<std::string>& words) {
    return words.empty() || ((words[0] == "name" || words[0] == "merge") && words.size() == 3);
}

int duplicatesCommand(PhotoLibrary& library, bool similar, bool json) {
    bool first = true;
    const auto images = library.index().snapshot(false).images;
    const auto groups = PhotoLibrary::duplicates(similar, images);
    const size_t withoutSignature = std::count_if(images.begin(), images.end(),
        [](const VQFeature::IndexedImage& image) { return image.hash && image.signature.empty(); });
    if (similar && withoutSignature > 0) {
        std::cerr << "vqfe duplicates: " << counted(withoutSignature, "photo has", "photos have")
                  << " no class signature, so --similar finds only copies of "
                  << (withoutSignature == 1 ? "it" : "them")
                  << "; signatures come from the classification kind: vqfe extract --kind classification --store "
                  << library.store() << " PHOTOS\n";
    }
    if (groups.empty()) {
        if (std::none_of(images.begin(), images.end(), [](const VQFeature::IndexedImage& image) { return image.hash.has_value(); })) {
            std::cerr << "vqfe duplicates: no photo of the store has a perceptual hash, so only identical files are"
                         " found; the similarity kind gives it: vqfe extract --kind similarity --kind classification"
                         " --store "
                      << library.store() << " PHOTOS\n";
        } else {
            std::cerr << "vqfe duplicates: no copies found\n";
        }
    }
    for (const auto& group : groups) {
        if (json) {
            std::string line = "[";
            for (size_t i = 0; i < group.size(); ++i) line += (i ? ", " : "") + VQFeature::jsonQuoted(group[i]);
            std::cout << line << "]\n";
            continue;
        }
        if (!first) std::cout << "\n";
        first = false;
        for (const auto& path : group) std::cout << path << "\n";
    }
    return 0;
}

// The store's labels by display name, with the photos that have them from minScore on,
// the most common first: "sky (14), snow (1)". One query for the stored names; a display
// name that several stored names share is counted by a search, so a photo with both
// counts once.
std::string storeLabels(PhotoLibrary& library, float minScore) {
    std::map<std::string, std::vector<VQFeature::LabelCount>> byDisplay;
    for (auto& count : library.index().labelCounts(minScore)) {
        byDisplay[VQFeature::displayName(count.name)].push_back(std::move(count));
    }
    std::vector<std::pair<long long, std::string>> counts;
    for (const auto& [name, stored] : byDisplay) {
        const long long photos = stored.size() == 1 ? stored[0].photos
                                                    : static_cast<long long>(library.search({name}, 0, 0, minScore).size());
        counts.emplace_back(photos, name);
    }
    std::stable_sort(counts.begin(), counts.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    constexpr size_t kListed = 30;
    std::string text;
    for (size_t i = 0; i < counts.size() && i < kListed; ++i) {
        text += (i ? ", " : "") + counts[i].second + " (" + std::to_string(counts[i].first) + ")";
    }
    if (counts.size() > kListed) text += ", and " + std::to_string(counts.size() - kListed) + " more";
    return text.empty() ? "none" : text;
}

// Says why a search found nothing: a label no analysis gives and the store does not hold
// (in any case) is a usage error (status 2); otherwise no photo matches (status 0), and
// when photos have the labels under the score floor, it says how to list them. Where a
// label alone finds no photo, the labels the store has are listed.
int explainNoMatch(PhotoLibrary& library, const std::vector<std::string>& labels, long long person, int minFaces,
                   float minScore) {
    for (const auto& label : labels) {
        if (isKnownLabel(label) || !library.search({label}, 0, 0, 0).empty()) continue;
        std::cerr << "vqfe search: unknown label '" << label << "': give a scene label (sky, sunset, people, ...) or"
                     " a class (cat, one person, ...) by its name in the results or its display name; the store has "
                  << storeLabels(library, minScore) << "\n";
        return 2;
    }
    const auto missing = std::find_if(labels.begin(), labels.end(),
                                      [&](const std::string& label) { return library.search({label}, 0, 0, minScore).empty(); });
    const size_t under = minScore > 0 && !labels.empty() ? library.search(labels, person, minFaces, 0).size() : 0;
    char floor[16];
    std::snprintf(floor, sizeof floor, "%.2f", minScore);
    if (under > 0) {
        std::cerr << "vqfe search: no photo matches (" << under << " with the labels scored under " << floor
                  << ": --min-score 0 lists them)\n";
    } else if (missing != labels.end()) {
        std::cerr << "vqfe search: no photo has the label '" << *missing << "' (from score " << floor
                  << "); the store has " << storeLabels(library, minScore) << "\n";
    } else {
        std::cerr << "vqfe search: no photo matches\n";
    }
    return 0;
}

// Says which of the photos found tie on their labels' score: their order is no ranking.
void noteTies(const std::vector<VQFeature::SearchHit>& found, const std::vector<std::string>& labels) {
    if (labels.empty() || found.size() < 2) return;
    std::string ties;
    for (const ScoreTie& tie : scoreTies(found)) {
        char text[64];
        std::snprintf(text, sizeof text, "%s%zu at %.2f", ties.empty() ? "" : ", ", tie.photos, tie.score);
        ties += text;
    }
    if (ties.empty()) return;
    std::cerr << "vqfe search: photos of equal score (" << ties << ") follow by faces, then path: that order is no ranking\n";
}

}  // namespace

bool isLibraryCommand(const std::string& command) {
    return command == "people" || command == "duplicates" || command == "search" || command == "reindex" ||
           command == "report";
}

int libraryCommand(const std::string& command, const std::vector<std::string>& args) {
    const std::string usage = command == "people"       ? kPeopleUsage
                              : command == "duplicates" ? duplicatesUsage()
                              : command == "search"     ? kSearchUsage
                              : command == "reindex"    ? kReindexUsage
                                                        : kReportUsage;
    std::string store, person, out, pictures;
    std::vector<std::string> labels, words;
    bool json = false, similar = false;
    int minFaces = 0;
    float minScore = VQFeature::kShownConfidence;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") return std::cout << usage, 0;
        const bool hasValue = i + 1 < args.size();
        if (arg == "--store") {
            if (!hasValue) return usageError("--store needs a file or URI", usage);
            store = args[++i];
        } else if (command == "people" && arg == "--json") {
            json = true;
        } else if (command == "duplicates" && (arg == "--json" || arg == "--similar")) {
            (arg == "--json" ? json : similar) = true;
        } else if (command == "search" && arg == "--label") {
            if (!hasValue) return usageError("--label needs a name", usage);
            labels.push_back(args[++i]);
        } else if (command == "search" && arg == "--person") {
            if (!hasValue) return usageError("--person needs an id or a name", usage);
            person = args[++i];
        } else if (command == "search" && arg == "--min-faces") {
            char* end = nullptr;
            const long value = hasValue ? std::strtol(args[i + 1].c_str(), &end, 10) : -1;
            if (!hasValue || *end != '\0' || value < 0 || value > 10000) {
                return usageError("--min-faces takes 0 to 10000", usage);
            }
            minFaces = static_cast<int>(value);
            ++i;
        } else if (command == "search" && arg == "--min-score") {
            char* end = nullptr;
            const float value = hasValue ? std::strtof(args[i + 1].c_str(), &end) : -1;
            if (!hasValue || end == args[i + 1].c_str() || *end != '\0' || !(value >= 0 && value <= 1)) {
                return usageError("--min-score takes 0 to 1", usage);
            }
            minScore = value;
            ++i;
        } else if (command == "report" && (arg == "--out" || arg == "--pictures")) {
            if (!hasValue) return usageError(arg + " needs a directory", usage);
            (arg == "--out" ? out : pictures) = args[++i];
        } else if (!arg.empty() && arg[0] == '-') {
            return usageError("unknown option " + arg, usage);
        } else if (command == "people" || command == "reindex") {
            words.push_back(arg);
        } else {
            return usageError("unexpected argument " + arg, usage);
        }
    }
    if (store.empty()) return usageError("--store is needed", usage);
    if (command == "people" && !isPeopleAction(words)) {
        return usageError("people takes 'name ID NAME' or 'merge ID ID'", usage);
    }
    if (command == "report" && out.empty()) return usageError("--out is needed", usage);
    try {
        PhotoLibrary library(store, command == "reindex");
        if (command == "reindex") {
            std::vector<std::string> problems;
            const long long images = library.reindex(words, &problems);
            for (const auto& problem : problems) std::cerr << "vqfe reindex: " << problem << "\n";
            std::cout << "indexed: " << images << " images\n";
            return 0;
        }
        if (command == "people") return peopleCommand(library, words, json);
        if (command == "duplicates") return duplicatesCommand(library, similar, json);
        if (command == "report") {
            const std::string index = writeReport(library, out, pictures);
            std::cerr << "vqfe report: " << index << "\n";
            return 0;
        }
        const long long id = person.empty() ? 0 : library.person(person);
        const auto found = library.searchHits(labels, id, minFaces, minScore);
        for (const auto& hit : found) std::cout << hit.path << "\n";
        if (found.empty()) return explainNoMatch(library, labels, id, minFaces, minScore);
        std::cout.flush();
        noteTies(found, labels);
        return 0;
    } catch (const VQFeature::UnknownPerson& e) {
        std::cerr << "vqfe " << command << ": " << e.what() << "\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "vqfe " << command << ": " << e.what() << "\n";
        return 1;
    }
}

}  // namespace vqfe

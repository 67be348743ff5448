// Fuzz target: the text helpers the binding offers to Java, strContains, split and join,
// with arbitrary texts. Checked on every input: below 256 bytes strContains agrees with
// a plain substring search (its 8-bit counters make it exact only there) and otherwise
// answers -1, 0 or 1 without hanging; split gives non-empty pieces free of separators
// that hold every other byte in order; joining those pieces with a separator and
// splitting again gives them back.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "jni/string_utils.h"

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "string helpers: %s\n", what);
    std::abort();
}

int expectedContains(const std::string& a, const std::string& b) {
    if (a.size() < b.size()) return -1;
    if (b.empty()) return 0;
    return a.find(b) != std::string::npos ? 1 : 0;
}

void checkContains(FuzzedDataProvider& in) {
    const std::string a = in.ConsumeRandomLengthString(1024);
    const std::string b = in.ConsumeRandomLengthString(512);
    const bool nullA = in.ConsumeBool(), nullB = in.ConsumeBool();
    // The helper sees C texts: they end at the first NUL, and null counts as empty.
    const std::string textA = nullA ? "" : std::string(a.c_str()), textB = nullB ? "" : std::string(b.c_str());
    const int got = VQFeature::strContains(nullA ? nullptr : a.c_str(), nullB ? nullptr : b.c_str());
    if (textA.size() < 256 ? got != expectedContains(textA, textB)
                           : got < -1 || got > 1 || (got == -1) != (textA.size() < textB.size())) {
        fail("strContains disagrees with a substring search");
    }
}

void checkSplitJoin(FuzzedDataProvider& in) {
    const std::string separators = in.ConsumeRandomLengthString(8);
    const std::string text = in.ConsumeRemainingBytesAsString();
    const std::vector<std::string> pieces = VQFeature::split(text, separators);
    std::string kept;
    for (char c : text) {
        if (separators.find(c) == std::string::npos) kept += c;
    }
    // Only the first piece may be empty: when the text starts with a separator.
    const bool leadingEmpty = !text.empty() && separators.find(text[0]) != std::string::npos;
    if (leadingEmpty != (!pieces.empty() && pieces[0].empty())) fail("split mishandled a leading separator");
    std::string joined;
    for (size_t i = leadingEmpty ? 1 : 0; i < pieces.size(); ++i) {
        const std::string& piece = pieces[i];
        if (piece.empty() || piece.find_first_of(separators) != std::string::npos) fail("split gave an empty or cut piece");
        joined += piece;
    }
    if (joined != kept) fail("split lost or reordered bytes");
    if (separators.empty()) return;
    const std::string glue = separators.substr(0, 1 + separators.size() / 2);
    // join drops a leading empty piece, so the round trip starts from the non-empty ones.
    const std::vector<std::string> nonEmpty(pieces.begin() + (leadingEmpty ? 1 : 0), pieces.end());
    if (VQFeature::split(VQFeature::join(pieces, glue), separators) != nonEmpty) fail("join then split is not the identity");
    (void)VQFeature::join(pieces);  // the default separator
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    if (in.ConsumeBool()) {
        checkContains(in);
    } else {
        checkSplitJoin(in);
    }
    return 0;
}

#include "model/cascade_check.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include "model/error.h"

namespace kv {

namespace {

constexpr int kMaxDepth = 12;           // opencv_storage/cascade/stages/_/weakClassifiers/_/... is 7
constexpr int kMaxWindow = 1024;        // detection window side
constexpr size_t kMaxChildren = 1 << 20;

struct Fault {
    std::string why;
};

struct Element {
    std::string name;
    std::string text;  // leaves only
    std::vector<std::unique_ptr<Element>> children;

    const Element& child(const char* key) const {
        for (const auto& c : children) {
            if (c->name == key) return *c;
        }
        throw Fault{std::string("no <") + key + "> in <" + name + ">"};
    }
    const Element* find(const char* key) const {
        for (const auto& c : children) {
            if (c->name == key) return c.get();
        }
        return nullptr;
    }
};

// A strict XML subset: a declaration, comments, elements with attributes (ignored) and
// whitespace-separated plain text; no entities, CDATA, doctypes or mixed content.
class Parser {
public:
    Parser(const char* p, size_t n) : p_(p), end_(p + n) {}

    std::unique_ptr<Element> document() {
        skipMisc();
        if (startsWith("<?xml")) {
            skipPast("?>");
            skipMisc();
        }
        auto root = element(0);
        skipMisc();
        if (p_ != end_) throw Fault{"text after the root element"};
        return root;
    }

private:
    bool startsWith(const char* s) const {
        const size_t n = std::strlen(s);
        return size_t(end_ - p_) >= n && std::memcmp(p_, s, n) == 0;
    }
    void skipPast(const char* s) {
        const size_t n = std::strlen(s);
        for (; size_t(end_ - p_) >= n; ++p_) {
            if (std::memcmp(p_, s, n) == 0) {
                p_ += n;
                return;
            }
        }
        throw Fault{std::string("no closing ") + s};
    }
    static bool space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    static bool nameChar(char c, bool first) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || (!first && ((c >= '0' && c <= '9') || c == '-' || c == '.'));
    }
    void skipMisc() {  // whitespace and comments
        for (;;) {
            while (p_ != end_ && space(*p_)) ++p_;
            if (!startsWith("<!--")) return;
            p_ += 4;
            skipPast("-->");
        }
    }
    std::string name() {
        const char* start = p_;
        while (p_ != end_ && nameChar(*p_, p_ == start)) ++p_;
        if (p_ == start) throw Fault{"an element without a valid name"};
        return std::string(start, p_);
    }
    void expect(char c) {
        if (p_ == end_ || *p_ != c) throw Fault{std::string("expected '") + c + "'"};
        ++p_;
    }
    void attributes() {
        for (;;) {
            while (p_ != end_ && space(*p_)) ++p_;
            if (p_ == end_ || *p_ == '>' || *p_ == '/') return;
            name();
            expect('=');
            expect('"');
            while (p_ != end_ && *p_ != '"' && *p_ != '<' && *p_ != '&') ++p_;
            expect('"');
        }
    }
    std::unique_ptr<Element> element(int depth) {
        if (depth > kMaxDepth) throw Fault{"elements nested too deep"};
        expect('<');
        auto e = std::make_unique<Element>();
        e->name = name();
        attributes();
        if (startsWith("/>")) {
            p_ += 2;
            return e;
        }
        expect('>');
        for (;;) {
            const char* start = p_;
            while (p_ != end_ && *p_ != '<') {
                const unsigned char c = static_cast<unsigned char>(*p_);
                if (c == '&' || c == '>' || (c < 0x20 && !space(char(c))) || c >= 0x7f) throw Fault{"unexpected character in text"};
                ++p_;
            }
            for (const char* q = start; q != p_; ++q) {
                if (!space(*q)) {
                    if (!e->children.empty()) throw Fault{"text mixed with elements"};
                    e->text.append(start, p_);
                    break;
                }
            }
            if (p_ == end_) throw Fault{"<" + e->name + "> is not closed"};
            if (startsWith("<!--")) {
                p_ += 4;
                skipPast("-->");
            } else if (startsWith("</")) {
                p_ += 2;
                if (name() != e->name) throw Fault{"<" + e->name + "> closed by another element"};
                while (p_ != end_ && space(*p_)) ++p_;
                expect('>');
                return e;
            } else {
                if (!e->text.empty()) throw Fault{"text mixed with elements"};
                if (e->children.size() >= kMaxChildren) throw Fault{"too many elements"};
                e->children.push_back(element(depth + 1));
            }
        }
    }

    const char* p_;
    const char* end_;
};

// Decimal numbers only: strtod would also take hex, "inf" and "nan", which OpenCV reads otherwise.
bool numberSyntax(const std::string& token) {
    return token.find_first_not_of("0123456789+-.eE") == std::string::npos && token.find_first_of("0123456789") != std::string::npos;
}

std::vector<double> numbers(const Element& e) {
    if (!e.children.empty()) throw Fault{"<" + e.name + "> holds elements, not numbers"};
    std::vector<double> out;
    std::istringstream in(e.text);
    std::string token;
    while (in >> token) {
        if (!numberSyntax(token)) throw Fault{"\"" + token + "\" in <" + e.name + "> is not a number"};
        errno = 0;
        char* end = nullptr;
        const double v = std::strtod(token.c_str(), &end);
        if (*end != '\0' || errno == ERANGE || !std::isfinite(v)) throw Fault{"\"" + token + "\" in <" + e.name + "> is not a number"};
        out.push_back(v);
    }
    return out;
}

double number(const Element& e) {
    const auto v = numbers(e);
    if (v.size() != 1) throw Fault{"<" + e.name + "> is not one number"};
    return v[0];
}

// An integer in [lo, hi].
int integer(double v, int lo, int hi, const std::string& what) {
    if (!(v >= lo && v <= hi) || v != std::floor(v)) throw Fault{what + " out of range"};
    return int(v);
}

int integer(const Element& e, int lo, int hi) { return integer(number(e), lo, hi, "<" + e.name + ">"); }

std::string word(const Element& e) {
    std::istringstream in(e.text);
    std::string w, extra;
    in >> w;
    if (!e.children.empty() || (in >> extra)) throw Fault{"<" + e.name + "> is not one word"};
    return w;
}

void checkCascade(const Element& root) {
    if (root.name != "opencv_storage" || root.children.size() != 1) throw Fault{"not one cascade in <opencv_storage>"};
    const Element& c = *root.children[0];
    if (word(c.child("stageType")) != "BOOST") throw Fault{"not a boosted cascade"};
    const std::string type = word(c.child("featureType"));
    if (type != "HAAR" && type != "LBP") throw Fault{"features neither HAAR nor LBP"};
    const bool lbp = type == "LBP";
    const int height = integer(c.child("height"), 1, kMaxWindow), width = integer(c.child("width"), 1, kMaxWindow);
    const Element* cats = c.child("featureParams").find("maxCatCount");
    // LBP codes are 0..255: each node's subset is eight 32-bit words.
    if ((cats != nullptr ? integer(*cats, 0, 256) : 0) != (lbp ? 256 : 0)) throw Fault{"a category count that does not fit the features"};
    const size_t nodeStep = lbp ? 3 + 8 : 4;

    const Element& features = c.child("features");
    const int featureCount = int(features.children.size());
    if (featureCount == 0) throw Fault{"no features"};
    for (const auto& f : features.children) {
        if (lbp) {
            const auto r = numbers(f->child("rect"));
            if (r.size() != 4) throw Fault{"an LBP rectangle without four numbers"};
            const int x = integer(r[0], 0, width, "x"), y = integer(r[1], 0, height, "y");
            const int w = integer(r[2], 1, width, "w"), h = integer(r[3], 1, height, "h");
            if (x + 3 * w > width || y + 3 * h > height) throw Fault{"an LBP feature outside the window"};
            continue;
        }
        const Element* tilted = f->find("tilted");
        const bool tilt = tilted != nullptr && integer(*tilted, 0, 1) == 1;
        const Element& rects = f->child("rects");
        if (rects.children.empty() || rects.children.size() > 3) throw Fault{"a HAAR feature without one to three rectangles"};
        for (const auto& rect : rects.children) {
            const auto r = numbers(*rect);
            if (r.size() != 5) throw Fault{"a HAAR rectangle without five numbers"};
            const int x = integer(r[0], 0, width, "x"), y = integer(r[1], 0, height, "y");
            const int w = integer(r[2], 1, width, "w"), h = integer(r[3], 1, height, "h");
            // A tilted rectangle runs down-right by w and down-left by h from (x, y).
            const bool inside = tilt ? x + w <= width && x - h >= 0 && y + w + h <= height : x + w <= width && y + h <= height;
            if (!inside) throw Fault{"a HAAR rectangle outside the window"};
        }
    }

    const Element& stages = c.child("stages");
    if (stages.children.empty() || integer(c.child("stageNum"), 1, 1 << 16) != int(stages.children.size())) {
        throw Fault{"a stage count that does not match the stages"};
    }
    for (const auto& stage : stages.children) {
        number(stage->child("stageThreshold"));
        const Element& weak = stage->child("weakClassifiers");
        if (weak.children.empty() || integer(stage->child("maxWeakCount"), 1, 1 << 16) != int(weak.children.size())) {
            throw Fault{"a weak classifier count that does not match the classifiers"};
        }
        for (const auto& tree : weak.children) {
            const auto nodes = numbers(tree->child("internalNodes"));
            const auto leaves = numbers(tree->child("leafValues"));
            const size_t count = nodes.size() / nodeStep;
            // Detection walks count nodes and count + 1 leaves per tree (two per stump).
            if (count == 0 || nodes.size() % nodeStep != 0 || leaves.size() != count + 1) throw Fault{"a tree whose nodes and leaves disagree"};
            for (size_t i = 0; i < count; ++i) {
                const double* n = &nodes[i * nodeStep];
                for (int side = 0; side < 2; ++side) {
                    // A child is a later node (> 0, so every walk ends) or leaf -child (<= 0).
                    const int next = integer(n[side], -int(count), int(count) - 1, "a tree child");
                    if (next > 0 && next <= int(i)) throw Fault{"a tree that loops"};
                }
                integer(n[2], 0, featureCount - 1, "a feature index");
                if (lbp) {
                    for (int k = 3; k < 11; ++k) integer(n[k], -2147483647 - 1, 2147483647, "a subset word");
                }
            }
        }
    }
}

// Numbers are written as read here (so OpenCV sees the values that were checked), words as
// they stand; any other token is refused.
void write(const Element& e, std::string& out) {
    out += "<" + e.name + ">";
    if (e.children.empty()) {
        std::istringstream in(e.text);
        std::string token;
        for (bool first = true; in >> token; first = false) {
            if (!first) out += ' ';
            if (numberSyntax(token)) {
                char number[32];
                std::snprintf(number, sizeof number, "%.17g", numbers(Element{e.name, token, {}})[0]);
                out += number;
            } else if (token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_") == std::string::npos) {
                out += token;
            } else {
                throw Fault{"\"" + token + "\" in <" + e.name + "> is neither a number nor a word"};
            }
        }
    } else {
        out += "\n";
        for (const auto& c : e.children) write(*c, out);
    }
    out += "</" + e.name + ">\n";
}

}  // namespace

std::string checkedCascadeText(const uint8_t* data, size_t size) {
    try {
        if (data == nullptr || size == 0) throw Fault{"no bytes"};
        const auto root = Parser(reinterpret_cast<const char*>(data), size).document();
        checkCascade(*root);
        std::string out = "<?xml version=\"1.0\"?>\n";
        write(*root, out);
        return out;
    } catch (const Fault& f) {
        throw Error(Vantor::INVALID_MODEL, f.why);
    }
}

}  // namespace kv

#include "graph/json.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "model/error.h"

namespace kv {

const JsonValue* JsonValue::find(const std::string& key) const {
    for (const auto& m : members) {
        if (m.first == key) return &m.second;
    }
    return nullptr;
}

namespace {

class Parser {
public:
    Parser(const char* text, size_t length) : p_(text), begin_(text), end_(text + length) {}

    bool parseDocument(JsonValue& out, std::string& error) {
        bool ok = parseValue(out, 0);
        if (ok) {
            skipSpace();
            if (p_ != end_) ok = fail("unexpected text after the value");
        }
        if (!ok) error = error_ + " at offset " + std::to_string(errorAt_ - begin_);
        return ok;
    }

private:
    bool fail(const char* what) {
        if (error_.empty()) {
            error_ = what;
            errorAt_ = p_;
        }
        return false;
    }

    void skipSpace() {
        while (p_ < end_ && (*p_ == ' ' || *p_ == '\t' || *p_ == '\n' || *p_ == '\r')) ++p_;
    }

    bool literal(const char* word) {
        const char* q = p_;
        for (; *word; ++word, ++q) {
            if (q >= end_ || *q != *word) return fail("invalid literal");
        }
        p_ = q;
        return true;
    }

    bool parseValue(JsonValue& out, size_t depth) {
        if (depth > kMaxJsonDepth) return fail("nesting too deep");
        if (++values_ > kMaxJsonValues) return fail("too many values");
        skipSpace();
        if (p_ >= end_) return fail("unexpected end of text");
        switch (*p_) {
            case '{': return parseObject(out, depth);
            case '[': return parseArray(out, depth);
            case '"': out.kind = JsonValue::Kind::String; return parseString(out.text);
            case 't': out.kind = JsonValue::Kind::Bool; out.boolean = true; return literal("true");
            case 'f': out.kind = JsonValue::Kind::Bool; out.boolean = false; return literal("false");
            case 'n': out.kind = JsonValue::Kind::Null; return literal("null");
            default: return parseNumber(out);
        }
    }

    bool parseObject(JsonValue& out, size_t depth) {
        out.kind = JsonValue::Kind::Object;
        ++p_;
        skipSpace();
        if (p_ < end_ && *p_ == '}') { ++p_; return true; }
        for (;;) {
            skipSpace();
            if (p_ >= end_ || *p_ != '"') return fail("expected a member name");
            std::string key;
            if (!parseString(key)) return false;
            skipSpace();
            if (p_ >= end_ || *p_ != ':') return fail("expected ':'");
            ++p_;
            out.members.emplace_back(std::move(key), JsonValue());
            if (!parseValue(out.members.back().second, depth + 1)) return false;
            skipSpace();
            if (p_ >= end_) return fail("unterminated object");
            if (*p_ == '}') { ++p_; return true; }
            if (*p_ != ',') return fail("expected ',' or '}'");
            ++p_;
            skipSpace();
            if (p_ < end_ && *p_ == '}') { ++p_; return true; }  // trailing comma
        }
    }

    bool parseArray(JsonValue& out, size_t depth) {
        out.kind = JsonValue::Kind::Array;
        ++p_;
        skipSpace();
        if (p_ < end_ && *p_ == ']') { ++p_; return true; }
        for (;;) {
            out.items.emplace_back();
            if (!parseValue(out.items.back(), depth + 1)) return false;
            skipSpace();
            if (p_ >= end_) return fail("unterminated array");
            if (*p_ == ']') { ++p_; return true; }
            if (*p_ != ',') return fail("expected ',' or ']'");
            ++p_;
            skipSpace();
            if (p_ < end_ && *p_ == ']') { ++p_; return true; }  // trailing comma
        }
    }

    static int hexDigit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }

    bool parseHex4(uint32_t& code) {
        if (end_ - p_ < 4) return fail("short \\u escape");
        code = 0;
        for (int i = 0; i < 4; ++i) {
            int d = hexDigit(p_[i]);
            if (d < 0) return fail("invalid \\u escape");
            code = code * 16 + static_cast<uint32_t>(d);
        }
        p_ += 4;
        return true;
    }

    static void appendUtf8(std::string& s, uint32_t c) {
        if (c < 0x80) {
            s += static_cast<char>(c);
        } else if (c < 0x800) {
            s += static_cast<char>(0xC0 | (c >> 6));
            s += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            s += static_cast<char>(0xE0 | (c >> 12));
            s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            s += static_cast<char>(0xF0 | (c >> 18));
            s += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (c & 0x3F));
        }
    }

    bool parseString(std::string& out) {
        ++p_;  // opening quote
        for (;;) {
            if (p_ >= end_) return fail("unterminated string");
            char c = *p_++;
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20) return fail("control character in string");
            if (c != '\\') { out += c; continue; }
            if (p_ >= end_) return fail("unterminated escape");
            char e = *p_++;
            switch (e) {
                case '"': out += '"'; break;
                case '\\': out += '\\'; break;
                case '/': out += '/'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': {
                    uint32_t code;
                    if (!parseHex4(code)) return false;
                    if (code >= 0xD800 && code < 0xDC00) {
                        uint32_t low;
                        if (end_ - p_ < 2 || p_[0] != '\\' || p_[1] != 'u') return fail("lone surrogate");
                        p_ += 2;
                        if (!parseHex4(low)) return false;
                        if (low < 0xDC00 || low > 0xDFFF) return fail("invalid surrogate pair");
                        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                    } else if (code >= 0xDC00 && code <= 0xDFFF) {
                        return fail("lone surrogate");
                    }
                    appendUtf8(out, code);
                    break;
                }
                default: return fail("invalid escape");
            }
        }
    }

    bool parseNumber(JsonValue& out) {
        const char* start = p_;
        bool negative = false;
        if (p_ < end_ && *p_ == '-') { negative = true; ++p_; }
        if (end_ - p_ >= 2 && p_[0] == '0' && (p_[1] == 'x' || p_[1] == 'X')) {
            p_ += 2;
            uint64_t value = 0;
            const char* digits = p_;
            int d;
            while (p_ < end_ && (d = hexDigit(*p_)) >= 0) {
                if (value > (UINT64_MAX >> 4)) return fail("hexadecimal number too large");
                value = value * 16 + static_cast<uint64_t>(d);
                ++p_;
            }
            if (p_ == digits) return fail("invalid hexadecimal number");
            uint64_t limit = negative ? uint64_t(INT64_MAX) + 1 : uint64_t(INT64_MAX);
            if (value > limit) return fail("hexadecimal number too large");
            out.kind = JsonValue::Kind::Int;
            out.integer = negative ? static_cast<int64_t>(0 - value) : static_cast<int64_t>(value);
            return true;
        }
        if (p_ >= end_ || *p_ < '0' || *p_ > '9') return fail("invalid value");
        if (*p_ == '0' && p_ + 1 < end_ && p_[1] >= '0' && p_[1] <= '9') return fail("leading zero");
        while (p_ < end_ && *p_ >= '0' && *p_ <= '9') ++p_;
        bool isFloat = false;
        if (p_ < end_ && *p_ == '.') {
            isFloat = true;
            ++p_;
            if (p_ >= end_ || *p_ < '0' || *p_ > '9') return fail("invalid fraction");
            while (p_ < end_ && *p_ >= '0' && *p_ <= '9') ++p_;
        }
        if (p_ < end_ && (*p_ == 'e' || *p_ == 'E')) {
            isFloat = true;
            ++p_;
            if (p_ < end_ && (*p_ == '+' || *p_ == '-')) ++p_;
            if (p_ >= end_ || *p_ < '0' || *p_ > '9') return fail("invalid exponent");
            while (p_ < end_ && *p_ >= '0' && *p_ <= '9') ++p_;
        }
        std::string token(start, p_);
        errno = 0;
        if (isFloat) {
            double v = std::strtod(token.c_str(), nullptr);
            if (errno == ERANGE || !std::isfinite(v)) { p_ = start; return fail("number out of range"); }
            out.kind = JsonValue::Kind::Float;
            out.real = v;
        } else {
            long long v = std::strtoll(token.c_str(), nullptr, 10);
            if (errno == ERANGE) { p_ = start; return fail("integer out of range"); }
            out.kind = JsonValue::Kind::Int;
            out.integer = v;
        }
        return true;
    }

    const char* p_;
    const char* begin_;
    const char* end_;
    size_t values_ = 0;
    std::string error_;
    const char* errorAt_ = nullptr;
};

}  // namespace

JsonValue parseJson(const char* text, size_t length, Vantor::VantorErrorCode code, const std::string& what) {
    if (text == nullptr) throw Error(code, what + ": no text");
    if (length > kMaxJsonBytes) throw Error(code, what + ": text too large");
    JsonValue out;
    std::string error;
    Parser parser(text, length);
    if (!parser.parseDocument(out, error)) throw Error(code, what + ": " + error);
    return out;
}

}  // namespace kv

#include "vantor/md5.h"

#include <cstdio>
#include <cstring>

namespace VQFeature {
namespace {

// Per-round shift amounts and sine-derived constants of RFC 1321.
constexpr uint32_t kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

const uint8_t kPadding[64] = {0x80};

inline uint32_t rotateLeft(uint32_t x, uint32_t n) { return (x << n) | (x >> (32 - n)); }

}  // namespace

MD5::MD5() { init(); }

MD5::MD5(const std::string& text) {
    init();
    update(text.c_str(), static_cast<unsigned int>(text.length()));
    finalize();
}

void MD5::init() {
    finalized = false;
    std::memset(buffer, 0, sizeof buffer);
    count[0] = count[1] = 0;
    state[0] = 0x67452301;
    state[1] = 0xefcdab89;
    state[2] = 0x98badcfe;
    state[3] = 0x10325476;
    std::memset(digest, 0, sizeof digest);
}

void MD5::decode(uint32_t output[], const uint8_t input[], unsigned len) {
    for (unsigned i = 0, j = 0; j < len; i++, j += 4) {
        output[i] = uint32_t(input[j]) | (uint32_t(input[j + 1]) << 8) | (uint32_t(input[j + 2]) << 16) |
                    (uint32_t(input[j + 3]) << 24);
    }
}

void MD5::encode(uint8_t output[], const uint32_t input[], unsigned len) {
    for (unsigned i = 0, j = 0; j < len; i++, j += 4) {
        output[j] = input[i] & 0xff;
        output[j + 1] = (input[i] >> 8) & 0xff;
        output[j + 2] = (input[i] >> 16) & 0xff;
        output[j + 3] = (input[i] >> 24) & 0xff;
    }
}

void MD5::transform(const uint8_t block[kBlockSize]) {
    uint32_t x[16];
    decode(x, block, kBlockSize);
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (uint32_t i = 0; i < 64; ++i) {
        uint32_t f, g;
        const uint32_t round = i / 16;
        switch (round) {
            case 0: f = (b & c) | (~b & d); g = i; break;
            case 1: f = (d & b) | (~d & c); g = (5 * i + 1) % 16; break;
            case 2: f = b ^ c ^ d; g = (3 * i + 5) % 16; break;
            default: f = c ^ (b | ~d); g = (7 * i) % 16; break;
        }
        const uint32_t rotated = rotateLeft(a + f + kSine[i] + x[g], kShift[round][i % 4]);
        a = d;
        d = c;
        c = b;
        b = b + rotated;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    std::memset(x, 0, sizeof x);
}

void MD5::update(const unsigned char* input, unsigned int length) {
    unsigned index = count[0] / 8 % kBlockSize;
    // Bit count as a 64-bit value split in two words.
    if ((count[0] += (length << 3)) < (length << 3)) count[1]++;
    count[1] += (length >> 29);

    const unsigned firstPart = kBlockSize - index;
    unsigned i = 0;
    if (length >= firstPart) {
        std::memcpy(&buffer[index], input, firstPart);
        transform(buffer);
        for (i = firstPart; i + kBlockSize <= length; i += kBlockSize) transform(&input[i]);
        index = 0;
    }
    std::memcpy(&buffer[index], &input[i], length - i);
}

void MD5::update(const char* input, unsigned int length) {
    update(reinterpret_cast<const unsigned char*>(input), length);
}

MD5& MD5::finalize() {
    if (finalized) return *this;
    uint8_t bits[8];
    encode(bits, count, 8);
    const unsigned index = count[0] / 8 % 64;
    const unsigned padLen = (index < 56) ? (56 - index) : (120 - index);
    update(kPadding, padLen);
    update(bits, 8);
    encode(digest, state, 16);
    std::memset(buffer, 0, sizeof buffer);
    std::memset(count, 0, sizeof count);
    finalized = true;
    return *this;
}

std::string MD5::hexdigest() const {
    if (!finalized) return "";
    char hex[33];
    for (int i = 0; i < 16; i++) std::snprintf(hex + i * 2, 3, "%02x", digest[i]);
    return std::string(hex, 32);
}

std::ostream& operator<<(std::ostream& out, MD5 md5) { return out << md5.hexdigest(); }

std::string md5(std::string text) { return MD5(text).hexdigest(); }

}  // namespace VQFeature

#include "vantor/md5.h"

#include <cstring>

namespace VQFeature {
namespace {

// The four auxiliary functions of RFC 1321, in forms with fewer operations on the
// critical path (equal bit for bit to the textbook ones).
inline uint32_t F(uint32_t x, uint32_t y, uint32_t z) { return z ^ (x & (y ^ z)); }
inline uint32_t G(uint32_t x, uint32_t y, uint32_t z) { return y ^ (z & (x ^ y)); }
inline uint32_t H(uint32_t x, uint32_t y, uint32_t z) { return x ^ y ^ z; }
inline uint32_t I(uint32_t x, uint32_t y, uint32_t z) { return y ^ (x | ~z); }

inline uint32_t rotateLeft(uint32_t x, uint32_t n) { return (x << n) | (x >> (32 - n)); }

// One step: a = b + ((a + f(b, c, d) + word + constant) <<< s). The sum is formed
// with b's term last: b is the value computed by the step before.
template <uint32_t (*f)(uint32_t, uint32_t, uint32_t)>
inline void step(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, uint32_t constant, uint32_t s) {
    a = b + rotateLeft((a + word + constant) + f(b, c, d), s);
}

// G's two halves never share a bit, so they can be added one by one, the half that
// does not depend on b first.
template <>
inline void step<G>(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, uint32_t constant, uint32_t s) {
    a = b + rotateLeft((a + word + constant + (c & ~d)) + (b & d), s);
}

const uint8_t kPadding[64] = {0x80};

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
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) {
        std::memcpy(output, input, len);
        return;
    }
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
    // The 64 steps written out, so that a, b, c, d stay in registers.
    uint32_t x[16];
    decode(x, block, kBlockSize);
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    step<F>(a, b, c, d, x[0], 0xd76aa478, 7);
    step<F>(d, a, b, c, x[1], 0xe8c7b756, 12);
    step<F>(c, d, a, b, x[2], 0x242070db, 17);
    step<F>(b, c, d, a, x[3], 0xc1bdceee, 22);
    step<F>(a, b, c, d, x[4], 0xf57c0faf, 7);
    step<F>(d, a, b, c, x[5], 0x4787c62a, 12);
    step<F>(c, d, a, b, x[6], 0xa8304613, 17);
    step<F>(b, c, d, a, x[7], 0xfd469501, 22);
    step<F>(a, b, c, d, x[8], 0x698098d8, 7);
    step<F>(d, a, b, c, x[9], 0x8b44f7af, 12);
    step<F>(c, d, a, b, x[10], 0xffff5bb1, 17);
    step<F>(b, c, d, a, x[11], 0x895cd7be, 22);
    step<F>(a, b, c, d, x[12], 0x6b901122, 7);
    step<F>(d, a, b, c, x[13], 0xfd987193, 12);
    step<F>(c, d, a, b, x[14], 0xa679438e, 17);
    step<F>(b, c, d, a, x[15], 0x49b40821, 22);
    step<G>(a, b, c, d, x[1], 0xf61e2562, 5);
    step<G>(d, a, b, c, x[6], 0xc040b340, 9);
    step<G>(c, d, a, b, x[11], 0x265e5a51, 14);
    step<G>(b, c, d, a, x[0], 0xe9b6c7aa, 20);
    step<G>(a, b, c, d, x[5], 0xd62f105d, 5);
    step<G>(d, a, b, c, x[10], 0x02441453, 9);
    step<G>(c, d, a, b, x[15], 0xd8a1e681, 14);
    step<G>(b, c, d, a, x[4], 0xe7d3fbc8, 20);
    step<G>(a, b, c, d, x[9], 0x21e1cde6, 5);
    step<G>(d, a, b, c, x[14], 0xc33707d6, 9);
    step<G>(c, d, a, b, x[3], 0xf4d50d87, 14);
    step<G>(b, c, d, a, x[8], 0x455a14ed, 20);
    step<G>(a, b, c, d, x[13], 0xa9e3e905, 5);
    step<G>(d, a, b, c, x[2], 0xfcefa3f8, 9);
    step<G>(c, d, a, b, x[7], 0x676f02d9, 14);
    step<G>(b, c, d, a, x[12], 0x8d2a4c8a, 20);
    step<H>(a, b, c, d, x[5], 0xfffa3942, 4);
    step<H>(d, a, b, c, x[8], 0x8771f681, 11);
    step<H>(c, d, a, b, x[11], 0x6d9d6122, 16);
    step<H>(b, c, d, a, x[14], 0xfde5380c, 23);
    step<H>(a, b, c, d, x[1], 0xa4beea44, 4);
    step<H>(d, a, b, c, x[4], 0x4bdecfa9, 11);
    step<H>(c, d, a, b, x[7], 0xf6bb4b60, 16);
    step<H>(b, c, d, a, x[10], 0xbebfbc70, 23);
    step<H>(a, b, c, d, x[13], 0x289b7ec6, 4);
    step<H>(d, a, b, c, x[0], 0xeaa127fa, 11);
    step<H>(c, d, a, b, x[3], 0xd4ef3085, 16);
    step<H>(b, c, d, a, x[6], 0x04881d05, 23);
    step<H>(a, b, c, d, x[9], 0xd9d4d039, 4);
    step<H>(d, a, b, c, x[12], 0xe6db99e5, 11);
    step<H>(c, d, a, b, x[15], 0x1fa27cf8, 16);
    step<H>(b, c, d, a, x[2], 0xc4ac5665, 23);
    step<I>(a, b, c, d, x[0], 0xf4292244, 6);
    step<I>(d, a, b, c, x[7], 0x432aff97, 10);
    step<I>(c, d, a, b, x[14], 0xab9423a7, 15);
    step<I>(b, c, d, a, x[5], 0xfc93a039, 21);
    step<I>(a, b, c, d, x[12], 0x655b59c3, 6);
    step<I>(d, a, b, c, x[3], 0x8f0ccc92, 10);
    step<I>(c, d, a, b, x[10], 0xffeff47d, 15);
    step<I>(b, c, d, a, x[1], 0x85845dd1, 21);
    step<I>(a, b, c, d, x[8], 0x6fa87e4f, 6);
    step<I>(d, a, b, c, x[15], 0xfe2ce6e0, 10);
    step<I>(c, d, a, b, x[6], 0xa3014314, 15);
    step<I>(b, c, d, a, x[13], 0x4e0811a1, 21);
    step<I>(a, b, c, d, x[4], 0xf7537e82, 6);
    step<I>(d, a, b, c, x[11], 0xbd3af235, 10);
    step<I>(c, d, a, b, x[2], 0x2ad7d2bb, 15);
    step<I>(b, c, d, a, x[9], 0xeb86d391, 21);
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
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
    // Same text as "%02x" per byte, without a formatted-output call per byte.
    static constexpr char kHex[] = "0123456789abcdef";
    std::string hex(32, '0');
    for (int i = 0; i < 16; i++) {
        hex[2 * i] = kHex[digest[i] >> 4];
        hex[2 * i + 1] = kHex[digest[i] & 0xf];
    }
    return hex;
}

std::ostream& operator<<(std::ostream& out, MD5 md5) { return out << md5.hexdigest(); }

std::string md5(std::string text) { return MD5(text).hexdigest(); }

}  // namespace VQFeature

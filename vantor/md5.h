// MD5 message digest (RFC 1321). Used to turn request descriptions into cache keys.
// One object digests one message; not synchronised.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace VQFeature {

class MD5 {
public:
    MD5();
    // Digests the whole text (length as a 32-bit count) and finalizes.
    explicit MD5(const std::string& text);

    void update(const unsigned char* input, unsigned int length);
    void update(const char* input, unsigned int length);
    // Pads, stores the digest and wipes the working state; a second call does nothing.
    MD5& finalize();
    // 32 lowercase hex characters, or "" while not finalized.
    std::string hexdigest() const;

private:
    static constexpr unsigned kBlockSize = 64;

    void init();
    void transform(const uint8_t block[kBlockSize]);
    static void decode(uint32_t output[], const uint8_t input[], unsigned len);
    static void encode(uint8_t output[], const uint32_t input[], unsigned len);

    bool finalized;
    uint8_t buffer[kBlockSize];  // bytes that did not fill a block yet
    uint32_t count[2];           // message length in bits, low word first
    uint32_t state[4];
    uint8_t digest[16];
};

std::ostream& operator<<(std::ostream& out, MD5 md5);

// Lowercase hex MD5 digest of text.
std::string md5(std::string text);

}  // namespace VQFeature

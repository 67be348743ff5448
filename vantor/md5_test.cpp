#include "vantor/md5.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace VQFeature {
namespace {

TEST(Md5Test, MatchesTheRfc1321TestSuite) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, digest] : cases) EXPECT_EQ(md5(text), digest) << '"' << text << '"';
    // 56 and 120 bytes: the length field no longer fits after the padding byte; a block follows.
    EXPECT_EQ(md5(std::string(56, 'a')), "3b0c8ac703f828b04c6c197006d17218");
    EXPECT_EQ(md5(std::string(120, 'a')), "5f61c0ccad4cac44c75ff505e1f1e537");
}

TEST(Md5Test, MillionAsAcrossBlockBoundariesInUnevenChunks) {
    MD5 chunked;
    const std::string chunk(997, 'a');  // prime-sized, so chunks straddle 64-byte blocks
    unsigned fed = 0;
    while (fed + chunk.size() <= 1000000) {
        chunked.update(chunk.data(), static_cast<unsigned>(chunk.size()));
        fed += static_cast<unsigned>(chunk.size());
    }
    chunked.update(chunk.data(), 1000000 - fed);
    EXPECT_EQ(chunked.finalize().hexdigest(), "7707d6ae4e027c70eea2a935c2296f21");
    EXPECT_EQ(md5(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(Md5Test, DigestOnlyAfterFinalizeAndFinalizeIsFinal) {
    MD5 m;
    m.update("abc", 3);
    EXPECT_EQ(m.hexdigest(), "");
    m.finalize();
    m.update("more", 4);  // ignored for the stored digest
    m.finalize();         // second call does nothing
    EXPECT_EQ(m.hexdigest(), "900150983cd24fb0d6963f7d28e17f72");
    std::ostringstream out;
    out << m;
    EXPECT_EQ(out.str(), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace VQFeature

#include "tools/vqfe/usage.h"

#include <gtest/gtest.h>

#include <sstream>

namespace vqfe {
namespace {

TEST(UsageError, NamesTheCommandAndShowsOnlyTheSynopsis) {
    const std::string usage =
        "usage: vqfe people --store FILE|URI [--json]\n"
        "       vqfe people --store FILE|URI name ID NAME\n"
        "\n"
        "Without an action: ...\n"
        "  --json   one object per line\n";
    std::ostringstream err;
    EXPECT_EQ(usageError("unknown option --jsn", usage, err), 2);
    EXPECT_EQ(err.str(),
              "vqfe people: unknown option --jsn\n"
              "usage: vqfe people --store FILE|URI [--json]\n"
              "       vqfe people --store FILE|URI name ID NAME\n"
              "Run 'vqfe people --help' for the options.\n");

    // A text without a blank line is its own synopsis; one that names no command gives "vqfe".
    std::ostringstream plain;
    usageError("no command", "usage: vqfe <command> [options]\n", plain);
    EXPECT_EQ(plain.str(), "vqfe: no command\nusage: vqfe <command> [options]\nRun 'vqfe --help' for the options.\n");
    std::ostringstream odd;
    usageError("x", "something else\n", odd);
    EXPECT_EQ(odd.str().rfind("vqfe: x\nsomething else\n", 0), 0u);
}

}  // namespace
}  // namespace vqfe

#include "tools/vqfe/progress.h"

#include <gtest/gtest.h>

#include <string>

namespace vqfe {
namespace {

std::string contents(FILE* file) {
    std::rewind(file);
    std::string text;
    for (int c; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
    return text;
}

TEST(Progress, TheBarEndsItsLineOnceBeforeWhatFollows) {
    FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    {
        Progress progress(3, out, true);
        for (int i = 0; i < 3; ++i) progress.advance();
        progress.finish();
        std::fputs("summary\n", out);  // the summary starts a line of its own
        progress.advance();            // nothing is drawn after the end
    }
    const std::string text = contents(out);
    EXPECT_NE(text.find("\r[##############################] 3/3"), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.size() - 9), "\nsummary\n") << text;
    EXPECT_EQ(text.find("4/3"), std::string::npos) << text;
    std::fclose(out);

    FILE* quiet = std::tmpfile();
    { Progress(3, quiet, false).advance(); }
    EXPECT_EQ(contents(quiet), "");
    std::fclose(quiet);
}

}  // namespace
}  // namespace vqfe

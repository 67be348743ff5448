#include "tools/vqfe/progress.h"

#include <gtest/gtest.h>

#include <sstream>
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

// A warning while the bar is on screen gets a line of its own: the bar is cleared before
// it and drawn again after (it was glued to the bar's end).
TEST(Progress, ANoteClearsTheBarAndTheBarComesBack) {
    FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    std::ostringstream err;
    {
        Progress progress(3, out, true);
        progress.note(err, "before any bar");
        progress.advance();
        const size_t drawn = contents(out).size();
        progress.note(err, "warning: x.jpg ends early");
        const std::string after = contents(out).substr(drawn);
        EXPECT_EQ(after.rfind("\r\033[K\r[##########....................] 1/3", 0), 0u) << after;
        progress.finish();
        progress.note(err, "after the end");
    }
    EXPECT_EQ(err.str(), "before any bar\nwarning: x.jpg ends early\nafter the end\n");
    EXPECT_EQ(contents(out).find("\033[K"), contents(out).rfind("\033[K"));  // cleared once only
    std::fclose(out);
}

}  // namespace
}  // namespace vqfe

#include <gtest/gtest.h>

#include "commandline.h"
#include "error.h"

using namespace dt;
using V = std::vector<std::string>;

TEST(SplitCommand, WordsAndSubstitution) {
    EXPECT_EQ(SplitCommand("lpr -P office %s", "/tmp/a.1"), (V{"lpr", "-P", "office", "/tmp/a.1"}));
    EXPECT_EQ(SplitCommand("  cat   %s  ", "/f"), (V{"cat", "/f"}));
    EXPECT_EQ(SplitCommand("cp %s %s.bak", "/f"), (V{"cp", "/f", "/f.bak"}));
}

TEST(SplitCommand, ShellSyntaxHasNoMeaning) {
    EXPECT_EQ(SplitCommand("cat %s; rm -rf /", "/f"), (V{"cat", "/f;", "rm", "-rf", "/"}));
    // A file name with shell characters stays one argument.
    EXPECT_EQ(SplitCommand("cat %s", "/tmp/$(reboot) `x` a b"), (V{"cat", "/tmp/$(reboot) `x` a b"}));
    EXPECT_EQ(SplitCommand("echo $HOME", "/f"), (V{"echo", "$HOME"}));
}

TEST(SplitCommand, QuotesGroup) {
    EXPECT_EQ(SplitCommand("xterm -title 'my doc' -e less %s", "/f"),
              (V{"xterm", "-title", "my doc", "-e", "less", "/f"}));
    EXPECT_EQ(SplitCommand("sh -c \"wc -l < %s\"", "/f"), (V{"sh", "-c", "wc -l < /f"}));
    EXPECT_EQ(SplitCommand("a''b", "/f"), (V{"ab"}));
}

TEST(SplitCommand, BadCommands) {
    EXPECT_THROW(SplitCommand("", "/f"), Error);
    EXPECT_THROW(SplitCommand("   ", "/f"), Error);
    EXPECT_THROW(SplitCommand("cat 'x", "/f"), Error);
}

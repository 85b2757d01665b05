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

namespace {
// A fake file system: these paths are executable programs.
const std::vector<std::string> *fake_programs = nullptr;
bool FakeExecutable(const std::string &p) {
    for (const std::string &f : *fake_programs)
        if (f == p) return true;
    return false;
}
}  // namespace

TEST(FindProgram, FilterDirectoryFirstThenSearchPath) {
    V progs = {"/home/bin/deroff", "/usr/bin/deroff", "/usr/bin/detex", "/bin/format"};
    fake_programs = &progs;
    EXPECT_EQ(FindProgram("deroff", "/home/bin", "/usr/bin:/bin", FakeExecutable), "/home/bin/deroff");
    // Missing from the filter directory: found under its bare name.
    EXPECT_EQ(FindProgram("detex", "/home/bin", "/usr/bin:/bin", FakeExecutable), "/usr/bin/detex");
    EXPECT_EQ(FindProgram("format", "/home/bin", "/usr/bin:/bin", FakeExecutable), "/bin/format");
    EXPECT_EQ(FindProgram("format", "", "/usr/bin:/bin", FakeExecutable), "/bin/format");
    EXPECT_EQ(FindProgram("nothere", "/home/bin", "/usr/bin:/bin", FakeExecutable), "");
    // A name beginning with '/' is used as it stands.
    EXPECT_EQ(FindProgram("/opt/x", "/home/bin", "/usr/bin", FakeExecutable), "/opt/x");
    EXPECT_EQ(FindProgram("", "/home/bin", "/usr/bin", FakeExecutable), "");
}

TEST(FindProgram, OnlyAbsoluteSearchDirectories) {
    V progs = {"./deroff", "deroff", "bin/deroff", "/usr/bin/deroff"};
    fake_programs = &progs;
    // Empty, "." and relative entries would find a program in the input's
    // directory: skipped.
    EXPECT_EQ(FindProgram("deroff", "", ":.:bin", FakeExecutable), "");
    EXPECT_EQ(FindProgram("deroff", "", "::.:bin:/usr/bin", FakeExecutable), "/usr/bin/deroff");
    // A relative name with a '/' is not searched for.
    EXPECT_EQ(FindProgram("bin/deroff", "", "/usr/bin:.", FakeExecutable), "");
}

TEST(PathArgument, NeverAnOption) {
    EXPECT_EQ(PathArgument("-rf"), "./-rf");
    EXPECT_EQ(PathArgument("/tmp/-x"), "/tmp/-x");
    EXPECT_EQ(PathArgument("a b"), "a b");
    EXPECT_EQ(PathArgument(""), "");
}

#include <gtest/gtest.h>

#include "shellfilter.h"

using namespace dt;
using V = std::vector<std::string>;

TEST(ShellFilterPlan, RunsInTheInputDirectoryWithPathsAsArguments) {
    ShellFilterRun r = ShellFilterPlan("format(troff):/home/docs/ls.1", "format(ascii):/tmp/out.txt",
                                       "/share/bin/deroff");
    EXPECT_EQ(r.dir, "/home/docs");
    EXPECT_EQ(r.argv, (V{"/share/bin/deroff", "/home/docs/ls.1"}));
    EXPECT_EQ(r.outpath, "/tmp/out.txt");
}

TEST(ShellFilterPlan, PathsWithShellCharactersStayWhole) {
    std::string dir = "/tmp/a b/it's \"q\"; $(touch x) `y`\nz";
    std::string in = dir + "/doc 1;rm -rf.tex";
    std::string out = "/tmp/o $(x).txt";
    ShellFilterRun r = ShellFilterPlan("format(tex):" + in, "format(ascii):" + out, "detex");
    EXPECT_EQ(r.dir, dir);
    EXPECT_EQ(r.argv, (V{"detex", in}));
    EXPECT_EQ(r.outpath, out);
}

TEST(ShellFilterPlan, SpecialPaths) {
    // Directly under the root.
    EXPECT_EQ(ShellFilterPlan("format(tex):/a.tex", "/o", "detex").dir, "/");
    // A spec without ':' is a bare path; after the first ':' a path may
    // hold more.
    ShellFilterRun r = ShellFilterPlan("/x/y.1", "/o", "deroff");
    EXPECT_EQ(r.dir, "/x");
    EXPECT_EQ(r.argv[1], "/x/y.1");
    r = ShellFilterPlan("format(troff):/x/y:z.1", "format(ascii):/o:p", "deroff");
    EXPECT_EQ(r.argv[1], "/x/y:z.1");
    EXPECT_EQ(r.outpath, "/o:p");
    // No '/': the whole input path is the directory; a relative output is
    // taken from it.
    r = ShellFilterPlan("format(troff):ls.1", "format(ascii):out", "deroff");
    EXPECT_EQ(r.dir, "ls.1");
    EXPECT_EQ(r.outpath, "ls.1/out");
    // An input path that looks like an option.
    r = ShellFilterPlan("format(troff):-n", "/o", "deroff");
    EXPECT_EQ(r.argv[1], "./-n");
}

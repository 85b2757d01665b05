#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "convpath.h"
#include "doclayout.h"
#include "error.h"

using namespace dt;

namespace {
ConvTable Table(std::vector<std::vector<std::string>> rows) {
    ConvTable t;
    for (auto &r : rows) t.push_back(Converter{r[0], r[1], 0, r[2]});
    return t;
}
}  // namespace

// ---- format names and paths -------------------------------------------------

TEST(GetFormat, BarePathIsAscii) { EXPECT_EQ(getformat("/x/y"), "ascii"); }

TEST(GetFormat, ListWithoutFormatIsTheName) {
    EXPECT_EQ(getformat("wordperfect:/x/y"), "wordperfect");
    EXPECT_EQ(getformat("a,b:/x"), "a,b");
}

TEST(GetFormat, FormatParameter) {
    EXPECT_EQ(getformat("format(msword),version(6):/x/y"), "msword");
    EXPECT_EQ(getformat("version(6),format(msword):/x/y"), "msword");
    EXPECT_EQ(getformat("format(ascii):/tmp/a"), "ascii");
}

TEST(GetFormat, EmptyValueAndOddLists) {
    // In a whole specification a value-less "format" is followed by the
    // ':', which does not end an element: the list is taken whole.
    EXPECT_EQ(getformat("nocopy,format:/x"), "nocopy,format");
    EXPECT_EQ(getformat("format(),x:/p"), "");
    EXPECT_EQ(getformat(":/x"), "");
    // A malformed list is taken whole.
    EXPECT_EQ(getformat("format(wp:/x"), "format(wp");
    // The path may hold colons; only the first one splits.
    EXPECT_EQ(getformat("format(wp):/x:y"), "wp");
}

TEST(Path, DirectoryPart) {
    EXPECT_EQ(path("/x/y"), "/x");
    EXPECT_EQ(path("/y"), "");
    EXPECT_EQ(path("y"), "y");
    EXPECT_EQ(path("a/b/c.txt"), "a/b");
    EXPECT_EQ(path(""), "");
}

TEST(GetPathText, AfterFirstColon) {
    EXPECT_EQ(GetPathText("format(wp):/x/y").value(), "/x/y");
    EXPECT_EQ(GetPathText("wp:/x:y").value(), "/x:y");
    EXPECT_EQ(GetPathText("a:").value(), "");
    EXPECT_FALSE(GetPathText("/x/y").has_value());
}

// ---- path search ---------------------------------------------------------------

TEST(FormatLookup, DirectEdgeFirstWhateverTheRowOrder) {
    std::vector<std::vector<std::vector<std::string>>> orders = {
        {{"a", "b", "ab"}, {"b", "d", "bd"}, {"a", "d", "ad"}},
        {{"a", "d", "ad"}, {"a", "b", "ab"}, {"b", "d", "bd"}},
        {{"b", "d", "bd"}, {"a", "b", "ab"}, {"a", "d", "ad"}},
    };
    for (auto &rows : orders) {
        ConvTable t = Table(rows);
        auto fl = _formatlookup(t, "a", "d");
        ASSERT_TRUE(fl);
        EXPECT_EQ(*fl, Funclist{"ad"});
        // The direct edge needs no expansion.
        for (auto &cv : t) EXPECT_EQ(cv.cv_visited, 0);
    }
}

TEST(FormatLookup, FirstDirectEdgeInTableOrder) {
    ConvTable t = Table({{"a", "d", "one"}, {"a", "d", "two"}});
    EXPECT_EQ(*_formatlookup(t, "a", "d"), Funclist{"one"});
}

TEST(FormatLookup, CycleExpandedOnceAndAbandoned) {
    ConvTable t = Table({{"a", "b", "ab"}, {"b", "a", "ba"}, {"b", "d", "bd"}});
    auto fl = _formatlookup(t, "a", "d");
    ASSERT_TRUE(fl);
    EXPECT_EQ(*fl, (Funclist{"ab", "bd"}));
    EXPECT_EQ(t[0].cv_visited, 1);
}

TEST(FormatLookup, CycleWithoutTargetEnds) {
    ConvTable t = Table({{"a", "b", "ab"}, {"b", "a", "ba"}, {"b", "c", "bc"}, {"c", "a", "ca"}});
    EXPECT_FALSE(_formatlookup(t, "a", "d"));
    // Every row reachable from a served as a first step exactly once.
    for (auto &cv : t) EXPECT_EQ(cv.cv_visited, 1) << cv.cv_conv;
}

TEST(FormatLookup, DeadEndTriedThenNextRow) {
    ConvTable t = Table({{"a", "x", "ax"}, {"a", "b", "ab"}, {"b", "d", "bd"}});
    auto fl = _formatlookup(t, "a", "d");
    ASSERT_TRUE(fl);
    EXPECT_EQ(*fl, (Funclist{"ab", "bd"}));
    EXPECT_EQ(t[0].cv_visited, 1);  // the dead end was tried first
    EXPECT_EQ(t[1].cv_visited, 1);
    EXPECT_EQ(t[2].cv_visited, 0);  // used as a direct edge only
}

TEST(FormatLookup, FirstPathFoundNotTheShortest) {
    // a->b, b->a, a->c, c->d: depth first goes a->b->a->c->d.
    ConvTable t = Table({{"a", "b", "ab"}, {"b", "a", "ba"}, {"a", "c", "ac"}, {"c", "d", "cd"}});
    auto fl = _formatlookup(t, "a", "d");
    ASSERT_TRUE(fl);
    EXPECT_EQ(*fl, (Funclist{"ab", "ba", "ac", "cd"}));
}

TEST(FormatLookup, MarksAreKeptAfterAFailedBranch) {
    // x is reached twice: from a->x (fails: x only leads to y, a dead end)
    // and again from a->b->x, where the row x->y is not expanded a second time.
    ConvTable t = Table({{"a", "x", "ax"}, {"x", "y", "xy"}, {"a", "b", "ab"}, {"b", "x", "bx"}});
    EXPECT_FALSE(_formatlookup(t, "a", "d"));
    for (auto &cv : t) EXPECT_EQ(cv.cv_visited, 1) << cv.cv_conv;
}

TEST(FormatLookup, EmptyTableAndNoEdge) {
    ConvTable t;
    EXPECT_FALSE(_formatlookup(t, "a", "d"));
    ConvTable u = Table({{"b", "d", "bd"}});
    EXPECT_FALSE(_formatlookup(u, "a", "d"));
}

TEST(FormatLookup, NamesCompareExactly) {
    ConvTable t = Table({{"A", "d", "Ad"}, {"a", "D", "aD"}});
    EXPECT_FALSE(_formatlookup(t, "a", "d"));
    ConvTable u = Table({{"A", "d", "Ad"}, {"a", "d", "ad"}});
    EXPECT_EQ(*_formatlookup(u, "a", "d"), Funclist{"ad"});
}

TEST(FormatLookup, SelfEdgeForEqualFormats) {
    ConvTable t = Table({{"a", "a", "aa"}});
    EXPECT_EQ(*_formatlookup(t, "a", "a"), Funclist{"aa"});
}

// ---- running a path --------------------------------------------------------------

namespace {
// A file system in memory and a record of the calls made.
struct Runner {
    std::set<std::string> files;
    std::vector<std::string> calls;     // "fn(in,out)"
    std::vector<std::string> removed;
    std::map<std::string, int> fail;    // fn -> 1 returns null, 2 throws
    int serial = 0;

    FlexecOps ops() {
        FlexecOps o;
        o.engage = [this](const std::string &fn, const std::string &in,
                          const std::string &out) -> std::optional<std::string> {
            calls.push_back(fn + "(" + in + "," + out + ")");
            auto f = fail.find(fn);
            if (f != fail.end() && f->second == 2) throw std::runtime_error("step raised");
            files.insert(out);  // a step writes its target even when it fails
            if (f != fail.end() && f->second == 1) return std::nullopt;
            return out;
        };
        o.tempname = [this](const std::string &out) {
            return "/tmp/t" + std::to_string(++serial) + "fmtcnv";
        };
        o.remove = [this](const std::string &name) {
            removed.push_back(name);
            files.erase(name);
        };
        return o;
    }
};
}  // namespace

TEST(Flexec, NoPathIsNull) {
    Runner r;
    EXPECT_FALSE(_flexec(std::nullopt, "format(a):/in", "format(d):/out", r.ops()));
    EXPECT_TRUE(r.calls.empty());
}

TEST(Flexec, OneStepWritesTheOutput) {
    Runner r;
    auto res = _flexec(Funclist{"ad"}, "format(a):/in", "format(d):/out", r.ops());
    ASSERT_TRUE(res);
    EXPECT_EQ(*res, "format(d):/out");
    EXPECT_EQ(r.calls, (std::vector<std::string>{"ad(format(a):/in,format(d):/out)"}));
    EXPECT_TRUE(r.removed.empty());
}

TEST(Flexec, EveryStepReadsTheInitialInput) {
    Runner r;
    auto res = _flexec(Funclist{"ab", "bc", "cd"}, "format(a):/in", "format(d):/out", r.ops());
    ASSERT_TRUE(res);
    EXPECT_EQ(*res, "format(d):/out");
    EXPECT_EQ(r.calls, (std::vector<std::string>{"ab(format(a):/in,/tmp/t1fmtcnv)",
                                                 "bc(format(a):/in,/tmp/t2fmtcnv)",
                                                 "cd(format(a):/in,format(d):/out)"}));
    // Each temporary file is removed after the following step.
    EXPECT_EQ(r.removed, (std::vector<std::string>{"/tmp/t1fmtcnv", "/tmp/t2fmtcnv"}));
    EXPECT_EQ(r.files, (std::set<std::string>{"format(d):/out"}));
}

TEST(Flexec, FailedStepStopsWithNullAndLeavesNoTemporary) {
    Runner r;
    r.fail["bc"] = 1;
    auto res = _flexec(Funclist{"ab", "bc", "cd"}, "format(a):/in", "format(d):/out", r.ops());
    EXPECT_FALSE(res);
    EXPECT_EQ(r.calls.size(), 2u);  // cd never runs
    EXPECT_EQ(r.removed, (std::vector<std::string>{"/tmp/t1fmtcnv", "/tmp/t2fmtcnv"}));
    EXPECT_TRUE(r.files.empty());
}

TEST(Flexec, FailedLastStepKeepsTheOutputName) {
    Runner r;
    r.fail["bd"] = 1;
    EXPECT_FALSE(_flexec(Funclist{"ab", "bd"}, "format(a):/in", "format(d):/out", r.ops()));
    EXPECT_EQ(r.removed, (std::vector<std::string>{"/tmp/t1fmtcnv"}));
}

TEST(Flexec, StepThatThrowsLeavesNoTemporary) {
    Runner r;
    r.fail["cd"] = 2;
    EXPECT_THROW(_flexec(Funclist{"ab", "bc", "cd"}, "format(a):/in", "format(d):/out", r.ops()),
                 std::runtime_error);
    EXPECT_EQ(r.removed, (std::vector<std::string>{"/tmp/t1fmtcnv", "/tmp/t2fmtcnv"}));
    EXPECT_EQ(r.files, (std::set<std::string>{}));
}

TEST(Flexec, ThrowInAMiddleStepRemovesItsTarget) {
    Runner r;
    r.fail["bc"] = 2;
    EXPECT_THROW(_flexec(Funclist{"ab", "bc", "cd"}, "format(a):/in", "format(d):/out", r.ops()),
                 std::runtime_error);
    EXPECT_EQ(r.removed, (std::vector<std::string>{"/tmp/t1fmtcnv", "/tmp/t2fmtcnv"}));
}

TEST(Flexec, ResultOfLastStepIsReturned) {
    Runner r;
    FlexecOps o = r.ops();
    o.engage = [](const std::string &, const std::string &, const std::string &) {
        return std::optional<std::string>("format(d):/elsewhere");
    };
    EXPECT_EQ(*_flexec(Funclist{"ab", "bd"}, "format(a):/in", "format(d):/out", o),
              "format(d):/elsewhere");
    // Only the module's own temporary name is removed, never what a step names.
    EXPECT_EQ(r.removed, (std::vector<std::string>{"/tmp/t1fmtcnv"}));
}

TEST(TempTextName, ShapeOfTheName) {
    for (int i = 0; i < 50; i++) {
        std::string n = _gettemptextname("/var/tmp", "format(ascii):/home/me/out.txt");
        ASSERT_EQ(n.rfind("/var/tmp/out.txt.", 0), 0u) << n;
        ASSERT_EQ(n.substr(n.size() - 6), "fmtcnv");
        std::string num = n.substr(17, n.size() - 17 - 6);
        ASSERT_FALSE(num.empty());
        ASSERT_LT(std::stol(num), 100000);
        ASSERT_EQ(n.find(':'), std::string::npos);
        EXPECT_EQ(getformat(n), "ascii");
    }
    // A bare path, and a path holding a colon.
    EXPECT_EQ(_gettemptextname("/t", "out").rfind("/t/out.", 0), 0u);
    std::string c = _gettemptextname("/t", "format(x):/a/b:c");
    EXPECT_EQ(c.rfind("/t/b_c.", 0), 0u) << c;
}

// ---- whole conversions -------------------------------------------------------------

namespace {
struct Converting {
    Runner run;
    int tableReads = 0;
    std::vector<std::string> copies;
    bool copyOk = true;
    ConvTable table;
    ConvertOps ops() {
        ConvertOps o;
        o.readTable = [this] {
            tableReads++;
            return table;
        };
        o.copyFile = [this](const std::string &from, const std::string &to) {
            copies.push_back(from + ">" + to);
            return copyOk;
        };
        o.flexec = run.ops();
        return o;
    }
};
}  // namespace

TEST(FormatConvert, IdenticalFormatsCopyWithoutReadingTheTable) {
    Converting c;
    auto res = formatconvert("format(wp):/in.wp", "wp:/out.wp", c.ops());
    ASSERT_TRUE(res);
    EXPECT_EQ(*res, "wp:/out.wp");
    EXPECT_EQ(c.tableReads, 0);
    EXPECT_EQ(c.copies, (std::vector<std::string>{"/in.wp>/out.wp"}));
    // Bare paths are ascii.
    EXPECT_EQ(*formatconvert("/a", "format(ascii):/b", c.ops()), "format(ascii):/b");
    EXPECT_EQ(c.copies.back(), "/a>/b");
    EXPECT_EQ(c.tableReads, 0);
}

TEST(FormatConvert, FailedCopyIsNull) {
    Converting c;
    c.copyOk = false;
    EXPECT_FALSE(formatconvert("/a", "/b", c.ops()));
}

TEST(FormatConvert, DifferentFormatsSearchAndRun) {
    Converting c;
    c.table = Table({{"a", "b", "ab"}, {"b", "a", "ba"}, {"b", "d", "bd"}});
    auto res = formatconvert("format(a):/in", "format(d):/out", c.ops());
    ASSERT_TRUE(res);
    EXPECT_EQ(c.tableReads, 1);
    EXPECT_EQ(c.run.calls, (std::vector<std::string>{"ab(format(a):/in,/tmp/t1fmtcnv)",
                                                     "bd(format(a):/in,format(d):/out)"}));
    // The table is read afresh each time: the marks of one search are gone.
    ASSERT_TRUE(formatconvert("format(a):/in", "format(d):/out", c.ops()));
    EXPECT_EQ(c.tableReads, 2);
}

TEST(FormatConvert, NoPathIsNull) {
    Converting c;
    c.table = Table({{"a", "b", "ab"}});
    EXPECT_FALSE(formatconvert("format(a):/in", "format(d):/out", c.ops()));
    EXPECT_TRUE(c.run.calls.empty());
}

// ---- convertibility and document parameters ------------------------------------------

TEST(IsConvertible, ListWithoutFormatIsNeverConvertible) {
    int reads = 0;
    auto read = [&] {
        reads++;
        return Table({{"wordperfect", "ascii", "wp2a"}});
    };
    EXPECT_FALSE(IsConvertible("wordperfect", "wordperfect", read));
    EXPECT_FALSE(IsConvertible("wordperfect", "ascii", read));
    EXPECT_FALSE(IsConvertible("version(5)", "format(version(5))", read));
    EXPECT_EQ(reads, 0);
}

TEST(IsConvertible, EqualNamesWithoutTheTable) {
    int reads = 0;
    auto read = [&]() -> ConvTable {
        reads++;
        throw std::runtime_error("table read");
    };
    EXPECT_TRUE(IsConvertible("format(wp),version(5)", "wp", read));
    EXPECT_TRUE(IsConvertible("format(wp)", "format(wp),version(6)", read));
    EXPECT_TRUE(IsConvertible("format(ascii)", "ascii", read));
    EXPECT_EQ(reads, 0);
}

TEST(IsConvertible, ByPathSearch) {
    auto read = [] { return Table({{"wp", "rtf", "a"}, {"rtf", "ascii", "b"}}); };
    EXPECT_TRUE(IsConvertible("format(wp)", "ascii", read));
    EXPECT_TRUE(IsConvertible("format(wp)", "format(ascii)", read));
    EXPECT_FALSE(IsConvertible("format(ascii)", "wp", read));
    EXPECT_FALSE(IsConvertible("format(wp)", "ASCII", read));
}

TEST(DocParams, ValueWithoutSpecificationIsAscii) {
    // A literal without ':' keeps no parameter list (ht_nameoffset 0).
    DocHeader h = filldtname("/x/y");
    std::string v = MakeSmallDocValue(h, "some text");
    ASSERT_EQ(DocView(v.data()).ht_nameoffset(), 0);
    EXPECT_EQ(DocSpec(v.data()), "format(ascii)");
    EXPECT_EQ(DocPath(v.data()), "/x/y");
    EXPECT_EQ(DocFormatName(DocSpec(v.data())), "ascii");
}

TEST(DocParams, FormatNameOfAList) {
    EXPECT_EQ(DocFormatName("format(wp),version(5)"), "wp");
    EXPECT_EQ(DocFormatName("wordperfect"), "wordperfect");
    EXPECT_EQ(DocFormatName("nocopy,format"), "");
}

// ---- the search against a plain recursive reading of its rules -------------------------

namespace {
std::optional<Funclist> Reference(ConvTable &t, const std::string &in, const std::string &out) {
    for (auto &cv : t)
        if (cv.cv_from == in && cv.cv_to == out) return Funclist{cv.cv_conv};
    if (t.empty()) return std::nullopt;
    for (size_t i = 0; i < t.size(); i++) {
        if (t[i].cv_from != in || t[i].cv_visited) continue;
        t[i].cv_visited = 1;
        if (auto rest = Reference(t, t[i].cv_to, out)) {
            rest->insert(rest->begin(), t[i].cv_conv);
            return rest;
        }
    }
    return std::nullopt;
}
}  // namespace

TEST(FormatLookup, AgreesWithTheRecursiveRulesOnRandomTables) {
    unsigned seed = 12345;
    auto next = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) & 0x7FFF;
    };
    const char *names[] = {"a", "b", "c", "d", "e", "f"};
    int found = 0;
    for (int round = 0; round < 3000; round++) {
        ConvTable t;
        int rows = next() % 12;
        for (int r = 0; r < rows; r++)
            t.push_back(Converter{names[next() % 6], names[next() % 6], 0, "s" + std::to_string(r)});
        std::string in = names[next() % 6], out = names[next() % 6];
        ConvTable u = t;
        auto got = _formatlookup(t, in, out);
        auto want = Reference(u, in, out);
        ASSERT_EQ(got.has_value(), want.has_value()) << round;
        if (got) {
            ASSERT_EQ(*got, *want) << round;
            found++;
        }
        for (size_t i = 0; i < t.size(); i++) ASSERT_EQ(t[i].cv_visited, u[i].cv_visited) << round;
    }
    EXPECT_GT(found, 500);
}

TEST(FormatLookup, LongChainDoesNotExhaustTheStack) {
    ConvTable t;
    const int n = 200000;
    for (int i = 0; i < n; i++)
        t.push_back(Converter{"f" + std::to_string(i), "f" + std::to_string(i + 1), 0, "s"});
    auto fl = _formatlookup(t, "f0", "f" + std::to_string(n));
    ASSERT_TRUE(fl);
    EXPECT_EQ(fl->size(), (size_t)n);
}

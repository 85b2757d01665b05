// docsql's parts that need no server: statement splitting, result tables,
// the command line, and the channel's data encoding.
#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "clientproto.h"
#include "options.h"
#include "printer.h"
#include "progress.h"
#include "splitter.h"
#include "trust.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

using namespace docsql;

namespace {
std::vector<std::string> Texts(const std::string &sql) {
    std::vector<std::string> out;
    for (const auto &s : SplitStatements(sql)) out.push_back(s.text);
    return out;
}
}  // namespace

TEST(Splitter, PlainStatements) {
    EXPECT_EQ(Texts("select 1; select 2;"), (std::vector<std::string>{"select 1", "select 2"}));
    EXPECT_EQ(Texts("select 1"), (std::vector<std::string>{"select 1"}));
    EXPECT_EQ(Texts("  ;;  ; "), std::vector<std::string>{});
}

TEST(Splitter, QuotesKeepSemicolons) {
    EXPECT_EQ(Texts("select 'a;b'; select 'it''s;'"),
              (std::vector<std::string>{"select 'a;b'", "select 'it''s;'"}));
    EXPECT_EQ(Texts("select \"x;\"\"y\" from t; select 2"),
              (std::vector<std::string>{"select \"x;\"\"y\" from t", "select 2"}));
    EXPECT_EQ(Texts("select E'\\';'; select 2"), (std::vector<std::string>{"select E'\\';'", "select 2"}));
    // Without E a backslash is an ordinary character.
    EXPECT_EQ(Texts("select '\\'; select 2"), (std::vector<std::string>{"select '\\'", "select 2"}));
}

TEST(Splitter, DollarQuotes) {
    std::string f = "create function f() returns int as $$ begin return 1; end $$ language plpgsql";
    EXPECT_EQ(Texts(f + "; select 2"), (std::vector<std::string>{f, "select 2"}));
    std::string g = "do $body$ begin perform 1; raise notice '$$;'; end $body$";
    EXPECT_EQ(Texts(g + ";select 3;"), (std::vector<std::string>{g, "select 3"}));
    // $1 is a parameter, a$b$ an identifier: neither opens a quote.
    EXPECT_EQ(Texts("select $1; select a$b$ from t; select 4"),
              (std::vector<std::string>{"select $1", "select a$b$ from t", "select 4"}));
}

TEST(Splitter, CommentsAndParentheses) {
    EXPECT_EQ(Texts("select 1 -- a; comment\n; select 2"),
              (std::vector<std::string>{"select 1 -- a; comment\n", "select 2"}));
    EXPECT_EQ(Texts("select /* a /* nested; */ still; */ 1; select 2"),
              (std::vector<std::string>{"select /* a /* nested; */ still; */ 1", "select 2"}));
    EXPECT_EQ(Texts("-- only a comment;\n/* and this; */"), std::vector<std::string>{});
    EXPECT_EQ(Texts("create rule r as on insert to t do (insert into u values (1); insert into u values (2)); select 1"),
              (std::vector<std::string>{
                  "create rule r as on insert to t do (insert into u values (1); insert into u values (2))",
                  "select 1"}));
}

TEST(Splitter, LinesAndMetaCommands) {
    auto st = SplitStatements("select 1;\n\nselect\n2;\n\\d t\nselect 3;");
    ASSERT_EQ(st.size(), 4u);
    EXPECT_EQ(st[0].line, 1);
    EXPECT_EQ(st[1].line, 3);
    EXPECT_EQ(st[1].text, "select\n2");
    EXPECT_TRUE(st[2].meta);
    EXPECT_EQ(st[2].text, "\\d t");
    EXPECT_EQ(st[2].line, 5);
    EXPECT_EQ(st[3].text, "select 3");
    EXPECT_FALSE(st[3].meta);
}

TEST(Splitter, UnterminatedQuoteRunsToTheEnd) {
    EXPECT_EQ(Texts("select 'abc; select 2"), (std::vector<std::string>{"select 'abc; select 2"}));
}

TEST(Printer, AlignedLikePsql) {
    Table t;
    t.headers = {"n", "name"};
    t.rightAlign = {true, false};
    t.rows = {{std::string("1"), std::string("apple")}, {std::string("22"), std::nullopt}};
    EXPECT_EQ(FormatTable(t, {}),
              " n  | name  \n"
              "----+-------\n"
              "  1 | apple\n"
              " 22 | \n"
              "(2 rows)\n"
              "\n");
}

TEST(Printer, MultiLineCells) {
    Table t;
    t.headers = {"a", "b"};
    t.rightAlign = {false, false};
    t.rows = {{std::string("x\ny"), std::string("1")}};
    EXPECT_EQ(FormatTable(t, {}),
              " a | b \n"
              "---+---\n"
              " x+| 1\n"
              " y | \n"
              "(1 row)\n"
              "\n");
}

TEST(Printer, UnalignedAndTuplesOnly) {
    Table t;
    t.headers = {"a", "b"};
    t.rightAlign = {false, true};
    t.rows = {{std::string("x"), std::string("1")}};
    PrintOptions o;
    o.unaligned = true;
    EXPECT_EQ(FormatTable(t, o), "a|b\nx|1\n(1 row)\n");
    o.tuplesOnly = true;
    o.fieldSeparator = ",";
    EXPECT_EQ(FormatTable(t, o), "x,1\n");
    PrintOptions a;
    a.tuplesOnly = true;
    EXPECT_EQ(FormatTable(t, a), " x | 1\n\n");
    t.headers = {"long", "b"};
    EXPECT_EQ(FormatTable(t, a), " x    | 1\n\n");  // psql sizes by the headers too
}

TEST(Printer, WidthCountsCharactersNotBytes) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    EXPECT_EQ(DisplayWidth("abc"), 3);
    EXPECT_EQ(DisplayWidth("\xc3\xa9t\xc3\xa9"), 3);  // "été"
    EXPECT_TRUE(IsNumericType(23));
    EXPECT_FALSE(IsNumericType(25));
}

TEST(Options, ConnectionAndScripts) {
    Options o;
    std::string err;
    ASSERT_TRUE(ParseOptions({"-h", "/tmp", "-p5433", "-U", "bob", "-c", "select 1", "-f", "x.sql",
                              "--command=select 2", "-qtA", "mydb"},
                             o, err))
        << err;
    EXPECT_EQ(o.host, "/tmp");
    EXPECT_EQ(o.port, "5433");
    EXPECT_EQ(o.user, "bob");
    EXPECT_EQ(o.dbname, "mydb");
    ASSERT_EQ(o.scripts.size(), 3u);
    EXPECT_EQ(o.scripts[0].kind, Script::Command);
    EXPECT_EQ(o.scripts[1].kind, Script::File);
    EXPECT_EQ(o.scripts[1].text, "x.sql");
    EXPECT_EQ(o.scripts[2].text, "select 2");
    EXPECT_TRUE(o.quiet && o.tuplesOnly && o.unaligned);
}

TEST(Options, BadUse) {
    Options o;
    std::string err;
    EXPECT_FALSE(ParseOptions({"-c"}, o, err));
    EXPECT_NE(err.find("needs a value"), std::string::npos);
    EXPECT_FALSE(ParseOptions({"--nosuch"}, o, err));
    EXPECT_FALSE(ParseOptions({"a", "b", "c"}, o, err));
    EXPECT_FALSE(ParseOptions({"--quiet=yes"}, o, err));
}

TEST(Channel, Base64RoundTripsEveryByte) {
    std::string all;
    for (int i = 0; i < 256; i++) all += (char)i;
    for (size_t n = 0; n <= all.size(); n += 37) {
        std::string part = all.substr(0, n), back;
        std::string text = dt::channel::Base64Encode(part.data(), part.size());
        EXPECT_EQ(text.size() % 4, 0u);
        ASSERT_TRUE(dt::channel::Base64Decode(text, back));
        EXPECT_EQ(back, part);
    }
    std::string back;
    EXPECT_TRUE(dt::channel::Base64Decode("", back));
    EXPECT_EQ(back, "");
    EXPECT_EQ(dt::channel::Base64Encode("ab", 2), "YWI=");
    EXPECT_FALSE(dt::channel::Base64Decode("YWI", back));
    EXPECT_FALSE(dt::channel::Base64Decode("Y!I=", back));
    EXPECT_FALSE(dt::channel::Base64Decode("YWJ=", back));  // bits left over
}

TEST(Channel, NoticeCodes) {
    EXPECT_TRUE(dt::channel::IsChannelCode("XDC01"));
    EXPECT_TRUE(dt::channel::IsChannelCode("XDC04"));
    EXPECT_FALSE(dt::channel::IsChannelCode("XD00M"));
    EXPECT_FALSE(dt::channel::IsChannelCode(nullptr));
}

TEST(Progress, Line) {
    EXPECT_EQ(ProgressLine("f", 512 * 1024, 1024 * 1024, 10), "f [#####     ]  50% 0.5/1.0 MB");
    EXPECT_EQ(ProgressLine("f", 2, 1, 4), "f [####] 100% 0.0/0.0 MB");
}

// ---- which client files docsql serves -----------------------------------


namespace {
struct TrustDir {
    std::string root;
    TrustDir() {
        char tmpl[] = "/tmp/docsqltrust.XXXXXX";
        root = mkdtemp(tmpl);
        mkdir((root + "/data").c_str(), 0755);
        mkdir((root + "/other").c_str(), 0755);
        mkdir((root + "/data/.ssh").c_str(), 0700);
        for (const char *f : {"/data/1.txt", "/other/secret", "/data/x.txt", "/data/.hidden", "/data/.ssh/id_rsa"}) {
            FILE *fp = fopen((root + f).c_str(), "w");
            fputs("x", fp);
            fclose(fp);
        }
        symlink((root + "/other").c_str(), (root + "/data/out").c_str());
        symlink((root + "/other/secret").c_str(), (root + "/data/link.txt").c_str());
    }
    ~TrustDir() { std::system(("rm -rf " + root).c_str()); }
};
bool Serves(const docsql::Trust &t, const std::string &path, bool write = false) {
    std::string why;
    return docsql::MayServe(t, path, write, why);
}
}  // namespace

TEST(Trust, PathNamedAsAWholeWord) {
    using docsql::NamedInStatement;
    EXPECT_TRUE(NamedInStatement("INSERT INTO t VALUES ('format(ascii):/home/u/a.txt')", "/home/u/a.txt"));
    EXPECT_TRUE(NamedInStatement("SELECT GetDoc(body, '/tmp/o.txt') FROM t", "/tmp/o.txt"));
    EXPECT_TRUE(NamedInStatement("INSERT INTO t VALUES ('/tmp/it''s.txt')", "/tmp/it's.txt"));
    EXPECT_FALSE(NamedInStatement("INSERT INTO t VALUES ('/home/u/a.txt')", "/home/u/a.tx"));
    EXPECT_FALSE(NamedInStatement("INSERT INTO t VALUES ('/home/u/a.txt')", "/u/a.txt"));
    EXPECT_FALSE(NamedInStatement("SELECT * FROM v", "/home/u/.bashrc"));
    EXPECT_FALSE(NamedInStatement("SELECT 1", ""));
}

TEST(Trust, LiteralsNamePrefixes) {
    auto d = docsql::NamedDirectories("INSERT INTO t SELECT ('format(ascii):/data/' || id || '.txt')::doc FROM ids");
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0], "/data/");
    d = docsql::NamedDirectories("SELECT PutClientFile(p, '/out/doc' || n) FROM x");
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0], "/out/doc");
    EXPECT_TRUE(docsql::NamedDirectories("SELECT '/' || x").empty());
    EXPECT_TRUE(docsql::NamedDirectories("SELECT 'a/' || x").empty());
}

TEST(Trust, DirectoryRuleStaysInTheDirectory) {
    TrustDir td;
    docsql::Trust t;
    t.statement = "INSERT INTO t SELECT ('format(ascii):" + td.root + "/data/' || id)::doc FROM ids";
    EXPECT_TRUE(Serves(t, td.root + "/data/1.txt"));
    EXPECT_FALSE(Serves(t, td.root + "/data/../other/secret"));
    // Hidden files and directories under a prefix are served only when
    // named whole.
    EXPECT_FALSE(Serves(t, td.root + "/data/.hidden"));
    EXPECT_FALSE(Serves(t, td.root + "/data/.ssh/id_rsa"));
    EXPECT_FALSE(Serves(t, td.root + "/data/./1.txt"));
    t.statement += " UNION SELECT 'format(ascii):" + td.root + "/data/.hidden'";
    EXPECT_TRUE(Serves(t, td.root + "/data/.hidden"));  // named whole
    EXPECT_FALSE(Serves(t, td.root + "/data/out/secret"));   // a directory link out of it
    EXPECT_FALSE(Serves(t, td.root + "/data/link.txt"));     // a file link out of it
    EXPECT_FALSE(Serves(t, td.root + "/other/secret"));
    // A statement that reads the directory writes nothing in it.
    EXPECT_FALSE(Serves(t, td.root + "/data/new.txt", true));
    EXPECT_FALSE(Serves(t, td.root + "/data/1.txt", true));
    t.statement = "SELECT dt_Export(body, '" + td.root + "/data/' || id) FROM t";
    EXPECT_TRUE(Serves(t, td.root + "/data/new.txt", true));
    EXPECT_FALSE(Serves(t, td.root + "/data/out/new.txt", true));
    EXPECT_FALSE(Serves(t, td.root + "/data/link.txt", true));  // never replaces a link
}

TEST(Trust, OnlyTheArgumentsOfAWritingFunctionMayBeWritten) {
    TrustDir td;
    docsql::Trust t;
    std::string src = td.root + "/data/1.txt";
    // The user's INSERT names its file to be read; a trigger of another
    // role that pushes to it must not replace it.
    t.statement = "INSERT INTO t VALUES (1, 'format(ascii):" + src + "')";
    EXPECT_TRUE(Serves(t, src));
    EXPECT_FALSE(Serves(t, src, true));
    std::string why;
    EXPECT_FALSE(docsql::MayServe(t, src, true, why));
    EXPECT_NE(why.find("no function that writes client files"), std::string::npos) << why;
    // Read in one place, written in another: only the writer's argument.
    t.statement = "SELECT GetDoc(body, '" + td.root + "/other') FROM t WHERE body = 'format(ascii):" + src + "'";
    EXPECT_FALSE(Serves(t, src, true));
    EXPECT_TRUE(Serves(t, td.root + "/other/1.txt", true));
    EXPECT_EQ("(body, '" + td.root + "/other')\n", docsql::WriterArguments(t.statement));
    // Any case, qualified or quoted names; a word that only ends in a
    // writer's name is not one.
    EXPECT_EQ("('a', 'b')\n", docsql::WriterArguments("select public.PUTCLIENTFILE ('a', 'b')"));
    EXPECT_EQ("(d, 'x(y)')\n", docsql::WriterArguments("select \"dt_export\"(d, 'x(y)')"));
    EXPECT_EQ("", docsql::WriterArguments("select my_getdoc(d, 'x')"));
    EXPECT_EQ("", docsql::WriterArguments("select 'getdoc(d, x)'::text"));
    t.trustServer = true;
    EXPECT_TRUE(Serves(t, src, true));
}

TEST(Trust, AllowDirAndTrustServer) {
    TrustDir td;
    docsql::Trust t;
    t.statement = "SELECT * FROM v";
    EXPECT_FALSE(Serves(t, td.root + "/other/secret"));
    t.allowDirs = {td.root + "/other"};
    EXPECT_TRUE(Serves(t, td.root + "/other/secret"));
    EXPECT_FALSE(Serves(t, td.root + "/data/1.txt"));
    t.allowDirs.clear();
    t.trustServer = true;
    EXPECT_TRUE(Serves(t, td.root + "/data/1.txt"));
}

TEST(Trust, LiteralNamingAnExistingDirectory) {
    TrustDir td;
    docsql::Trust t;
    t.statement = "SELECT GetDoc(body, '" + td.root + "/data') FROM t";
    EXPECT_TRUE(Serves(t, td.root + "/data/new.txt", true));
    EXPECT_FALSE(Serves(t, td.root + "/other/new.txt", true));
    EXPECT_FALSE(Serves(t, td.root + "/data/out/new.txt", true));
    t.statement = "SELECT GetDoc(body, '" + td.root + "/nosuchdir') FROM t";
    EXPECT_FALSE(Serves(t, td.root + "/nosuchdir/new.txt", true));
}

TEST(Trust, ExtensionAddedToANamedPath) {
    TrustDir td;
    docsql::Trust t;
    t.statement = "SELECT dt_Export(body, '" + td.root + "/data/back') FROM t";
    EXPECT_TRUE(Serves(t, td.root + "/data/back.16403", true));
    EXPECT_FALSE(Serves(t, td.root + "/data/back.d/x", true));
    EXPECT_FALSE(Serves(t, td.root + "/data/backup", true));
}

// Long loops of the core stop when the installed poll function raises, the
// term structures and the weighing of a document stay fast on documents of
// many distinct terms, and server files are read only when regular and
// only up to the document limit.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "docdesc.h"
#include "error.h"
#include "exprnodes.h"
#include "interrupt.h"
#include "querydoc.h"
#include "queryparse.h"
#include "rankfit.h"
#include "ranking.h"
#include "regularfile.h"
#include "stripstem.h"
#include "termtable.h"
#include "wordhash.h"
#include "textlex_fixture.h"

using namespace dt;

namespace {

int polls = 0;
int cancel_after = -1;

void CountingPoll() {
    polls++;
    if (cancel_after >= 0 && polls > cancel_after) throw Error::User("canceling statement due to user request", "57014");
}

struct PollScope {
    PollScope(int after) {
        polls = 0;
        cancel_after = after;
        SetInterruptPoll(&CountingPoll);
    }
    ~PollScope() { SetInterruptPoll(nullptr); }
};

// "w0 w1 w2 ..." : n distinct words.
std::string DistinctWords(int n) {
    std::string s;
    for (int i = 0; i < n; i++) {
        s += 'w';
        int v = i;
        // Letters only, so that each is one token.
        do {
            s += (char)('a' + v % 26);
            v /= 26;
        } while (v);
        s += ' ';
    }
    return s;
}

}  // namespace

TEST(InterruptPoll, NoPollFunctionDoesNothing) {
    SetInterruptPoll(nullptr);
    EXPECT_NO_THROW(PollInterrupts());
}

TEST(InterruptPoll, ReadingADocumentPollsAndStops) {
    textlex::TempFile f(DistinctWords(5000));
    StemHooks none;
    {
        PollScope scope(-1);
        DocDescPtr d = _dt_PrepareUnixDoc(f.path.c_str(), none);
        EXPECT_EQ(d->doc_hashentries(), 5000);
        EXPECT_GE(polls, 5000) << "a poll for every word at least";
    }
    PollScope scope(100);
    try {
        _dt_PrepareUnixDoc(f.path.c_str(), none);
        FAIL() << "not cancelled";
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "57014");
    }
    EXPECT_EQ(polls, 101);
}

TEST(InterruptPoll, TextsTermTablesAndQueriesPoll) {
    std::string text = DistinctWords(3000);
    StemHooks none;
    int cnt = 0;
    {
        PollScope scope(10);
        EXPECT_THROW(_dt_StripAndStemText(text, &cnt, none), Error);
    }
    WordHash h;
    for (const std::string &w : _dt_StripAndStemText(text, &cnt, none)) _dt_AddWordToHash(w.c_str(), h);
    {
        PollScope scope(10);
        EXPECT_THROW(WriteTermTable(h), Error);
    }
    TermTableBytes t = WriteTermTable(h);
    {
        PollScope scope(10);
        WordHash back;
        EXPECT_THROW(ReadTermTable(t.head.data(), h.hashentries, t.strings.data(), t.strings.size(), back), Error);
    }
    {
        PollScope scope(10);
        EXPECT_THROW(MakeQueryFromDoc(h), Error);
    }
    {
        PollScope scope(10);
        EXPECT_THROW(_dt_SortHash(h), Error);
    }
}

TEST(InterruptPoll, ParsingALongQueryPolls) {
    std::string query;
    for (int i = 0; i < 3000; i++) query += i ? " or w" + std::to_string(i) : "w0";
    QueryStemmer plain;
    ExprArena a;
    PollScope scope(10);
    EXPECT_THROW(_dt_MakeExprTree(a, plain, 0, query.c_str(), nullptr), Error);
}

namespace {
// One document matched by n distinct leaves of an OR chain (a query made
// from a document of n distinct terms, ranked against that document).
struct OneDocManyLeaves {
    ExprArena arena;
    DocExprNode *root = nullptr;
    ResultTable table;
    explicit OneDocManyLeaves(int n) {
        table.entries.push_back(ResultEntry{MakeRowKey(0, 1), (uint32_t)n, 0, (uint32_t)n, 0.0});
        for (int i = 0; i < n; i++) {
            DocExprNode *leaf = Word(arena, "w" + std::to_string(i));
            leaf->node_querycnt = 1;
            leaf->node_doccnt = 1;
            leaf->node_wordcnt = 1;
            root = root ? Node(arena, EXPR_OR, root, leaf) : leaf;
            table.hits.push_back(TermHit{leaf, 1});
        }
    }
};
}  // namespace

TEST(InterruptPoll, WeighingOneDocumentOfManyTermsIsLinearAndPolls) {
    // A lookup of each hit's leaf along the leaves seen so far made this
    // quadratic (minutes for a million terms) with one poll per document.
    const int n = 100000;
    OneDocManyLeaves d(n);
    {
        PollScope scope(-1);
        auto start = std::chrono::steady_clock::now();
        GetDocWeights(d.table, d.root, n, 1);
        double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LT(secs, 1.0) << "weighing one document of " << n << " matched terms";
        EXPECT_GE(polls, n / 4096) << "polls while going through one document's hits";
        EXPECT_GT(d.table.entries[0].weight, 0.0);
    }
    PollScope scope(5);
    EXPECT_THROW(GetDocWeights(d.table, d.root, n, 1), Error);
    FitData data;
    EXPECT_THROW(AddAnswer(data, d.table, d.root, n, 1, [](RowKey) { return true; }), Error);
}

TEST(WordHashSpeed, ManyDistinctTermsAddFindAndSort) {
    // 200,000 distinct terms: the chains of the 97 buckets hold thousands
    // each; adding, finding and sorting must not walk them.
    const int n = 200000;
    std::vector<std::string> words;
    std::string text = DistinctWords(n);
    for (size_t p = 0, q; (q = text.find(' ', p)) != std::string::npos; p = q + 1) words.push_back(text.substr(p, q - p));
    auto start = std::chrono::steady_clock::now();
    WordHash h;
    for (const std::string &w : words) _dt_AddWordToHash(w.c_str(), h);
    for (const std::string &w : words) _dt_AddWordToHash(w.c_str(), h);
    EXPECT_EQ(h.hashentries, n);
    EXPECT_EQ(h.wordcnt, 2 * n);
    for (int i = 0; i < n; i += 997) EXPECT_EQ(WordHashFind(h, words[i].data(), words[i].size())->hashw_cnt, 2);
    _dt_SortHash(h);
    std::vector<std::string> sorted = words;
    std::sort(sorted.begin(), sorted.end());
    int i = 0;
    RewindTerms(h);
    while (DtWordHash *e = _dt_NextTerm(h)) {
        ASSERT_EQ(e->hashw_word, sorted[i]) << i;
        i++;
    }
    EXPECT_EQ(i, n);
    // Found through the index also after the sort moved every chain.
    EXPECT_EQ(WordHashFind(h, words[12345].data(), words[12345].size())->hashw_cnt, 2);
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // A sanity bound only (quadratic work took minutes); speed is measured
    // in bench/.
    EXPECT_LT(secs, 20.0);
}

TEST(ServerFileScan, StopsAtTheDocumentLimit) {
    // The limit of a scan is the largest document; a smaller one here, so
    // that a file can pass it.
    textlex::TempFile f(DistinctWords(2000));
    DocDesc d;
    d.doc_maxbytes = 4096;
    try {
        _dt_InitDocDesc(d, f.path.c_str(), UnixDocType, 0);
        while (_dt_GetWordFromDoc(d)) {
        }
        FAIL() << "read past the limit";
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "54000");
        EXPECT_NE(e.message().find("longer than the largest document (4096 bytes)"), std::string::npos) << e.message();
    }
}

TEST(ServerFileScan, OnlyRegularFilesOpen) {
    long long size = -1;
    std::string why;
    textlex::TempFile f("some text\n");
    int fd = OpenRegularFile(f.path, &size, &why);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(size, 10);
    close(fd);
    EXPECT_EQ(OpenRegularFile("/dev/zero", &size, &why), -1);
    EXPECT_EQ(why, "it is a character device, not a regular file");
    EXPECT_EQ(OpenRegularFile("/tmp", &size, &why), -1);
    EXPECT_EQ(why, "it is a directory, not a regular file");
    EXPECT_EQ(OpenRegularFile("/nonexistent/x", &size, &why), -1);
    EXPECT_EQ(why, "No such file or directory");
    // A FIFO without a writer: refused at once, not waited on.
    std::string fifo = f.path + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(OpenRegularFile(fifo, &size, &why), -1);
    EXPECT_EQ(why, "it is a FIFO, not a regular file");
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 5.0);
    // A symbolic link to a device is the device.
    std::string link = f.path + ".link";
    ASSERT_EQ(symlink("/dev/zero", link.c_str()), 0);
    EXPECT_EQ(OpenRegularFile(link, &size, &why), -1);
    EXPECT_EQ(why, "it is a character device, not a regular file");
    unlink(fifo.c_str());
    unlink(link.c_str());
}

TEST(ServerFileScan, LongRunsWithoutWhiteSpaceReadFast) {
    // Text, 30 MB of control bytes (no white space: dropped a few bytes at
    // a time behind the kept ones), then text again.
    std::string bytes = "cats and dogs\n";
    bytes.append(30u << 20, '\x01');
    bytes += " zebra mango \n";
    textlex::TempFile f(bytes);
    StemHooks none;
    auto start = std::chrono::steady_clock::now();
    DocDescPtr d = _dt_PrepareUnixDoc(f.path.c_str(), none);
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::vector<std::string> terms;
    RewindTerms(d->doc_wordhashtab);
    while (DtWordHash *e = _dt_NextTerm(d->doc_wordhashtab)) terms.push_back(e->hashw_word);
    std::sort(terms.begin(), terms.end());
    EXPECT_EQ(terms, (std::vector<std::string>{"and", "cats", "dogs", "mango", "zebra"}));
    // A sanity bound only: this took seconds per 10 MB before.
    EXPECT_LT(secs, 5.0);
}

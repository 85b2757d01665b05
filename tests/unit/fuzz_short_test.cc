// Short runs of the fuzz targets (tests/fuzz/fuzz_targets.h): a few thousand
// generated inputs per target with a fixed seed, so every build checks the
// invariants the long libFuzzer runs check.  Inputs are made of the
// parser's own vocabulary mixed with random bytes, and for the binary
// layouts, of real values with a few bytes changed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "../fuzz/fuzz_targets.h"

namespace {

struct InvariantBroken : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void ThrowOnFail(const char *what, const char *file, int line) {
    throw InvariantBroken(std::string(file) + ":" + std::to_string(line) + ": " + what);
}

std::string Hex(const std::string &s) {
    static const char *d = "0123456789abcdef";
    std::string out;
    for (unsigned char c : s) {
        out += d[c >> 4];
        out += d[c & 15];
    }
    return out;
}

using Target = void (*)(const uint8_t *, size_t);

// Runs the target over the inputs; the first broken invariant or crash by
// exception fails the test with the input that caused it.
// Standard error is silenced meanwhile: the syntax check of a format
// specification reports on it.
struct QuietStderr {
    int saved;
    QuietStderr() {
        fflush(stderr);
        saved = dup(2);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 2);
        close(null);
    }
    ~QuietStderr() {
        fflush(stderr);
        dup2(saved, 2);
        close(saved);
    }
};

void RunAll(Target target, const std::vector<std::string> &inputs) {
    QuietStderr quiet;
    dtfuzz::FailHook() = ThrowOnFail;
    for (const std::string &in : inputs) {
        try {
            target(reinterpret_cast<const uint8_t *>(in.data()), in.size());
        } catch (const InvariantBroken &e) {
            dtfuzz::FailHook() = nullptr;
            FAIL() << e.what() << "\ninput (hex): " << Hex(in);
        } catch (const std::exception &e) {
            dtfuzz::FailHook() = nullptr;
            FAIL() << "unexpected exception: " << e.what() << "\ninput (hex): " << Hex(in);
        }
    }
    dtfuzz::FailHook() = nullptr;
}

// Inputs of tokens from the vocabulary and random bytes.
std::vector<std::string> Generate(uint32_t seed, int count, const std::vector<std::string> &vocab,
                                  size_t maxTokens, int randomPercent = 15) {
    std::mt19937 rng(seed);
    std::vector<std::string> out;
    out.push_back("");
    for (int i = 1; i < count; i++) {
        size_t n = rng() % (maxTokens + 1);
        std::string s;
        for (size_t k = 0; k < n; k++) {
            if ((int)(rng() % 100) < randomPercent)
                s += (char)(rng() % 256);
            else
                s += vocab[rng() % vocab.size()];
        }
        out.push_back(s);
    }
    return out;
}

// Changes up to `edits` bytes of s (overwrite, insert or delete).
std::string Mutate(std::mt19937 &rng, std::string s, int edits) {
    for (int e = 0; e < edits; e++) {
        int kind = rng() % 3;
        size_t at = s.empty() ? 0 : rng() % s.size();
        if (kind == 0 && !s.empty())
            s[at] = (char)(rng() % 256);
        else if (kind == 1)
            s.insert(s.begin() + at, (char)(rng() % 256));
        else if (!s.empty())
            s.erase(at, 1);
    }
    return s;
}

const std::vector<std::string> kSpecVocab = {
    "format", "(", ")", ",", ",,", " ", ":", "ascii", "wp", "version", "5.1", "ExpandLimit",
    "NoCopyText", "ExternalFile", "a", "_", "\t", "((", "))", "/", "x", "\x01"};

TEST(FuzzShort, FormatSpec) {
    std::vector<std::string> in = Generate(1, 4000, kSpecVocab, 24);
    // Lists whose element to delete is present.
    std::mt19937 rng(11);
    for (int i = 0; i < 1000; i++) {
        std::vector<std::string> names = {"format", "version", "a", "NoCopyText", "x"};
        std::string list;
        int n = 1 + rng() % 4;
        for (int k = 0; k < n; k++) {
            if (k) list += (rng() % 4 == 0) ? ",," : ",";
            list += names[rng() % names.size()];
            if (rng() % 2) list += "(" + std::string(rng() % 3, 'v') + (rng() % 5 == 0 ? "(y)" : "") + ")";
        }
        in.push_back(names[rng() % names.size()] + "\x01" + Mutate(rng, list, rng() % 2));
    }
    RunAll(dtfuzz::FormatSpec, in);
}

TEST(FuzzShort, DocLiteral) {
    std::vector<std::string> vocab = kSpecVocab;
    vocab.insert(vocab.end(), {"/home/me/a.txt", "hello world ", "\n", "Dog cats the "});
    RunAll(dtfuzz::DocLiteral, Generate(2, 3000, vocab, 20));
}

TEST(FuzzShort, DocValue) {
    std::mt19937 rng(3);
    std::vector<std::string> in;
    for (int i = 0; i < 3000; i++) {
        std::string lit = (rng() % 2 ? "format(ascii):" : "") + std::string("/p/") + std::string(rng() % 9, 'n');
        dt::DocHeader h = dt::filldtname(lit);
        std::string text(rng() % 40, 't');
        std::string v;
        switch (rng() % 4) {
            case 0: v = dt::MakeSmallDocValue(h, text); break;
            case 1: v = dt::MakeLODocValue(h, "16384", 120, true, 4, 3); break;
            case 2: v = dt::MakeLODocValue(h, "16384", 120, false, 4, 3); break;
            default: v = dt::MakeExternalDocValue(h, "/srv/x", 77); break;
        }
        in.push_back('\0' + Mutate(rng, v, rng() % 4));
    }
    for (int i = 0; i < 500; i++) {
        std::string s(rng() % 64, '\0');
        for (char &c : s) c = (char)(rng() % 256);
        in.push_back(s);
    }
    // The target's own construction: literal, text, edits.
    std::vector<std::string> vocab = kSpecVocab;
    vocab.insert(vocab.end(), {"\x01", "16384", "EXT:/srv/a", "hello "});
    for (const std::string &s : Generate(33, 1000, vocab, 16)) in.push_back(std::string(1, (char)(2 * (rng() % 8) + 1)) + s);
    RunAll(dtfuzz::DocValue, in);
}

TEST(FuzzShort, TermTable) {
    std::mt19937 rng(4);
    std::vector<std::string> in;
    const char *words[] = {"dog", "cat", "house", "a", "zebra", "run", "q", "moon", "sun", "tree", "x"};
    for (int i = 0; i < 2000; i++) {
        dt::WordHash h;
        int n = rng() % 30;
        for (int k = 0; k < n; k++) {
            std::string w = std::string(words[rng() % 11]) + std::to_string(rng() % 20);
            dt::_dt_AddWordToHash(w.c_str(), h);
        }
        dt::TermTableBytes t = dt::WriteTermTable(h);
        int count = h.hashentries + 20;  // the raw form subtracts 20
        std::string s(1, '\0');
        s += (char)(count >> 8);
        s += (char)(count & 255);
        s += t.head + t.strings;
        int edits = i < 200 ? 0 : rng() % 3;
        if (edits && rng() % 4 == 0) {
            // Another entry count for the same bytes.
            int c = rng() % 700;
            s[1] = (char)(c >> 8);
            s[2] = (char)(c & 255);
        } else {
            s = s.substr(0, 3) + Mutate(rng, s.substr(3), edits);
        }
        in.push_back(s);
    }
    // The target's own construction: words, then edits of the table.
    for (int i = 0; i < 1000; i++) {
        std::string s = "\x01";
        s += (char)(rng() % 5 - 2);
        int n = rng() % 20;
        for (int k = 0; k < n; k++) s += std::string(words[rng() % 11]) + std::to_string(rng() % 9) + " ";
        s += "\x01";
        int e = i < 100 ? 0 : rng() % 3;
        for (int k = 0; k < 4 * e; k++) s += (char)(rng() % 256);
        in.push_back(s);
    }
    RunAll(dtfuzz::TermTable, in);
}

const std::vector<std::string> kTextVocab = {
    "The", "the ", "dogs", "Dog", " ", "\n", "\t", "(", ")", "!", "cat_1", "9lives", "x", "é", "\xff",
    "a", "run", "-", ".", ",", "word", "Words ", "\r\n", "\0"};

TEST(FuzzShort, Tokenizer) {
    std::vector<std::string> in = Generate(5, 3000, kTextVocab, 60);
    in.push_back(std::string(1024, 'a'));
    in.push_back(std::string(1025, 'a'));
    in.push_back("x " + std::string(1025, 'b') + " y");
    RunAll(dtfuzz::Tokenizer, in);
}

TEST(FuzzShort, DocBuffer) {
    std::vector<std::string> in = Generate(6, 1500, kTextVocab, 700);
    std::mt19937 rng(66);
    // Runs without white space around the buffer size, and words across it.
    for (int i = 0; i < 40; i++) {
        std::string s(1, (char)rng());
        s += std::string(1000 + rng() % 3000, 'w');
        s += " tail end ";
        s += std::string(rng() % 2100, 'v');
        s += rng() % 2 ? " " : "";
        in.push_back(s);
    }
    RunAll(dtfuzz::DocBuffer, in);
}

TEST(FuzzShort, Query) {
    std::vector<std::string> vocab = {"dog", "cats", "the", "of", " ", "&", "|", "!", "(", ")", "~",
                                      "\"", "'", "*", ",", "=10", "%50", "=", "%", "|", "-", "0",
                                      "and", "or", "not", "near", "\t", "9", "x", ".", ":"};
    RunAll(dtfuzz::Query, Generate(7, 3000, vocab, 30));
}

TEST(FuzzShort, Command) {
    std::vector<std::string> vocab = {"lpr", " ", "-P", "%s", "'", "\"", "%", "s", "x y", "\x01", "\t", "''"};
    RunAll(dtfuzz::Command, Generate(8, 3000, vocab, 16));
}

TEST(FuzzShort, Splitter) {
    std::vector<std::string> vocab = {"SELECT 1", ";", "'", "''", "E'", "\\", "\"", "$$", "$a$", "$1", "--",
                                      "\n", "/*", "*/", "(", ")", " ", "x", "\\d", "e'", "$", "a$"};
    RunAll(dtfuzz::Splitter, Generate(9, 4000, vocab, 30));
}

TEST(FuzzShort, Base64) {
    std::vector<std::string> vocab = {"QUJD", "QQ==", "QUI=", "=", "==", "A", "/", "+", "-", "_", "\n", "Zm9v"};
    std::vector<std::string> in = Generate(10, 4000, vocab, 12, 5);
    RunAll(dtfuzz::Base64, in);
}

TEST(FuzzShort, PostingList) {
    std::vector<std::string> vocab = {"\x01", "\x03", "\x10", "\x80", "\xff", "\x7f", "\x81\x01", "\x00", "\xff\xff\xff",
                                      "\x05\x01\x02"};
    RunAll(dtfuzz::PostingList, Generate(11, 4000, vocab, 24));
}

}  // namespace

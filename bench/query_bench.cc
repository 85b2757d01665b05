// Speed of the query core on real text: WordNet noun glosses as documents,
// queries parsed, rewritten and evaluated lazily against every gloss.
// Words are folded to lower case and not stemmed (the stemmer is not part of
// this measurement).  Usage: query_bench [data.noun] [results file]
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "exprtree.h"
#include "querydoc.h"
#include "queryeval.h"
#include "tokenizer.h"
#include "wordhash.h"

using namespace dt;
using Clock = std::chrono::steady_clock;

namespace {
double Ms(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double, std::milli>(b - a).count();
}

// A document's terms, read lazily by LazyWordLookup.
struct Doc {
    std::vector<std::string> terms;
};

std::vector<std::string> Terms(const QueryStemmer &st, const std::string &text) {
    std::vector<std::string> out;
    int idx = 0;
    for (;;) {
        std::string tok = _dt_WordFromString(text.c_str(), &idx);
        if (tok.empty()) break;
        std::string term;
        if (StemToken(st, tok, &term)) out.push_back(term);
    }
    return out;
}
}  // namespace

int main(int argc, char **argv) {
    std::string path = argc > 1 ? argv[1] : "/usr/share/wordnet/data.noun";
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    QueryStemmer st;  // lower case, no stemming, no stop words
    std::vector<Doc> docs;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == ' ') continue;  // licence header
        size_t bar = line.find(" | ");
        if (bar == std::string::npos) continue;
        docs.push_back({Terms(st, line.substr(bar + 3) + " ")});
    }
    const char *queries[] = {
        "animal and !plant",
        "water or river or sea",
        "(person or people) and (city or town) and !war",
        "!(the or a)",
        "music and instrument",
    };
    std::string report;
    char buf[256];
    std::snprintf(buf, sizeof buf, "documents: %zu WordNet noun glosses\n", docs.size());
    report += buf;
    for (const char *q : queries) {
        auto t0 = Clock::now();
        ExprArena arena;
        DocExprNode *tree = ContainsQuery(arena, st, q);
        size_t hits = 0, read = 0, total = 0;
        for (const Doc &d : docs) {
            WordHash seen;
            size_t pos = 0;
            DocTermSource src;
            src.isWordInDoc = [&](const std::string &w) {
                return LazyWordLookup(seen, [&](std::string *t) {
                    if (pos >= d.terms.size()) return false;
                    *t = d.terms[pos++];
                    return true;
                }, w);
            };
            hits += QueryMatches(tree, src);
            read += pos;
            total += d.terms.size();
        }
        auto t1 = Clock::now();
        std::snprintf(buf, sizeof buf, "%-50s %7zu hits  %8.1f ms  %5.1f%% of terms read\n", q, hits,
                      Ms(t0, t1), total ? 100.0 * read / total : 0.0);
        report += buf;
    }
    // Parsing and rewriting alone.
    auto t0 = Clock::now();
    const int n = 200000;
    for (int i = 0; i < n; i++) {
        ExprArena arena;
        ContainsQuery(arena, st, "(person or people) and (city or town) and !war");
    }
    auto t1 = Clock::now();
    std::snprintf(buf, sizeof buf, "parse + rewrite of a 5-word query: %.2f us each\n", Ms(t0, t1) * 1000.0 / n);
    report += buf;
    std::cout << report;
    if (argc > 2) std::ofstream(argv[2]) << report;
    return 0;
}

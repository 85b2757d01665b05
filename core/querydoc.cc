#include "querydoc.h"

#include <cctype>
#include <climits>
#include <cstdlib>

#include "charclass.h"
#include "tokenizer.h"
#include "interrupt.h"

namespace dt {

namespace {

DocExprNode *AddToOrChain(ExprArena &arena, DocExprNode *tree, DocExprNode *leaf) {
    if (!tree) return leaf;
    DocExprNode *n = NewExprNode(arena, EXPR_OR, "or");
    n->node_left = tree;
    n->node_right = leaf;
    return n;
}

}  // namespace

bool StemToken(const QueryStemmer &stemmer, const std::string &token, std::string *term) {
    if (token.empty() || token[0] == '(' || token[0] == ')' || token[0] == '!') return false;
    std::string lower = FoldCase(token);
    if (stemmer.isStopWord && stemmer.isStopWord(lower)) return false;
    bool isStop = false;
    std::string stem = stemmer.stemWord ? stemmer.stemWord(lower, &isStop) : lower;
    if (isStop) return false;
    *term = std::move(stem);
    return true;
}

DocExprNode *_dt_MakeExprFromStr(ExprArena &arena, const QueryStemmer &stemmer, const char *str,
                                 int id) {
    (void)id;
    if (!str) return nullptr;
    DocExprNode *tree = nullptr;
    bool seen = false;
    int idx = 0;
    for (;;) {
        PollInterrupts();
        std::string tok = _dt_WordFromString(str, &idx);
        if (tok.empty()) break;
        seen = true;
        std::string term;
        if (!StemToken(stemmer, tok, &term)) continue;
        int weight = 1;
        const char *p = str + idx;
        if (p[0] == ':' && std::isdigit((unsigned char)p[1])) {
            char *end = nullptr;
            long v = std::strtol(p + 1, &end, 10);
            weight = v > INT_MAX ? INT_MAX : (int)v;
            idx = (int)(end - str);
        }
        DocExprNode *leaf = _dt_MakeStemmedExprNode(arena, term, EXPR_WORD);
        leaf->node_querycnt = weight;
        tree = AddToOrChain(arena, tree, leaf);
    }
    if (!tree && seen) return NewExprNode(arena, EXPR_STOPWORD, "");
    return tree;
}

DocExprNode *_dt_MakeExprFromDoc(ExprArena &arena, WordHash &doc) {
    RewindTerms(doc);
    DocExprNode *tree = nullptr;
    while (DtWordHash *e = _dt_NextTerm(doc)) {
        PollInterrupts();
        std::string stem = e->hashw_word.substr(0, kMaxWordLen - 1);
        DocExprNode *leaf = _dt_MakeStemmedExprNode(arena, stem, EXPR_WORD);
        leaf->node_querycnt = e->hashw_cnt;
        tree = AddToOrChain(arena, tree, leaf);
    }
    return tree;
}

std::string MakeQueryFromDoc(WordHash &doc) {
    // Size first, as the text is written in one piece.
    RewindTerms(doc);
    size_t len = 2;
    int terms = 0;
    while (DtWordHash *e = _dt_NextTerm(doc)) {
        PollInterrupts();
        len += e->hashw_word.size() + 1 + std::to_string(e->hashw_cnt).size();
        terms++;
    }
    if (terms > 1) len += (size_t)(terms - 1) * 4;
    std::string out;
    out.reserve(len);
    out += '(';
    RewindTerms(doc);
    bool first = true;
    while (DtWordHash *e = _dt_NextTerm(doc)) {
        PollInterrupts();
        if (!first) out += " or ";
        first = false;
        out += e->hashw_word;
        out += ':';
        out += std::to_string(e->hashw_cnt);
    }
    out += ')';
    return out;
}

}  // namespace dt

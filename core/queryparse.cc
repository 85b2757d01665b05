#include "queryparse.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "error.h"
#include "interrupt.h"
#include "tokenizer.h"

namespace dt {

namespace {

// The next token, copied out of the tokenizer's static buffer.
std::string NextToken(const char *str, int *idx) { return std::string(_dt_WordFromString(str, idx)); }

// A decimal count at str + *idx when it reads ':' then a digit; moves *idx
// past the digits.  Counts beyond the range of int are clamped.
bool ReadCount(const char *str, int *idx, int *count) {
    const char *p = str + *idx;
    if (p[0] != ':' || !std::isdigit((unsigned char)p[1])) return false;
    char *end = nullptr;
    errno = 0;
    long v = std::strtol(p + 1, &end, 10);
    if (v > INT_MAX) v = INT_MAX;
    *count = (int)v;
    *idx = (int)(end - str);
    return true;
}

DocExprNode *ParseOperand(ExprArena &arena, const QueryStemmer &stemmer, int parencnt,
                          const char *str, int *idx) {
    std::string tok = NextToken(str, idx);
    // The end of the text is an error only as the operand's first token;
    // after a run of "!" whatever follows is taken as the operand.
    if (tok.empty()) ErrorRaise("XD00I");
    bool negate = false;
    while (tok == "!") {
        negate = !negate;
        tok = NextToken(str, idx);
    }
    DocExprNode *operand;
    if (tok == "(") {
        operand = _dt_MakeExprTree(arena, stemmer, parencnt + 1, str, idx);
    } else {
        operand = _dt_MakeExprNode(arena, stemmer, tok, EXPR_WORD);
        int count;
        if (ReadCount(str, idx, &count)) operand->node_querycnt = count;
    }
    if (!negate) return operand;
    DocExprNode *n = NewExprNode(arena, EXPR_NOT, "!");
    n->node_right = operand;
    return n;
}

// XD00K for a word where an operator belongs.  When the word before it was
// a stop word ("not", "but"), the user most likely meant it as an operator.
[[noreturn]] void RaiseUnknownOperator(const std::string &tok, const DocExprNode *last) {
    std::string hint;
    if (last && last->node_op == EXPR_STOPWORD && !last->node_word.empty())
        hint = "\"" + last->node_word + "\" is a stop word, which queries leave out, not an operator; write ! "
               "before a word to leave out the documents that have it: and !" + tok;
    else
        hint = "Join words with and, or or andnot; write ! before a word to negate it.";
    ErrorRaiseVA("XD00K", "OP%s", tok, "HINT%s", hint);
}

}  // namespace

DocExprNode *_dt_MakeExprTree(ExprArena &arena, const QueryStemmer &stemmer, int parencnt,
                              const char *str, int *index) {
    if (parencnt > kMaxQueryNesting) RaiseQueryTooDeep();
    int local = 0;
    int *idx = index ? index : &local;
    DocExprNode *tree = ParseOperand(arena, stemmer, parencnt, str, idx);
    const DocExprNode *last = tree;  // the operand just read
    for (;;) {
        PollInterrupts();
        std::string tok = NextToken(str, idx);
        if (tok.empty()) {
            if (parencnt > 0) ErrorRaise("XD00J");
            return tree;
        }
        if (tok == ")") {
            if (parencnt == 0) ErrorRaise("XD00J");
            return tree;
        }
        int op;
        if (tok.compare(0, 3, "and") == 0)
            op = EXPR_AND;
        else if (tok.compare(0, 2, "or") == 0)
            op = EXPR_OR;
        else
            RaiseUnknownOperator(tok, last);
        DocExprNode *right = ParseOperand(arena, stemmer, parencnt, str, idx);
        last = right;
        DocExprNode *n = _dt_MakeExprNode(arena, stemmer, tok, op);
        n->node_left = tree;
        n->node_right = right;
        tree = n;
    }
}

}  // namespace dt

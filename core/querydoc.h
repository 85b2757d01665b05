// Queries made of word lists and of documents.
//
// Both give a left-deep chain of OR nodes over WORD leaves, each leaf
// weighted by node_querycnt.  MakeQueryFromDoc writes a document's terms out
// as a query string: "(dog:2 or cat:1)".
#pragma once

#include <string>

#include "exprtree.h"
#include "wordhash.h"

namespace dt {

// The term of one token of a word list or document: false for "(", ")",
// "!" and stop words; otherwise the lower-cased word's stem in *term (false
// too when the stemmer reports a stop word).
bool StemToken(const QueryStemmer &stemmer, const std::string &token, std::string *term);

// The tree of a word list (after its options prefix): "dogs:3 cats" gives
// (dog or cat) weighted 3 and 1.  Only stop words and punctuation give one
// EXPR_STOPWORD node with an empty word (every document); no token at all
// gives null (no document).  id is accepted and not used.
DocExprNode *_dt_MakeExprFromStr(ExprArena &arena, const QueryStemmer &stemmer, const char *str,
                                 int id = 0);

// The tree of a document's terms, in the order of its word hash, each
// weighted by its count; null for a document without terms.  Restarts the
// hash's term iteration.  Stems are cut to 1023 characters.
DocExprNode *_dt_MakeExprFromDoc(ExprArena &arena, WordHash &doc);

// The document's terms as a query string, "(stem:count or ...)" in word-hash
// order; "()" for a document without terms.
std::string MakeQueryFromDoc(WordHash &doc);

}  // namespace dt

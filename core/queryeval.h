// Evaluating a query against one document, and the queries of the three
// search operators.
//
// Evaluation needs only one thing of a document: whether a term occurs in
// it.  The document layer answers that lazily, reading the document only as
// far as the question needs (LazyWordLookup below is that scan over a word
// hash and a stream of terms).  A query that needs no document at all (null:
// nothing matches; ALL: everything matches) is decided without asking.
#pragma once

#include <functional>
#include <string>

#include "exprtree.h"
#include "wordhash.h"

namespace dt {

// A document as evaluation sees it.
struct DocTermSource {
    // Whether the term (a stem) occurs in the document.
    std::function<bool(const std::string &term)> isWordInDoc;
};

// Evaluates a rewritten tree against a document: 1 or 0.  WORD asks the
// document (and sets node_doccnt to 1 when found); AND, OR and ANDNOT
// evaluate the right operand only when the left one does not decide; ALL is
// 1.  Any other kind raises XD00B "OP%d".  Weights play no part.
int _dt_DocExprCmp(DocExprNode *expr, const DocTermSource &doc);

// The result of a search operator for a document: a null tree is 0 without
// asking the document, otherwise _dt_DocExprCmp.
bool QueryMatches(DocExprNode *tree, const DocTermSource &doc);

// The scan behind a document's term test.  seen holds the terms read so
// far; nextTerm reads the document's next term into *term and returns false
// at its end.  The word is looked up in seen; when missing, terms are read
// and added to seen until the word turns up (true) or the document ends
// (false).  Later lookups find earlier terms without reading.
bool LazyWordLookup(WordHash &seen, const std::function<bool(std::string *term)> &nextTerm,
                    const std::string &word);

// The queries of the search operators, rewritten and ready to evaluate;
// null means that no document matches.
//   Contains(doc, query):        the query language
//   ContainsWords(doc, words):   options prefix skipped, then a word list
//   DocLike(doc, other):         the other document's terms, or'ed
DocExprNode *ContainsQuery(ExprArena &arena, const QueryStemmer &stemmer, const char *query);
DocExprNode *ContainsWordsQuery(ExprArena &arena, const QueryStemmer &stemmer, const char *words);
DocExprNode *DocLikeQuery(ExprArena &arena, WordHash &other);

}  // namespace dt

// Diagnostic text of a query expression tree.
//
//   null              "emptry tree" (so spelled)
//   AND, OR, ANDNOT   "(" left "and " | "or " | "andnot " right ")"
//   NOT               "!" operand
//   STOPWORD, ALL, NONE   "STOPWORD ", "ALL ", "NONE "
//   WORD              the word and a blank, the word cut to 99 characters
//
// "dog and !cat" rewritten prints "(dog andnot cat )".
#pragma once

#include <string>

#include "exprtree.h"

namespace dt {

// The text of a tree, as printed (without the final newline).
std::string ExprTreeText(const DocExprNode *root);

// Prints the tree to standard output; PrintExprTree adds a newline.
int _dt_PrintExprTree(const DocExprNode *root);
int PrintExprTree(const DocExprNode *root);

// A node word as printed: copied into a static 100-byte buffer, cut to 99
// characters.
char *_dt_PrintWord(const std::string &word);

}  // namespace dt

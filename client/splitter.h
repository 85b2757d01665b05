// Splitting SQL text into statements the way psql does: a semicolon ends a
// statement unless it is inside a quoted string ('...', E'...' with
// backslash escapes), a quoted identifier ("..."), a dollar-quoted string
// ($$...$$, $tag$...$tag$), a comment (-- to the end of the line, nested
// /* ... */) or parentheses.  Text after the last semicolon is a statement
// too.  Statements holding only blanks and comments are dropped.
#pragma once

#include <string>
#include <vector>

namespace docsql {

struct Statement {
    std::string text;  // without the ending semicolon
    int line = 1;      // line of its first character in the input
    bool meta = false; // a backslash command (to the end of its line)
    bool complete = true;  // ended by its semicolon (or a backslash command);
                           // false for text after the last semicolon
};

std::vector<Statement> SplitStatements(const std::string &input);

}  // namespace docsql

// Text of PostScript files: the words a PostScript program shows are the
// contents of its string literals.
//
// psparse reads PostScript as written by hand or by most drivers: every
// outermost string is followed by a space, inner parentheses are kept.
// dviparse reads PostScript made from DVI (dvips), where each string follows
// the letter of a positioning operator that tells whether a word or a line
// begins, and where the font's positions of ligatures and quotation marks
// appear as octal escapes.
#pragma once

#include <cstdio>

namespace dt {

// Writes the text of the string literals of PostScript read from source.
void psparse(FILE *source, FILE *dest);

// Writes the text of PostScript produced from DVI.
void dviparse(FILE *source, FILE *dest);

// Extracts the text of the PostScript file src into the file dst
// (truncated), by dviparse when dvi_file is non-zero, else by psparse.
// Returns 1, or 0 when either file cannot be opened.
int cvps2ascii(const char *src, const char *dst, int dvi_file);

}  // namespace dt

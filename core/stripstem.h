// Turning free text into stemmed terms (StripAndStemText, OrTerms,
// AndTerms and the words of AddIndexTerms).
#pragma once

#include <string>
#include <vector>

#include "docdesc.h"

namespace dt {

// The stems of a text in text order, duplicates kept.  A word followed by
// ':' and digits keeps that suffix ("dog:3"); the character right after the
// digits is skipped as well.  *cnt counts every token the tokenizer gave,
// punctuation tokens and stop words included.
std::vector<std::string> _dt_StripAndStemText(const std::string &input, int *cnt,
                                              const StemHooks &hooks);

// The stems joined by one blank, and `bool_op` ("or ", "and ") after each
// blank when given: "dog or cat:2 or mouse".  No stems: the empty text.
std::string _dt_InternalStripAndStemText(const std::string &input, const char *bool_op,
                                         const StemHooks &hooks);

}  // namespace dt

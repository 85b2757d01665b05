// The one tokenizer for documents, queries, word lists and the stop-word file.
#pragma once

namespace dt {

// The longest word the tokenizer accepts.
constexpr int kMaxWordLen = 1024;

// Returns the next token of buf from buf[*index] and advances *index past
// it: a word (a letter, then letters, digits and '_'), one of the tokens
// "(", ")" and "!", or "" at the end of buf.  Every other character is
// skipped, so a word never begins with a digit or '_'.  Case is kept.
// Letters and digits are those of charclass.h: with the server's charset
// installed, the letters of the database encoding, a character (of one or
// more bytes) at a time.  The length limit counts bytes.
// The result lives in one static buffer that the next call overwrites.
// A word longer than 1024 characters raises XD00L.
char *_dt_WordFromString(const char *buf, int *index);

}  // namespace dt

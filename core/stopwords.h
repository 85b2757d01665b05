// The stop-word set: words that are never indexed and never searched for.
//
// The set is read from a plain text file: every word the tokenizer finds in
// it is a stop word, stored exactly as written (no case folding, no
// stemming), while every lookup is made with a lower-case word, so a word
// written with a capital letter in the file never matches.  A word listed
// twice is one stop word with count 2.
//
// The server keeps one set per process, loaded on first use and never
// reloaded: later edits of the file reach only new processes.
#pragma once

#include <string>

#include "wordhash.h"

namespace dt {

// Reads a stop-word file into a fresh hash (XD00H when it cannot be opened).
void LoadStopWordFile(const std::string &path, WordHash &into);

// True when s, byte for byte, is in the set.
bool IsStopWordIn(const WordHash &set, const char *s);

// Where the process-wide set comes from: a function returning the file's
// path (it may raise, e.g. when the module has no home).
using StopWordPathFn = std::string (*)();
void SetStopWordPathProvider(StopWordPathFn fn);

// True when s is in the process-wide set; loads the set on first use.  A
// failed load raises and is retried by the next call.
bool _dt_IsStopWord(const char *s);

// The process-wide set, or nullptr while it is not loaded.
const WordHash *ProcessStopWords();
// Loads the process-wide set now if it is not loaded yet.
const WordHash &EnsureProcessStopWords();

}  // namespace dt

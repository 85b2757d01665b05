// A tiny lexicon for the text-analysis unit tests: a handful of base forms,
// irregular forms and stop words made here, standing in for the WordNet
// tables only in these tests (the SQL suites use the real tables).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>

#include <unistd.h>

#include "docdesc.h"
#include "morph.h"

namespace textlex {

struct Lexicon {
    std::set<std::string> bases{"box", "church", "bus", "happy", "dog", "cat", "mouse", "glass",
                                "watch", "walk", "tie", "hope", "nice", "stop", "be"};
    std::map<std::string, std::string> exceptions{{"mice", "mouse"}, {"geese", "goose"}};
    std::set<std::string> stops{"the", "is", "as", "and", "a", "of"};

    dt::MorphLexicon Morph() const {
        dt::MorphLexicon m;
        m.isBaseForm = [this](const char *w) { return bases.count(w) > 0; };
        m.exception = [this](const char *w, std::string &base) {
            auto it = exceptions.find(w);
            if (it == exceptions.end()) return false;
            base = it->second;
            return true;
        };
        m.isStopWord = [this](const char *w) { return stops.count(w) > 0; };
        return m;
    }
};

// Stem hooks over a lexicon (kept alive by the caller).
struct Hooks {
    dt::MorphLexicon morph;
    dt::StemHooks hooks;
    explicit Hooks(const Lexicon &lex) : morph(lex.Morph()) {
        hooks.isStopWord = morph.isStopWord;
        hooks.stemWord = [this](const char *w, std::string &stem) {
            char isStop = 0;
            stem = dt::_dt_StemWord(morph, w, &isStop);
            return !isStop;
        };
    }
};

// A scratch file with the given bytes, removed at the end of the test.
struct TempFile {
    std::string path;
    explicit TempFile(const std::string &bytes) {
        char name[] = "/tmp/dt_textXXXXXX";
        int fd = mkstemp(name);
        if (fd < 0) std::abort();
        path = name;
        size_t off = 0;
        while (off < bytes.size()) {
            ssize_t n = write(fd, bytes.data() + off, bytes.size() - off);
            if (n <= 0) std::abort();
            off += (size_t)n;
        }
        close(fd);
    }
    ~TempFile() { unlink(path.c_str()); }
};

}  // namespace textlex

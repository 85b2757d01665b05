#include "stopwords.h"

#include <cstring>
#include <memory>

#include "docdesc.h"
#include "error.h"

namespace dt {

namespace {
StopWordPathFn path_provider = nullptr;
// Process lifetime: loaded once, never freed.
WordHash *process_set = nullptr;
}  // namespace

void LoadStopWordFile(const std::string &path, WordHash &into) {
    auto doc = std::make_unique<DocDesc>();
    _dt_InitDocDesc(*doc, path.c_str(), UnixDocType, 0);
    while (const char *w = _dt_GetStopWordFromDoc(*doc)) _dt_AddStopWordToHash(w, *doc);
    _dt_FreeDocDesc(*doc);
    into = std::move(doc->doc_wordhashtab);
}

bool IsStopWordIn(const WordHash &set, const char *s) {
    return WordHashFind(set, s, std::strlen(s)) != nullptr;
}

void SetStopWordPathProvider(StopWordPathFn fn) { path_provider = fn; }

const WordHash &EnsureProcessStopWords() {
    if (!process_set) {
        if (!path_provider)
            User_ErrorRaise("the stop-word list has no location", "58P01");
        std::string path = path_provider();
        auto set = std::make_unique<WordHash>();
        LoadStopWordFile(path, *set);
        process_set = set.release();
    }
    return *process_set;
}

bool _dt_IsStopWord(const char *s) {
    // The argument may be the tokenizer's buffer, which loading reuses:
    // keep a copy and put it back after loading.
    if (!process_set) {
        std::string saved(s);
        const WordHash &set = EnsureProcessStopWords();
        if (saved != s) std::memcpy(const_cast<char *>(s), saved.c_str(), saved.size() + 1);
        return IsStopWordIn(set, s);
    }
    return IsStopWordIn(*process_set, s);
}

const WordHash *ProcessStopWords() { return process_set; }

}  // namespace dt

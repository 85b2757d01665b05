// SQL functions of words: IsStopWord, StemWord, StripAndStemText, OrTerms,
// AndTerms, reading a server file as a document (dt_FileTerms), and views
// of the stop-word set, the stem cache and the WordNet state.
#include <cctype>
#include <string>
#include <vector>

#include "boundary.h"
#include "charclass.h"
#include "docdesc.h"
#include "stopwords.h"
#include "stripstem.h"
#include "tokenizer.h"
#include "wordnet.h"

extern "C" {
#include "catalog/pg_authid.h"
#include "funcapi.h"
#include "miscadmin.h"
#include "utils/acl.h"
#include "utils/tuplestore.h"

PG_FUNCTION_INFO_V1(pgdoc_IsStopWord);
PG_FUNCTION_INFO_V1(pgdoc_StemWord);
PG_FUNCTION_INFO_V1(pgdoc_StripAndStemText);
PG_FUNCTION_INFO_V1(pgdoc_OrTerms);
PG_FUNCTION_INFO_V1(pgdoc_AndTerms);
PG_FUNCTION_INFO_V1(pgdoc_dt_FileTerms);
PG_FUNCTION_INFO_V1(pgdoc_dt_StopWords);
PG_FUNCTION_INFO_V1(pgdoc_dt_StemCacheStats);
PG_FUNCTION_INFO_V1(pgdoc_dt_WordnetIsOpen);
PG_FUNCTION_INFO_V1(pgdoc_dt_MorphWord);
}

namespace {

void Lower(std::string &s) { s = dt::FoldCase(s); }


// Stems and joins a text with the WordNet tables open for the time of it.
Datum StripJoin(FunctionCallInfo fcinfo, const char *bool_op) {
    std::string input = dt::pg::TextArg(fcinfo, 0);
    dt::pg::_dt_OpenWordnet();
    std::string out = dt::_dt_InternalStripAndStemText(input, bool_op, dt::pg::ServerStemHooks());
    dt::pg::_dt_CloseWordnet();
    return dt::pg::TextResult(out);
}

// Starts a materialized set result.
ReturnSetInfo *StartRows(FunctionCallInfo fcinfo) {
    dt::pg::ServerCall([&] { InitMaterializedSRF(fcinfo, 0); });
    return (ReturnSetInfo *)fcinfo->resultinfo;
}

void PutTermRow(ReturnSetInfo *rsinfo, const std::string &word, int count) {
    const char *w = word.data();
    int len = (int)word.size();
    dt::pg::ServerCall([&] {
        Datum values[2] = {PointerGetDatum(cstring_to_text_with_len(w, len)), Int32GetDatum(count)};
        bool nulls[2] = {false, false};
        tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
    });
}

}  // namespace

// IsStopWord(word): whether the lower-cased word is in the stop-word list.
Datum pgdoc_IsStopWord(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string w = dt::pg::TextArg(fcinfo, 0);
        if (w.size() > 1023) dt::ErrorRaise("XD00L");
        // The word ends at its first NUL, as a C string would.
        w = w.c_str();
        Lower(w);
        return BoolGetDatum(dt::_dt_IsStopWord(w.c_str()));
    });
}

// StemWord(word): a base form or stop word comes back as given; any other
// word as its stem, in lower case.
Datum pgdoc_StemWord(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string given = dt::pg::TextArg(fcinfo, 0);
        std::string w = given.c_str();
        if (w.size() > (size_t)dt::kMaxWordLen) dt::ErrorRaise("XD00L");
        Lower(w);
        dt::pg::_dt_OpenWordnet();
        dt::StemResult r = dt::pg::StemOneWord(w.c_str());
        dt::pg::_dt_CloseWordnet();
        return dt::pg::TextResult(r.lookupHit ? given : r.stem);
    });
}

Datum pgdoc_StripAndStemText(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return StripJoin(fcinfo, nullptr); });
}

Datum pgdoc_OrTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return StripJoin(fcinfo, "or "); });
}

Datum pgdoc_AndTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return StripJoin(fcinfo, "and "); });
}

// dt_FileTerms(path): the terms of a server file read as a document, with
// their counts, in the order of the document's word hash.  Naming a server
// file needs the rights COPY FROM a file needs.
Datum pgdoc_dt_FileTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        bool allowed = dt::pg::ServerCall([] {
            return superuser() || has_privs_of_role(GetUserId(), ROLE_PG_READ_SERVER_FILES);
        });
        if (!allowed)
            throw dt::Error::User("permission denied to read a server file as a document", "42501",
                                  "Only superusers and members of pg_read_server_files may do this.");
        std::string path = dt::pg::TextArg(fcinfo, 0);
        if (path.find('\0') != std::string::npos || path.empty())
            dt::ErrorRaiseVA("XD00H", "FILENAME%s", path.c_str());
        dt::pg::_dt_OpenWordnet();
        dt::DocDescPtr doc = dt::_dt_PrepareUnixDoc(path.c_str(), dt::pg::ServerStemHooks());
        dt::pg::_dt_CloseWordnet();
        ReturnSetInfo *rsinfo = StartRows(fcinfo);
        while (dt::DtWordHash *e = dt::_dt_NextTerm(*doc)) {
            dt::pg::CheckInterrupts();
            PutTermRow(rsinfo, e->hashw_word, e->hashw_cnt);
        }
        return (Datum)0;
    });
}

// dt_StopWords(): the stop-word set of this process, (word, count).
Datum pgdoc_dt_StopWords(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const dt::WordHash &set = dt::EnsureProcessStopWords();
        ReturnSetInfo *rsinfo = StartRows(fcinfo);
        for (int i = 0; i < dt::kHashBuckets; i++)
            for (dt::DtWordHash *e = set.heads[i]; e; e = e->hashw_next) {
                dt::pg::CheckInterrupts();
                PutTermRow(rsinfo, e->hashw_word, e->hashw_cnt);
            }
        return (Datum)0;
    });
}

// dt_StemCacheStats(): entries, hits, misses and resets of the stem cache.
Datum pgdoc_dt_StemCacheStats(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        dt::pg::StemCacheCounters c = dt::pg::StemCacheStats();
        return dt::pg::ServerCall([&] {
            TupleDesc desc;
            if (get_call_result_type(fcinfo, nullptr, &desc) != TYPEFUNC_COMPOSITE)
                elog(ERROR, "dt_StemCacheStats must return a record");
            desc = BlessTupleDesc(desc);
            Datum values[4] = {Int64GetDatum(c.entries), Int64GetDatum(c.hits),
                               Int64GetDatum(c.misses), Int64GetDatum(c.resets)};
            bool nulls[4] = {false, false, false, false};
            return HeapTupleGetDatum(heap_form_tuple(desc, values, nulls));
        });
    });
}

// dt_WordnetIsOpen(): whether the WordNet tables are open right now.
Datum pgdoc_dt_WordnetIsOpen(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return BoolGetDatum(dt::pg::WordnetIsOpen()); });
}

// dt_MorphWord(word): the morphological reduction alone (exceptions, then
// the detachment rules), without the base-form test that StemWord makes
// first; and whether the accepted form is a stop word.
Datum pgdoc_dt_MorphWord(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string w = dt::pg::TextArg(fcinfo, 0).c_str();
        if (w.size() > (size_t)dt::kMaxWordLen) dt::ErrorRaise("XD00L");
        Lower(w);
        dt::pg::_dt_OpenWordnet();
        char isStop = 0;
        std::string stem = dt::pg::MorphOneWord(w.c_str(), &isStop);
        dt::pg::_dt_CloseWordnet();
        text *t = dt::pg::StringToText(stem);
        return dt::pg::ServerCall([&] {
            TupleDesc desc;
            if (get_call_result_type(fcinfo, nullptr, &desc) != TYPEFUNC_COMPOSITE)
                elog(ERROR, "dt_MorphWord must return a record");
            desc = BlessTupleDesc(desc);
            Datum values[2] = {PointerGetDatum(t), BoolGetDatum(isStop != 0)};
            bool nulls[2] = {false, false};
            return HeapTupleGetDatum(heap_form_tuple(desc, values, nulls));
        });
    });
}

// A document's terms for the index, the module's errors raised from the
// C-style code of the access method, and opening an index by name.
#include "dtree_internal.h"

extern "C" {
#include "access/relation.h"
#include "catalog/namespace.h"
#include "catalog/pg_am.h"
#include "commands/defrem.h"
#include "utils/lsyscache.h"
#include "utils/regproc.h"
#include "utils/varlena.h"
}

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "boundary.h"
#include "docscan.h"
#include "doclayout.h"
#include "error.h"

void DtGetDocTerms(Datum value, DtDocTerms *out) {
    dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::ServerCall([&] { return (const void *) PG_DETOAST_DATUM(value); });
        std::vector<std::pair<std::string, int>> terms;
        int64 total = 0;
        {
            dt::pg::DocScanPtr scan = dt::pg::_dt_MakeDocDesc(v, true);
            dt::WordHash &hash = scan->desc->doc_wordhashtab;
            dt::RewindTerms(hash);
            while (dt::DtWordHash *t = dt::_dt_NextTerm(hash)) {
                terms.emplace_back(t->hashw_word, t->hashw_cnt);
                total += t->hashw_cnt;
            }
        }
        std::sort(terms.begin(), terms.end());
        int32 stored = dt::DocView(v).ht_wordcnt();
        int n = (int) terms.size();
        dt::pg::ServerCall([&] {
            out->nterms = n;
            out->terms = (char **) palloc(sizeof(char *) * (n + 1));
            out->lens = (int *) palloc(sizeof(int) * (n + 1));
            out->counts = (int32 *) palloc(sizeof(int32) * (n + 1));
        });
        for (int i = 0; i < n; i++) {
            const std::string &w = terms[i].first;
            char *c = dt::pg::ServerCall([&] { return (char *) palloc(w.size() + 1); });
            std::copy(w.begin(), w.end(), c);
            c[w.size()] = 0;
            out->terms[i] = c;
            out->lens[i] = (int) w.size();
            out->counts[i] = terms[i].second;
        }
        out->total = total;
        out->wordcnt = stored > 0 ? (uint32) stored : (uint32) total;
        return (Datum) 0;
    });
}

void DtFreeDocTerms(DtDocTerms *t) {
    for (int i = 0; i < t->nterms; i++) pfree(t->terms[i]);
    pfree(t->terms);
    pfree(t->lens);
    pfree(t->counts);
}

void DtRaiseInt(const char *code, const char *name, long long value) {
    dt::pg::PendingError pe;
    {
        dt::Error e = name ? dt::Error(code, {{name, std::to_string(value)}}) : dt::Error(code, {});
        dt::pg::FillPending(pe, e);
    }
    dt::pg::RaisePending(pe);
}

void DtRaiseStr(const char *code, const char *name, const char *value) {
    dt::pg::PendingError pe;
    {
        dt::Error e = name ? dt::Error(code, {{name, value}}) : dt::Error(code, {});
        dt::pg::FillPending(pe, e);
    }
    dt::pg::RaisePending(pe);
}

void DtRaiseUser(const char *text) {
    dt::pg::PendingError pe;
    {
        dt::Error e = dt::Error::User(text);
        dt::pg::FillPending(pe, e);
    }
    dt::pg::RaisePending(pe);
}

bool DtIsDtreeIndex(Relation rel) {
    if (rel->rd_rel->relkind != RELKIND_INDEX) return false;
    Oid am = get_index_am_oid("dtree", true);
    return OidIsValid(am) && rel->rd_rel->relam == am;
}

static Relation DtCheckOpened(Relation rel, const char *relname) {
    char *name = pstrdup(relname);
    if (rel->rd_rel->relkind != RELKIND_INDEX && rel->rd_rel->relkind != RELKIND_PARTITIONED_INDEX) {
        relation_close(rel, NoLock);
        DtRaiseStr("LI003", "TABLE_NAME", name);
    }
    if (!DtIsDtreeIndex(rel)) {
        relation_close(rel, NoLock);
        DtRaiseUser("index not a dtree index");
    }
    return rel;
}

// Runs inside ServerCall.
Relation DtOpenIndexByName(text *name, LOCKMODE lock) {
    char *s = text_to_cstring(name);
    List *names = stringToQualifiedNameList(s);
    Oid relid = RangeVarGetRelid(makeRangeVarFromNameList(names), lock, true);
    if (!OidIsValid(relid)) {
        dt::pg::PendingError pe;
        {
            dt::Error e("L0002", {{"OBJECT", "index"}, {"OBJ_NAME", s}});
            dt::pg::FillPending(pe, e);
        }
        dt::pg::RaisePending(pe);
    }
    return DtCheckOpened(relation_open(relid, NoLock), s);
}

Relation DtOpenIndexByOid(Oid relid, LOCKMODE lock) {
    Relation rel = try_relation_open(relid, lock);
    if (!rel) {
        char buf[32];
        snprintf(buf, sizeof(buf), "%u", relid);
        dt::pg::PendingError pe;
        {
            dt::Error e("L0002", {{"OBJECT", "index"}, {"OBJ_NAME", buf}});
            dt::pg::FillPending(pe, e);
        }
        dt::pg::RaisePending(pe);
    }
    return DtCheckOpened(rel, RelationGetRelationName(rel));
}

#include "resultset.h"

#include <algorithm>
#include <iterator>

#include "error.h"
#include "interrupt.h"

namespace dt {

RowSet RowSetAnd(const RowSet &a, const RowSet &b) {
    RowSet out;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

RowSet RowSetOr(const RowSet &a, const RowSet &b) {
    RowSet out;
    out.reserve(a.size() + b.size());
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

RowSet RowSetAndNot(const RowSet &a, const RowSet &b) {
    RowSet out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

namespace {
// Up to this many operands, an OR chain is merged two at a time, from the
// left (each merge linear); a longer one (a whole document's terms) is
// gathered and sorted once, which two at a time would make quadratic.
constexpr size_t kPairwiseOr = 32;

// The operands of the chain of ORs at n, left to right: the left spine of
// ORs is walked without recursion (the terms of a whole document make a
// chain thousands long); an operand is anything but an OR on that spine.
template <typename Node>
std::vector<Node *> OrOperands(Node *n) {
    std::vector<Node *> rights;
    Node *m = n;
    while (m && m->node_op == EXPR_OR) {
        rights.push_back(m->node_right);
        m = m->node_left;
    }
    std::vector<Node *> out;
    out.reserve(rights.size() + 1);
    out.push_back(m);
    for (size_t i = rights.size(); i-- > 0;) out.push_back(rights[i]);
    for (Node *o : out)
        if (!o) ErrorRaiseVA("XD00B", "OP%d", kExprFreed);
    return out;
}

RowSet Eval(const DocExprNode *n, const RowSource &src, int depth) {
    PollInterrupts();
    if (depth > kMaxExprDepth) ErrorRaiseVA("XD00B", "OP%d", n->node_op);
    switch (n->node_op) {
    case EXPR_WORD:
        return src.rowsWithTerm(n->node_word);
    case EXPR_ALL:
        return src.allRows();
    case EXPR_AND: {
        const DocExprNode *first = n->node_left, *second = n->node_right;
        if (src.termCount && src.rowsWithTermAmong && first->node_op == EXPR_WORD &&
            second->node_op == EXPR_WORD && src.termCount(first->node_word) > src.termCount(second->node_word))
            std::swap(first, second);
        RowSet left = Eval(first, src, depth + 1);
        if (left.empty()) return left;
        if (src.rowsWithTermAmong && second->node_op == EXPR_WORD)
            return src.rowsWithTermAmong(second->node_word, left);
        return RowSetAnd(left, Eval(second, src, depth + 1));
    }
    case EXPR_OR: {
        std::vector<const DocExprNode *> operands = OrOperands(n);
        if (operands.size() <= kPairwiseOr) {
            RowSet out = Eval(operands[0], src, depth + 1);
            for (size_t i = 1; i < operands.size(); i++) out = RowSetOr(out, Eval(operands[i], src, depth + 1));
            return out;
        }
        RowSet out;
        for (const DocExprNode *o : operands) {
            RowSet r = Eval(o, src, depth + 1);
            out.insert(out.end(), r.begin(), r.end());
        }
        std::sort(out.begin(), out.end());
        out.erase(std::unique(out.begin(), out.end()), out.end());
        return out;
    }
    case EXPR_ANDNOT: {
        RowSet left = Eval(n->node_left, src, depth + 1);
        if (left.empty()) return left;
        RowSet right = src.rowsWithTermAmong && n->node_right->node_op == EXPR_WORD
                           ? src.rowsWithTermAmong(n->node_right->node_word, left)
                           : Eval(n->node_right, src, depth + 1);
        if (right.empty()) return left;
        return RowSetAndNot(left, right);
    }
    default:
        ErrorRaiseVA("XD00B", "OP%d", n->node_op);
    }
}
}  // namespace

RowSet EvaluateRows(const DocExprNode *tree, const RowSource &src) {
    if (!tree) return {};
    return Eval(tree, src, 0);
}

namespace {

// Appends e (with its hits from `from`) to out; when both is given, the
// hits of the second entry follow and its word count wins.
void PutEntry(ResultTable &out, const ResultTable &from, const ResultEntry &e, const ResultTable *from2,
              const ResultEntry *e2) {
    ResultEntry n = e;
    n.firstHit = (uint32_t)out.hits.size();
    out.hits.insert(out.hits.end(), from.hits.begin() + e.firstHit, from.hits.begin() + e.firstHit + e.nhits);
    if (e2) {
        out.hits.insert(out.hits.end(), from2->hits.begin() + e2->firstHit,
                        from2->hits.begin() + e2->firstHit + e2->nhits);
        n.wordcnt = e2->wordcnt;
    }
    n.nhits = (uint32_t)(out.hits.size() - n.firstHit);
    out.entries.push_back(n);
}

enum class SetOp { kOr, kAnd, kAndNot };

ResultTable Combine(const ResultTable &a, const ResultTable &b, SetOp op) {
    ResultTable out;
    out.entries.reserve(op == SetOp::kOr ? a.entries.size() + b.entries.size() : a.entries.size());
    out.hits.reserve(op == SetOp::kAndNot ? a.hits.size() : a.hits.size() + b.hits.size());
    size_t i = 0, j = 0;
    const auto &ae = a.entries, &be = b.entries;
    while (i < ae.size() && j < be.size()) {
        if ((i & 4095) == 0) PollInterrupts();
        if (ae[i].row < be[j].row) {
            if (op != SetOp::kAnd) PutEntry(out, a, ae[i], nullptr, nullptr);
            i++;
        } else if (be[j].row < ae[i].row) {
            if (op == SetOp::kOr) PutEntry(out, b, be[j], nullptr, nullptr);
            j++;
        } else {
            if (op != SetOp::kAndNot) PutEntry(out, a, ae[i], &b, &be[j]);
            i++;
            j++;
        }
    }
    if (op != SetOp::kAnd)
        for (; i < ae.size(); i++) PutEntry(out, a, ae[i], nullptr, nullptr);
    if (op == SetOp::kOr)
        for (; j < be.size(); j++) PutEntry(out, b, be[j], nullptr, nullptr);
    return out;
}

// The OR of tables, as combining them two at a time from the left would
// give it: a row's hits in the order of the tables, its word count from
// the last table that holds it.
ResultTable CombineOr(const std::vector<ResultTable> &tables) {
    struct Ref {
        RowKey row;
        uint32_t table, entry;
    };
    std::vector<Ref> refs;
    size_t nhits = 0;
    for (uint32_t t = 0; t < tables.size(); t++) {
        for (uint32_t e = 0; e < tables[t].entries.size(); e++) refs.push_back(Ref{tables[t].entries[e].row, t, e});
        nhits += tables[t].hits.size();
    }
    std::sort(refs.begin(), refs.end(), [](const Ref &a, const Ref &b) {
        return a.row != b.row ? a.row < b.row : a.table < b.table;
    });
    ResultTable out;
    out.hits.reserve(nhits);
    size_t k = 0;
    while (k < refs.size()) {
        if ((k & 4095) == 0) PollInterrupts();
        ResultEntry n = tables[refs[k].table].entries[refs[k].entry];
        n.firstHit = (uint32_t)out.hits.size();
        size_t end = k;
        for (; end < refs.size() && refs[end].row == refs[k].row; end++) {
            const ResultTable &from = tables[refs[end].table];
            const ResultEntry &e = from.entries[refs[end].entry];
            out.hits.insert(out.hits.end(), from.hits.begin() + e.firstHit, from.hits.begin() + e.firstHit + e.nhits);
            n.wordcnt = e.wordcnt;
        }
        n.nhits = (uint32_t)(out.hits.size() - n.firstHit);
        out.entries.push_back(n);
        k = end;
    }
    return out;
}

ResultTable Leaf(DocExprNode *leaf, const LeafPostings &postings, bool withHits) {
    ResultTable out;
    out.entries.reserve(postings.size());
    if (withHits) out.hits.reserve(postings.size());
    int64_t wordcnt = 0;
    size_t k = 0;
    while (k < postings.size()) {
        if ((k & 4095) == 0) PollInterrupts();
        size_t end = k + 1;
        while (end < postings.size() && postings[end].row == postings[k].row) end++;
        ResultEntry e{postings[k].row, postings[k].wordcnt, (uint32_t)out.hits.size(), 0, 0.0};
        if (withHits) {
            // The latest posting of a row first, as each one is put in front.
            for (size_t m = end; m-- > k;) {
                out.hits.push_back(TermHit{leaf, postings[m].count});
                wordcnt += postings[m].count;
            }
            e.nhits = (uint32_t)(end - k);
        }
        out.entries.push_back(e);
        k = end;
    }
    if (withHits) {
        leaf->node_doccnt = (int)out.entries.size();
        leaf->node_wordcnt = (int)wordcnt;
    }
    return out;
}

// A word leaf read only for the rows among, with the counts of its whole
// list.
ResultTable WordAmong(DocExprNode *leaf, const RowSet &among, const EntrySource &src) {
    int64_t doccnt = 0, wordcnt = 0;
    ResultTable t = Leaf(leaf, src.postingsOfTermAmong(leaf->node_word, among, &doccnt, &wordcnt), true);
    leaf->node_doccnt = (int)doccnt;
    leaf->node_wordcnt = (int)wordcnt;
    return t;
}

RowSet RowsOf(const ResultTable &t) {
    RowSet rows;
    rows.reserve(t.entries.size());
    for (const ResultEntry &e : t.entries) rows.push_back(e.row);
    return rows;
}

ResultTable EvalEntries(DocExprNode *n, const EntrySource &src, int depth) {
    PollInterrupts();
    if (depth > kMaxExprDepth) ErrorRaiseVA("XD00B", "OP%d", n->node_op);
    switch (n->node_op) {
    case EXPR_WORD:
        return Leaf(n, src.postingsOfTerm(n->node_word), true);
    case EXPR_ALL: {
        ResultTable t = Leaf(n, src.allDocs(), false);
        n->node_doccnt = (int)t.entries.size();
        return t;
    }
    case EXPR_AND: {
        bool rightWord = n->node_right->node_op == EXPR_WORD;
        bool probe = src.rows && src.rows->rowsWithTermAmong && rightWord;
        if (probe && n->node_left->node_op == EXPR_WORD) {
            // Two words: the smaller list and skips through the other give
            // the rows that may hold both, before visibility.
            RowSet both = Eval(n, *src.rows, depth);
            if (both.empty()) return ResultTable();
            if (src.postingsOfTermAmong) {
                ResultTable left = WordAmong(n->node_left, both, src);
                return Combine(left, WordAmong(n->node_right, both, src), SetOp::kAnd);
            }
            probe = false;
        }
        ResultTable left = EvalEntries(n->node_left, src, depth + 1);
        if (left.entries.empty()) return left;
        if (rightWord && src.postingsOfTermAmong) return Combine(left, WordAmong(n->node_right, RowsOf(left), src), SetOp::kAnd);
        if (probe && src.rows->rowsWithTermAmong(n->node_right->node_word, RowsOf(left)).empty()) return ResultTable();
        return Combine(left, EvalEntries(n->node_right, src, depth + 1), SetOp::kAnd);
    }
    case EXPR_OR: {
        std::vector<DocExprNode *> operands = OrOperands(n);
        if (operands.size() <= kPairwiseOr) {
            ResultTable out = EvalEntries(operands[0], src, depth + 1);
            for (size_t i = 1; i < operands.size(); i++)
                out = Combine(out, EvalEntries(operands[i], src, depth + 1), SetOp::kOr);
            return out;
        }
        std::vector<ResultTable> tables;
        tables.reserve(operands.size());
        for (DocExprNode *o : operands) tables.push_back(EvalEntries(o, src, depth + 1));
        return CombineOr(tables);
    }
    case EXPR_ANDNOT: {
        ResultTable left = EvalEntries(n->node_left, src, depth + 1);
        if (left.entries.empty()) return left;  // nothing to take anything from
        ResultTable right = n->node_right->node_op == EXPR_WORD && src.postingsOfTermAmong
                                ? WordAmong(n->node_right, RowsOf(left), src)
                                : EvalEntries(n->node_right, src, depth + 1);
        if (right.entries.empty()) return left;
        return Combine(left, right, SetOp::kAndNot);
    }
    default:
        ErrorRaiseVA("XD00B", "OP%d", n->node_op);
    }
}

}  // namespace

ResultTable EvaluateEntries(DocExprNode *tree, const EntrySource &src) {
    if (!tree) return {};
    return EvalEntries(tree, src, 0);
}

}  // namespace dt

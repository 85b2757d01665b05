#include <algorithm>
#include "printer.h"

#include <cwchar>

namespace docsql {

namespace {

std::vector<std::string> Lines(const std::string &s) {
    std::vector<std::string> out;
    size_t b = 0;
    for (;;) {
        size_t e = s.find('\n', b);
        if (e == std::string::npos) {
            out.push_back(s.substr(b));
            break;
        }
        out.push_back(s.substr(b, e - b));
        b = e + 1;
    }
    return out;
}

std::string Spaces(int n) { return n > 0 ? std::string((size_t)n, ' ') : std::string(); }

std::string Footer(size_t nrows) { return "(" + std::to_string(nrows) + (nrows == 1 ? " row)" : " rows)"); }

std::string Unaligned(const Table &t, const PrintOptions &o) {
    std::string out;
    if (!o.tuplesOnly) {
        for (size_t c = 0; c < t.headers.size(); c++) out += (c ? o.fieldSeparator : "") + t.headers[c];
        out += "\n";
    }
    for (const auto &row : t.rows) {
        for (size_t c = 0; c < row.size(); c++) out += (c ? o.fieldSeparator : "") + (row[c] ? *row[c] : "");
        out += "\n";
    }
    if (!o.tuplesOnly) out += Footer(t.rows.size()) + "\n";
    return out;
}

}  // namespace

int DisplayWidth(const std::string &s) {
    int w = 0;
    std::mbstate_t st{};
    const char *p = s.data();
    size_t left = s.size();
    while (left > 0) {
        wchar_t wc;
        size_t k = std::mbrtowc(&wc, p, left, &st);
        if (k == (size_t)-1 || k == (size_t)-2) {
            // Not valid in the locale: count the byte, resynchronise.
            st = std::mbstate_t{};
            unsigned char c = (unsigned char)*p;
            w += (c & 0xC0) == 0x80 ? 0 : 1;
            p++;
            left--;
            continue;
        }
        if (k == 0) k = 1;
        int cw = wcwidth(wc);
        w += cw < 0 ? 1 : cw;
        p += k;
        left -= k;
    }
    return w;
}

bool IsNumericType(unsigned oid) {
    switch (oid) {
        case 20: case 21: case 23: case 26: case 28: case 29:  // int8 int2 int4 oid xid cid
        case 700: case 701: case 790: case 1700: case 5069:    // float4 float8 money numeric xid8
            return true;
        default:
            return false;
    }
}

std::string CsvField(const std::string &v) {
    if (v.find_first_of(",\"\r\n") == std::string::npos && !v.empty()) return v;
    std::string out = "\"";
    for (char c : v) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

std::string Csv(const Table &t, const PrintOptions &o) {
    std::string out;
    auto line = [&](const std::vector<std::optional<std::string>> &cells) {
        for (size_t c = 0; c < cells.size(); c++) {
            if (c) out += ',';
            if (cells[c]) out += CsvField(*cells[c]);
        }
        out += "\n";
    };
    if (!o.tuplesOnly) {
        std::vector<std::optional<std::string>> head(t.headers.begin(), t.headers.end());
        line(head);
    }
    for (const auto &row : t.rows) line(row);
    return out;
}

// psql's expanded display: a "-[ RECORD n ]" rule, then one line per column.
std::string Expanded(const Table &t, const PrintOptions &o) {
    std::string out;
    if (t.rows.empty()) return o.tuplesOnly ? "" : "(0 rows)\n";
    int namew = 0, valw = 0;
    for (const auto &h : t.headers) namew = std::max(namew, DisplayWidth(h));
    for (const auto &row : t.rows)
        for (const auto &v : row)
            if (v) valw = std::max(valw, DisplayWidth(*v));
    for (size_t r = 0; r < t.rows.size(); r++) {
        if (o.unaligned) {
            if (r) out += "\n";
        } else {
            std::string rule = "-[ RECORD " + std::to_string(r + 1) + " ]";
            int total = namew + 3 + valw;
            int dashes = std::max(0, namew + 1 - (int)rule.size());
            rule += std::string((size_t)dashes, '-') + "+";
            while ((int)rule.size() < total + 1) rule += '-';
            out += rule + "\n";
        }
        for (size_t c = 0; c < t.headers.size(); c++) {
            const auto &v = t.rows[r][c];
            if (o.unaligned) {
                out += t.headers[c] + o.fieldSeparator + (v ? *v : "") + "\n";
            } else {
                out += t.headers[c] + std::string((size_t)(namew - DisplayWidth(t.headers[c])), ' ') + " | " +
                       (v ? *v : "") + "\n";
            }
        }
    }
    return out;
}

std::string FormatTable(const Table &t, const PrintOptions &o) {
    if (o.csv) return Csv(t, o);
    if (o.expanded) return Expanded(t, o);
    if (o.unaligned) return Unaligned(t, o);
    size_t ncol = t.headers.size();
    std::vector<int> width(ncol, 0);
    // Like psql, the headers count even when they are not printed.
    for (size_t c = 0; c < ncol; c++)
        for (const auto &l : Lines(t.headers[c])) width[c] = std::max(width[c], DisplayWidth(l));
    // Cells split into lines once.
    std::vector<std::vector<std::vector<std::string>>> cells;
    for (const auto &row : t.rows) {
        std::vector<std::vector<std::string>> r;
        for (size_t c = 0; c < ncol; c++) {
            r.push_back(Lines(c < row.size() && row[c] ? *row[c] : ""));
            for (const auto &l : r.back()) width[c] = std::max(width[c], DisplayWidth(l));
        }
        cells.push_back(std::move(r));
    }

    std::string out;
    if (!o.tuplesOnly) {
        std::vector<std::vector<std::string>> h;
        size_t hl = 1;
        for (size_t c = 0; c < ncol; c++) {
            h.push_back(Lines(t.headers[c]));
            hl = std::max(hl, h.back().size());
        }
        for (size_t li = 0; li < hl; li++) {
            out += " ";
            for (size_t c = 0; c < ncol; c++) {
                std::string s = li < h[c].size() ? h[c][li] : "";
                int pad = width[c] - DisplayWidth(s);
                out += Spaces(pad / 2) + s + Spaces((pad + 1) / 2);
                bool more = li + 1 < h[c].size();
                if (c + 1 < ncol)
                    out += more ? "+|" : " |", out += " ";
                else
                    out += more ? "+" : " ";
            }
            out += "\n";
        }
        for (size_t c = 0; c < ncol; c++) {
            if (c) out += "+";
            out += std::string((size_t)width[c] + 2, '-');
        }
        out += "\n";
    }
    for (const auto &r : cells) {
        size_t nl = 1;
        for (const auto &cell : r) nl = std::max(nl, cell.size());
        for (size_t li = 0; li < nl; li++) {
            std::string line = " ";
            for (size_t c = 0; c < ncol; c++) {
                bool has = li < r[c].size();
                std::string s = has ? r[c][li] : "";
                int pad = width[c] - DisplayWidth(s);
                bool more = li + 1 < r[c].size();
                bool last = c + 1 == ncol;
                if (t.rightAlign.size() > c && t.rightAlign[c])
                    line += Spaces(pad) + s;
                else
                    line += s + ((last && !more) ? "" : Spaces(pad));
                if (!last)
                    line += more ? "+| " : " | ";
                else if (more)
                    line += "+";
            }
            out += line + "\n";
        }
    }
    if (!o.tuplesOnly) out += Footer(t.rows.size()) + "\n";
    out += "\n";
    return out;
}

}  // namespace docsql

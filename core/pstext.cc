#include "pstext.h"

#include "interrupt.h"

namespace dt {

namespace {

// Drops the rest of a comment line: one read of at most 79 characters.
void SkipCommentLine(FILE *source) {
    char buf[80];
    if (!fgets(buf, sizeof buf, source)) return;
}

// Polls for cancellation every few thousand characters.
struct Poll {
    unsigned n = 0;
    void operator()() {
        if ((++n & 4095u) == 0) PollInterrupts();
    }
};

}  // namespace

void psparse(FILE *source, FILE *dest) {
    int para = 0;        // string nesting depth
    bool last = false;   // a string has just closed
    Poll poll;
    int c;
    while ((c = getc(source)) != EOF) {
        poll();
        switch (c) {
        case '\n':
            last = false;
            break;
        case '%':
            if (para <= 0)
                SkipCommentLine(source);
            else
                putc('%', dest);
            last = false;
            break;
        case '(':
            if (para > 0) putc('(', dest);
            para++;
            break;
        case ')':
            putc(para < 2 ? ' ' : ')', dest);
            // A stray ')' outside every string does not make the depth
            // negative: the next '(' opens an outermost string again.
            if (para > 0) para--;
            last = true;
            break;
        case '\\': {
            if (para <= 0) break;  // outside a string: dropped
            int e = getc(source);
            if (e == EOF) return;
            if (e >= '0' && e <= '7') {
                putc('\\', dest);
                putc(e, dest);
            } else if (e == 'n') {
                putc('\n', dest);
            } else if (e == 't') {
                putc('\t', dest);
            } else {
                putc(e, dest);  // '(', ')', '\\' and anything else
            }
            break;
        }
        default:
            if (para > 0) putc(c, dest);
        }
    }
}

void dviparse(FILE *source, FILE *dest) {
    int prev_ch = '\n';
    int in_paren = 0;
    bool b_flag = false;  // a string has just closed
    bool b_space = true;  // a 'b' string begins a new word
    Poll poll;
    int ch = getc(source);
    while (ch != EOF) {
        poll();
        if (ch == '\n') {
            // A single line break is skipped, inside or outside strings.
            ch = getc(source);
            if (ch == EOF) break;
        }
        if (in_paren == 0) {
            if (ch != '\n') {
                if (ch == '%') {
                    SkipCommentLine(source);
                } else if (ch == '(') {
                    in_paren = 1;
                    if (prev_ch == 'a' || (prev_ch >= 'c' && prev_ch <= 'k') || prev_ch == 'x')
                        putc(' ', dest);
                    else if (prev_ch == 'b' && b_space)
                        putc(' ', dest);
                    else if (prev_ch == 'y')
                        putc('\n', dest);
                    b_space = true;
                } else if (ch == '-') {
                    if (b_flag) {
                        b_flag = false;
                        b_space = false;
                    }
                } else {
                    b_flag = false;
                }
            }
        } else if (ch == '\n') {
            putc(' ', dest);  // a second consecutive line break
        } else if (ch == ')') {
            in_paren--;
            b_flag = true;
        } else if (ch == '\\') {
            int e = getc(source);
            if (e == EOF) break;
            if (e == '(' || e == ')') {
                putc(e, dest);
            } else if (e == '\\') {
                putc('"', dest);
            } else if (e == 'n') {
                putc('\n', dest);
            } else if (e == 't') {
                putc('\t', dest);
            } else if (e >= '1' && e <= '7') {
                putc('\\', dest);
                putc(e, dest);
            } else if (e == '0') {
                int e2 = getc(source);
                if (e2 == EOF) break;
                if (e2 == '1') {
                    int e3 = getc(source);
                    if (e3 == EOF) break;
                    static const char *const lig[] = {"ff", "fi", "fl", "ffi", "ffl"};
                    if (e3 >= '3' && e3 <= '7') {
                        fputs(lig[e3 - '3'], dest);
                    } else {
                        fputs("\\01", dest);
                        putc(e3, dest);
                    }
                    e = e3;
                } else {
                    putc('\\', dest);
                    putc('0', dest);
                    putc(e2, dest);
                    e = e2;
                }
            } else {
                putc(e, dest);
            }
            ch = e;
        } else {
            putc(ch, dest);
        }
        prev_ch = ch;
        ch = getc(source);
    }
}

int cvps2ascii(const char *src, const char *dst, int dvi_file) {
    FILE *in = fopen(src, "r");
    if (!in) return 0;
    FILE *out = fopen(dst, "w");
    if (!out) {
        fclose(in);
        return 0;
    }
    // An interrupt poll may throw: close both files on the way out.
    struct Closer {
        FILE *a, *b;
        ~Closer() {
            fclose(a);
            fclose(b);
        }
    } closer{in, out};
    if (dvi_file)
        dviparse(in, out);
    else
        psparse(in, out);
    return 1;
}

}  // namespace dt

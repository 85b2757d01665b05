#!/usr/bin/env python3
"""Writes N distinct words made of letters only ("qa", "qb", ... "qaab"),
16 to a line, for documents of very many distinct terms.

    tools/distinct_words.py N [FIRST]
"""
import sys


def word(i):
    s = "q"
    while True:
        s += chr(97 + i % 26)
        i //= 26
        if not i:
            return s


def main():
    n = int(sys.argv[1])
    first = int(sys.argv[2]) if len(sys.argv) > 2 else 0
    out = sys.stdout
    for i in range(first, first + n):
        out.write(word(i))
        out.write("\n" if i % 16 == 15 else " ")
    out.write("\n")


if __name__ == "__main__":
    main()

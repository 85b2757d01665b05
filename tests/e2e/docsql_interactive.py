#!/usr/bin/env python3
"""docsql on a terminal, driven through a pseudo-terminal: the prompt,
statements run at their semicolon, continuation lines, backslash commands,
Ctrl-C clearing the line and cancelling a running statement, \\q, history."""
import os, pty, re, select, sys, time

docsql, work = sys.argv[1], sys.argv[2]
db = os.environ.get("PGDATABASE", "postgres")
checks = fails = 0

def result(ok, what, got=""):
    global checks, fails
    checks += 1
    if ok:
        print("ok   " + what)
    else:
        fails += 1
        print("FAIL %s: got [%s]" % (what, got[-400:]))

env = dict(os.environ, HOME=work, TERM="dumb")
pid, fd = pty.fork()
if pid == 0:
    os.execve(docsql, [docsql, "-X"], env)

buf = b""
def expect(pattern, timeout=15):
    """Reads until the pattern shows up; returns (found, text read)."""
    global buf
    end = time.time() + timeout
    rx = re.compile(pattern.encode())
    while time.time() < end:
        m = rx.search(buf)
        if m:
            got, buf = buf[:m.end()], buf[m.end():]
            return True, got.decode(errors="replace")
        r, _, _ = select.select([fd], [], [], 0.2)
        if r:
            try:
                data = os.read(fd, 4096)
            except OSError:
                break
            if not data:
                break
            buf += data
    got, buf = buf, b""
    return False, got.decode(errors="replace")

def send(s):
    os.write(fd, s.encode())

prompt = re.escape(db) + "=# "
ok, got = expect(prompt)
result(ok, "the prompt names the database", got)
send("SELECT 6 * 7 AS answer;\n")
ok, got = expect(prompt)
result(ok and "42" in got and "(1 row)" in got, "a statement runs when its semicolon is typed", got)
send("SELECT 40\n")
ok, got = expect(re.escape(db) + "-# ")
result(ok, "an unfinished statement gets the continuation prompt", got)
send("+ 2;\n")
ok, got = expect(prompt)
result(ok and "42" in got, "the continued statement runs", got)
send("\\dx\n")
ok, got = expect(prompt)
result(ok and "List of installed extensions" in got and "document" in got, "\\dx lists the extension", got)
send("CREATE TABLE pets (id int, body doc);\n")
expect(prompt)
send("\\dt\n")
ok, got = expect(prompt)
result(ok and "pets" in got and "table" in got, "\\dt lists the table", got)
send("\\d pets\n")
ok, got = expect(prompt)
result(ok and "body" in got and "doc" in got, "\\d NAME shows its columns", got)
send("\\df contains\n")
ok, got = expect(prompt)
result(ok and "contains" in got.lower(), "\\df PATTERN lists functions", got)
send("\\x\n")
ok, got = expect(prompt)
result(ok and "Expanded display is on." in got, "\\x turns expanded display on", got)
send("SELECT 1 AS a, 2 AS b;\n")
ok, got = expect(prompt)
result(ok and "RECORD 1" in got, "expanded display shows records", got)
send("\\x\n"); expect(prompt)
send("\\timing\n")
ok, got = expect(prompt)
result(ok and "Timing is on." in got, "\\timing turns timing on", got)
send("SELECT 1;\n")
ok, got = expect(prompt)
result(ok and "Time:" in got, "timing shows each statement's time", got)
send("\\timing\n"); expect(prompt)
send("\\set n 21\n"); expect(prompt)
send("SELECT :n * 2 AS twice, :'n' AS lit;\n")
ok, got = expect(prompt)
result(ok and "42" in got and "21" in got, "\\set variables are substituted", got)
with open(os.path.join(work, "inc.sql"), "w") as f:
    f.write("SELECT 'included' AS what;\n")
send("\\i %s/inc.sql\n" % work)
ok, got = expect(prompt)
result(ok and "included" in got, "\\i runs a file", got)
send("\\?\n")
ok, got = expect(prompt)
result(ok and "\\timing" in got and "\\dt" in got, "\\? lists the commands", got)
send("SELECT 'half typed")
time.sleep(0.3)
send("\x03")
ok, got = expect(prompt)
send("SELECT 5 AS five;\n")
ok2, got2 = expect(prompt)
result(ok and ok2 and "five" in got2 and "half typed" not in got2, "Ctrl-C clears the line being typed", got + got2)
send("SELECT pg_sleep(30);\n")
time.sleep(1.0)
send("\x03")
ok, got = expect(prompt, 10)
result(ok and "57014" in got, "Ctrl-C cancels a running statement and docsql goes on", got)
send("SELECT 'still here' AS s;\n")
ok, got = expect(prompt)
result(ok and "still here" in got, "the session goes on after the cancel", got)
send("\\q\n")
_, status = os.waitpid(pid, 0)
result(os.WIFEXITED(status) and os.WEXITSTATUS(status) == 0, "\\q leaves with status 0", str(status))
hist = os.path.join(work, ".docsql_history")
result(os.path.exists(hist) and "SELECT 6 * 7" in open(hist).read(), "the history is kept in ~/.docsql_history")
print("%d checks, %d failed" % (checks, fails))
sys.exit(1 if fails else 0)

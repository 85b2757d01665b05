# Shared by the client channel's end-to-end scripts (sourced, not run).
# Runs under tools/pgserver.sh: PGHOST etc. point at a private server,
# DOC_BUILD is the build directory, DOC_SERVER_DIR the server's scratch folder.
set -uo pipefail
DOCSQL=$(realpath "${DOC_BUILD:-build}/docsql")
FAILS=0
CHECKS=0
WORK=$(mktemp -d /tmp/docchan.XXXXXX)
chmod 755 "$WORK"
trap 'rm -rf "$WORK"' EXIT

pass() { CHECKS=$((CHECKS + 1)); echo "ok   $*"; }
fail() { CHECKS=$((CHECKS + 1)); FAILS=$((FAILS + 1)); echo "FAIL $*"; }
# check DESCRIPTION COMMAND...: the command must succeed.
check() { local d=$1; shift; if "$@"; then pass "$d"; else fail "$d"; fi; }
# same EXPECTED ACTUAL DESCRIPTION
same() { if [ "$1" = "$2" ]; then pass "$3"; else fail "$3: expected [$1], got [$2]"; fi; }
# has NEEDLE HAYSTACK DESCRIPTION
has() { if [[ "$2" == *"$1"* ]]; then pass "$3"; else fail "$3: [$1] not in [$2]"; fi; }
lacks() { if [[ "$2" != *"$1"* ]]; then pass "$3"; else fail "$3: [$1] found in [$2]"; fi; }
finish() { echo "$CHECKS checks, $FAILS failed"; [ "$FAILS" = 0 ]; }

# The server's temporary directory for the module, private to this run.
SERVER_TMP=$DOC_SERVER_DIR/doctmp
setup_server() {
    mkdir -p "$SERVER_TMP"
    chown postgres: "$SERVER_TMP" 2>/dev/null || true
    psql -X -q -v ON_ERROR_STOP=1 -c "CREATE EXTENSION document" \
        -c "ALTER DATABASE $PGDATABASE SET document.tmpdir = '$SERVER_TMP'" >/dev/null
}
# Each backend keeps its files in SERVER_TMP/document.PID (removed when it
# exits, or by the next backend once it is gone): no file anywhere in the
# tree, and nothing but such directories at the top.
tmp_empty() {
    [ -z "$(find "$SERVER_TMP" -mindepth 1 \( ! -type d -o ! -name 'document.[1-9]*' -o -path "$SERVER_TMP/*/*" \) -print)" ]
}
md5of() { md5sum "$1" | cut -d' ' -f1; }
# docsql, unaligned rows only
q() { "$DOCSQL" -X -qtA "$@"; }

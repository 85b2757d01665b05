#!/usr/bin/env bash
# Runs one command against a private PostgreSQL 15 server.
#
#   tools/pgserver.sh COMMAND [ARG...]
#
# The server lives in a fresh scratch folder (initdb as the postgres user,
# since the server refuses root), listens on a Unix socket in that folder
# only, and is always stopped and removed when the command ends, whether it
# passed or failed.  Two runs at once do not collide: each has its own folder
# and socket.  The command sees PGHOST, PGPORT, PGUSER, PGDATABASE and
# DOC_SERVER_DIR (the scratch folder, readable by the server).
# DOC_KEEP_SERVER=1 keeps the folder for inspection.
set -euo pipefail

PGBIN=${PGBIN:-$(pg_config --bindir)}
if [ ! -x "$PGBIN/initdb" ]; then
    PGBIN=/usr/lib/postgresql/15/bin
fi
if [ "$(id -u)" = 0 ]; then
    as_pg() { runuser -u postgres -- "$@"; }
else
    as_pg() { "$@"; }
fi

work=$(mktemp -d /tmp/docpg.XXXXXX)
chmod 755 "$work"
[ "$(id -u)" = 0 ] && chown postgres: "$work"

stop_server() {
    local rc=$?
    if [ -f "$work/data/postmaster.pid" ]; then
        as_pg "$PGBIN/pg_ctl" -D "$work/data" -m fast -w stop >/dev/null 2>&1 ||
            as_pg "$PGBIN/pg_ctl" -D "$work/data" -m immediate -w stop >/dev/null 2>&1 || true
    fi
    if [ "${DOC_KEEP_SERVER:-0}" = 1 ]; then
        echo "pgserver: kept $work" >&2
    else
        rm -rf "$work"
    fi
    exit $rc
}
trap stop_server EXIT
trap 'exit 130' INT TERM

as_pg "$PGBIN/initdb" -D "$work/data" -A trust -U postgres -E UTF8 --locale=C --no-sync >"$work/initdb.log" 2>&1 || {
    cat "$work/initdb.log" >&2; exit 1; }
cat >>"$work/data/postgresql.conf" <<CONF
listen_addresses = ''
unix_socket_directories = '$work'
port = 5432
fsync = off
max_connections = 40
shared_buffers = 128MB
log_min_messages = warning
CONF
as_pg "$PGBIN/pg_ctl" -D "$work/data" -l "$work/server.log" -w -t 60 start >/dev/null || {
    cat "$work/server.log" >&2; exit 1; }

export PGHOST=$work PGPORT=5432 PGUSER=postgres PGDATABASE=postgres DOC_SERVER_DIR=$work
set +e
"$@"
rc=$?
set -e
exit $rc

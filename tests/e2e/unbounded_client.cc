/* A client that serves a pull without regard to the limit the server
 * gives: it sends BYTES zero bytes whatever the server said, then ends the
 * copy, and prints the statement's outcome as "SQLSTATE message".
 *   unbounded_reads BYTES SQL...   (connection from the PG* environment) */
#include <libpq-fe.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static void quiet(void *arg, const PGresult *res) { (void)arg; (void)res; }

int main(int argc, char **argv) {
    if (argc < 3) return 2;
    long long bytes = atoll(argv[1]);
    PGconn *conn = PQconnectdb("");
    if (PQstatus(conn) != CONNECTION_OK) {
        fprintf(stderr, "%s", PQerrorMessage(conn));
        return 2;
    }
    PQsetNoticeReceiver(conn, quiet, nullptr);
    for (int i = 2; i < argc - 1; i++) PQclear(PQexec(conn, argv[i]));
    if (!PQsendQuery(conn, argv[argc - 1])) return 2;
    static char zeros[8192];
    PGresult *res;
    int rc = 1;
    while ((res = PQgetResult(conn)) != NULL) {
        if (PQresultStatus(res) == PGRES_COPY_IN) {
            for (long long sent = 0; sent < bytes; sent += sizeof zeros)
                if (PQputCopyData(conn, zeros, sizeof zeros) != 1) break;
            PQputCopyEnd(conn, NULL);
        } else if (PQresultStatus(res) == PGRES_FATAL_ERROR) {
            printf("%s %s\n", PQresultErrorField(res, PG_DIAG_SQLSTATE),
                   PQresultErrorField(res, PG_DIAG_MESSAGE_PRIMARY));
            rc = 0;
        } else if (PQresultStatus(res) == PGRES_TUPLES_OK) {
            printf("ok\n");
            rc = 0;
        }
        PQclear(res);
    }
    /* The session is still usable. */
    res = PQexec(conn, "SELECT 'alive'");
    if (PQresultStatus(res) == PGRES_TUPLES_OK) printf("%s\n", PQgetvalue(res, 0, 0));
    PQclear(res);
    PQfinish(conn);
    return rc;
}

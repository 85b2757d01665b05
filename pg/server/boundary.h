// The boundary between the C++ core and the server.
//
// Three rules hold everywhere in the extension:
//  1. No C++ exception crosses a server frame.  Every fmgr entry point (and
//     every callback the server calls, such as access-method callbacks:
//     Guard returns whatever the body returns) runs its body through
//     dt::pg::Guard, which catches dt::Error (and any other C++ exception)
//     and re-raises it with ereport once every C++ object of the body has
//     been destroyed.
//  2. No ereport jumps over a live C++ destructor.  Server calls that can
//     raise are made through dt::pg::ServerCall, which runs them under
//     PG_TRY and turns a server error into a dt::Error carrying the same
//     SQLSTATE, message, detail, hint and context.  The callable given to
//     ServerCall must itself hold no objects with destructors.
//  3. Arguments are read only through the argument helpers below (TextArg,
//     VarlenaArg, Int32Arg, ...): they test for SQL null and detoast inside
//     ServerCall, and copy into C++ objects only afterwards.  A raw
//     PG_GETARG_* or DatumGet*P outside ServerCall is refused by
//     tools/check-boundary.py, which `make check` runs.
//
// After a server error has been caught, the server is in no state for more
// work: locks, buffer pins and other resources of the failed operation are
// released only by the abort of the (sub)transaction.  So from the catch
// until the error is raised again, ServerCall refuses to run anything (it
// throws the caught error again), destructors must not need the server
// (ServerErrorPending() tells them), and Guard raises the caught error even
// if some code swallowed the exception.
//
//   extern "C" Datum findparamtx(PG_FUNCTION_ARGS) {
//       return dt::pg::Guard([&]() -> Datum { ... });
//   }
#pragma once

extern "C" {
#include "postgres.h"
#include "fmgr.h"
#include "miscadmin.h"
#include "utils/builtins.h"
}

#include <exception>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "error.h"

namespace dt::pg {

// Plain data describing an error to raise; no destructors.  Texts longer
// than a field are cut at a character boundary.
struct PendingError {
    char sqlstate[6];
    char message[2048];
    char detail[2048];
    char hint[1024];
    char context[4096];
    // A server error passed through: raised again as the server gave it,
    // with its own context (the context callbacks already ran for it).
    bool server;
    bool output_to_server;
    bool output_to_client;
    bool hide_stmt;
    bool hide_ctx;
    // More of a server error: where it was raised (static strings of the
    // server), the object it names, the internal query it was in.
    const char *filename;
    int lineno;
    const char *funcname;
    char schema_name[NAMEDATALEN];
    char table_name[NAMEDATALEN];
    char column_name[NAMEDATALEN];
    char datatype_name[NAMEDATALEN];
    char constraint_name[NAMEDATALEN];
    char internalquery[1024];
    int internalpos;
    int cursorpos;
};

void FillPending(PendingError &pe, const dt::Error &e);
void FillPending(PendingError &pe, const char *sqlstate, const char *message);
// Raises the pending error; never returns.  Clears the caught-error state.
[[noreturn]] void RaisePending(const PendingError &pe);

// Whether a server error was caught by ServerCall and not raised again yet.
bool ServerErrorPending();
// The caught server error as a dt::Error (for ServerCall's refusal).
dt::Error PendingServerError();

// Runs the body of a function the server calls: an fmgr entry point
// (returning Datum) or any other callback (an access method's, returning
// bool, a pointer, a number or nothing).  A C++ exception, or a server
// error caught on the way, is raised as a server error once the body's
// objects are gone.
template <class F>
auto Guard(F &&body) -> decltype(body()) {
    using R = decltype(body());
    static_assert(std::is_void_v<R> || std::is_trivially_copyable_v<R>, "Guard result must be plain data");
    PendingError pe;
    try {
        if constexpr (std::is_void_v<R>) {
            body();
            // A server error that some code caught and did not pass on
            // still ends the statement: the server must abort to be usable.
            if (ServerErrorPending()) throw PendingServerError();
            return;
        } else {
            R result = body();
            if (ServerErrorPending()) throw PendingServerError();
            return result;
        }
    } catch (const dt::Error &e) {
        FillPending(pe, e);
    } catch (const std::bad_alloc &) {
        FillPending(pe, "53200", "out of memory in the document module");
    } catch (const std::exception &e) {
        FillPending(pe, "XX000", e.what());
    } catch (...) {
        FillPending(pe, "XX000", "unexpected failure in the document module");
    }
    // Every C++ object of the body, and the exception, is gone here.
    RaisePending(pe);
}

// Copies the current server error into a dt::Error (after FlushErrorState)
// and records that a server error is pending.
dt::Error TakeServerError(MemoryContext cxt);

// Runs a server call that may ereport; a server error becomes a dt::Error.
// Refuses (throwing the pending error) while a caught server error is
// pending.
template <class F>
auto ServerCall(F &&f) -> decltype(f()) {
    using R = decltype(f());
    if (ServerErrorPending()) throw PendingServerError();
    MemoryContext cxt = CurrentMemoryContext;
    volatile bool failed = false;
    if constexpr (std::is_void_v<R>) {
        PG_TRY();
        { f(); }
        PG_CATCH();
        { failed = true; }
        PG_END_TRY();
        if (failed) throw TakeServerError(cxt);
    } else {
        // R must be trivially copyable (pointers, Datums, integers).
        static_assert(std::is_trivially_copyable_v<R>, "ServerCall result must be plain data");
        R result{};
        R *volatile slot = &result;
        PG_TRY();
        { *slot = f(); }
        PG_CATCH();
        { failed = true; }
        PG_END_TRY();
        if (failed) throw TakeServerError(cxt);
        return result;
    }
}

// CHECK_FOR_INTERRUPTS for C++ loops: a cancel becomes a dt::Error.
void CheckInterrupts();

// Text helpers (results are palloc'd in the current memory context).
// TextToString needs a detoasted value (from VarlenaArg or TextArg's kin).
std::string TextToString(const text *t);
text *StringToText(const std::string &s);

// ---- arguments ----------------------------------------------------------
// Each reads argument n of the SQL function.  A SQL null raises 22004
// naming the function and the argument: a function that takes null tests
// ArgIsNull first (or uses an ...OrNull form).  Detoasting happens inside
// ServerCall; C++ copies are made only after it.

bool ArgIsNull(FunctionCallInfo fcinfo, int n);
// Raises 22004 for argument n when it is null.
void RequireArg(FunctionCallInfo fcinfo, int n);

// text, varchar, name-like varlena text: the bytes as given.
std::string TextArg(FunctionCallInfo fcinfo, int n);
std::optional<std::string> TextArgOrNull(FunctionCallInfo fcinfo, int n);
// cstring (type input functions).
std::string CStringArg(FunctionCallInfo fcinfo, int n);
// Any varlena argument (doc, bytea, arrays): detoasted with a 4-byte
// header, in server memory (palloc'd, or the argument itself when it
// needed no detoasting).
struct varlena *VarlenaArg(FunctionCallInfo fcinfo, int n);
// bytea: the bytes, copied.
std::string ByteaArg(FunctionCallInfo fcinfo, int n);
// text[]: the elements in order, null elements as nullopt.
std::vector<std::optional<std::string>> TextArrayArg(FunctionCallInfo fcinfo, int n);

int16 Int16Arg(FunctionCallInfo fcinfo, int n);
int32 Int32Arg(FunctionCallInfo fcinfo, int n);
int64 Int64Arg(FunctionCallInfo fcinfo, int n);
float4 Float4Arg(FunctionCallInfo fcinfo, int n);
float8 Float8Arg(FunctionCallInfo fcinfo, int n);
bool BoolArg(FunctionCallInfo fcinfo, int n);
// oid, regclass, regproc, regtype and the other oid aliases.
Oid OidArg(FunctionCallInfo fcinfo, int n);
// The argument's Datum as passed (to hand on unchanged); may be null.
Datum DatumArg(FunctionCallInfo fcinfo, int n);
// An `internal` argument (planner and access-method support functions).
template <class T>
T *InternalArg(FunctionCallInfo fcinfo, int n) {
    RequireArg(fcinfo, n);
    return reinterpret_cast<T *>(DatumGetPointer(fcinfo->args[n].value));
}

// A text Datum that is not an argument (an array element, a column of a
// row): detoasted inside ServerCall, then copied.
std::string TextDatumString(Datum d);

// A text result, and the SQL null result.
Datum TextResult(const std::string &s);
Datum NullResult(FunctionCallInfo fcinfo);

}  // namespace dt::pg

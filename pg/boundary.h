// The boundary between the C++ core and the server.
//
// Two rules hold everywhere in the extension:
//  1. No C++ exception crosses a server frame.  Every fmgr entry point runs
//     its body through dt::pg::Guard, which catches dt::Error (and any other
//     C++ exception) and re-raises it with ereport once every C++ object of
//     the body has been destroyed.
//  2. No ereport jumps over a live C++ destructor.  Server calls that can
//     raise are made through dt::pg::ServerCall, which runs them under
//     PG_TRY and turns a server error into a dt::Error carrying the same
//     SQLSTATE, message and detail.  The callable given to ServerCall must
//     itself hold no objects with destructors.
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
#include <string>
#include <type_traits>

#include "error.h"

namespace dt::pg {

// Plain data describing an error to raise; no destructors.
struct PendingError {
    char sqlstate[6];
    char message[1024];
    char detail[1024];
    char hint[256];
};

void FillPending(PendingError &pe, const dt::Error &e);
void FillPending(PendingError &pe, const char *sqlstate, const char *message);
// Raises the pending error; never returns.
[[noreturn]] void RaisePending(const PendingError &pe);

template <class F>
Datum Guard(F &&body) {
    PendingError pe;
    try {
        return body();
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

// Copies the current server error into a dt::Error (after FlushErrorState).
dt::Error TakeServerError(MemoryContext cxt);

// Runs a server call that may ereport; a server error becomes a dt::Error.
template <class F>
auto ServerCall(F &&f) -> decltype(f()) {
    using R = decltype(f());
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
std::string TextToString(const text *t);
text *StringToText(const std::string &s);

// Argument n of a SQL function as a string (detoasted safely).
std::string TextArg(FunctionCallInfo fcinfo, int n);
// A text result, and the SQL null result.
Datum TextResult(const std::string &s);
Datum NullResult(FunctionCallInfo fcinfo);

}  // namespace dt::pg

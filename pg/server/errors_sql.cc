// The error catalogue from SQL: list it, and raise any of its codes.
#include "boundary.h"

extern "C" {
#include "catalog/pg_type.h"
#include "funcapi.h"
#include "utils/array.h"
#include "utils/lsyscache.h"
}

#include <vector>

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_dt_ErrorCatalogue);
PG_FUNCTION_INFO_V1(pgdoc_dt_RaiseError);
}

// dt_ErrorCatalogue(): (code, message) for every code, with {NAME} places.
Datum pgdoc_dt_ErrorCatalogue(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const auto &codes = dt::CatalogueCodes();
        ReturnSetInfo *rsinfo = (ReturnSetInfo *)fcinfo->resultinfo;
        dt::pg::ServerCall([&] { InitMaterializedSRF(fcinfo, 0); });
        for (const auto &code : codes) {
            dt::pg::CheckInterrupts();
            const char *text = dt::CatalogueText(code);
            const char *c = code.c_str();
            dt::pg::ServerCall([&] {
                Datum values[2] = {CStringGetTextDatum(c), CStringGetTextDatum(text)};
                bool nulls[2] = {false, false};
                tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
            });
        }
        return (Datum)0;
    });
}

// dt_RaiseError(code, VARIADIC name/value pairs): raises the code exactly as
// the module would, for conversion steps written in SQL and for tests.
Datum pgdoc_dt_RaiseError(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string code = dt::pg::TextArg(fcinfo, 0);
        if (!dt::CatalogueText(code))
            dt::ErrorRaiseVA("22T02", "TYPE%s", "dt_RaiseError", "STRING%s", code, "SYNTAX%s",
                             "error code of the document module");
        std::vector<dt::ErrorParam> params;
        if (PG_NARGS() > 1 && !dt::pg::ArgIsNull(fcinfo, 1)) {
            std::vector<std::optional<std::string>> elems = dt::pg::TextArrayArg(fcinfo, 1);
            if (elems.size() % 2 != 0)
                throw dt::Error::User("dt_RaiseError: parameter \"" + elems.back().value_or("") +
                                          "\" has no value",
                                      "22023", "Give the parameters as pairs of name and value.");
            for (size_t i = 0; i < elems.size(); i++)
                if (!elems[i])
                    throw dt::Error::User("dt_RaiseError: parameter " + std::string(i % 2 ? "value" : "name") +
                                              " " + std::to_string(i / 2 + 1) + " is null",
                                          "22004", "Give every name and value of the parameters as text.");
            for (size_t i = 0; i + 1 < elems.size(); i += 2) params.push_back({*elems[i], *elems[i + 1]});
        }
        throw dt::Error(code, params);
    });
}

// The twelve ranking coefficients as settings of the session:
// document.rank_doc_len_coef ... document.rank_z_coef (the names of the
// model's coefficients in lower case, words joined by "_").  They are the
// core's own coefficients (DocParamSlot), so every ranking reads the
// session's current values; SET, SET LOCAL, RESET, RESET ALL, DISCARD ALL
// and a rolled-back transaction treat them as any other setting.
#pragma once

namespace dt::pg {

// Defines the settings (when the library is loaded).
void DefineRankingSettings();

// Sets coefficient n (0..11) for the session as SET does; other numbers
// are ignored.  A value that is not a finite number raises 22023.
void SetRankingCoefficient(int n, double value);

}  // namespace dt::pg

// libFuzzer target for the parsers of user query text: the query language,
// word lists and the options prefix (see dtfuzz::Query in fuzz_targets.h).
// Any input must either give a tree or raise dt::Error; the tree must print
// and evaluate.
//
//   cmake --build build --target query_fuzz && build/fuzz/query_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::Query(data, size);
    return 0;
}

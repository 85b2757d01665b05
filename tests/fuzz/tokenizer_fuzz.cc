// libFuzzer target: see dtfuzz::Tokenizer in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target tokenizer_fuzz && build/fuzz/tokenizer_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::Tokenizer(data, size);
    return 0;
}

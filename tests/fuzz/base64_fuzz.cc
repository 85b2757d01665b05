// libFuzzer target: see dtfuzz::Base64 in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target base64_fuzz && build/fuzz/base64_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::Base64(data, size);
    return 0;
}

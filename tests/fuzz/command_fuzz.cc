// libFuzzer target: see dtfuzz::Command in fuzz_targets.h for what it feeds and checks.
//
//   cmake --build build --target command_fuzz && build/fuzz/command_fuzz -max_total_time=60
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dtfuzz::Command(data, size);
    return 0;
}

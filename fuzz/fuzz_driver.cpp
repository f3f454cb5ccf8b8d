// One libFuzzer driver per target, chosen at build time (QUOV_FUZZ_TARGET).
#include "fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    quov::fuzz::QUOV_FUZZ_TARGET(data, size);
    return 0;
}

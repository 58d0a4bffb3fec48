// One libFuzzer executable per target, all built from this file: CMake names
// the entry point of FuzzEntries.h each one runs (QUENVAR_FUZZ_ENTRY).

#include "FuzzEntries.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    QuenvarFuzz::ensureApplication();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QuenvarFuzz::QUENVAR_FUZZ_ENTRY(data, size);
    return 0;
}

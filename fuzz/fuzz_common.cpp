// The libFuzzer entry points shared by every target: the input becomes a
// script file, handed to the target's kivfuzz::run.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    kivfuzz::setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (kivfuzz::is_binary_chunk(data, size))
        return -1;
    const char *in = kivfuzz::scratch("in.lua");
    if (kivfuzz::write_file(in, data, size))
        kivfuzz::run(in);
    return 0;
}

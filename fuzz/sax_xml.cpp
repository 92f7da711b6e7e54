// libFuzzer target: KelSAX documents as XML text (inputs that look like archives go the archive
// way, as the reader decides by the first bytes).
#include "SaxFuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    KelSaxFuzz::ReadEverything(data, size);
    return 0;
}

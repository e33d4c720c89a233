// A family's libFuzzer target: TVX_FUZZ_FAMILY names the registry file its entries come from.
#include <cstddef>
#include <cstdint>

#include "call.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return tvxfuzz::RunFamily(TVX_FUZZ_FAMILY, data, size);
}

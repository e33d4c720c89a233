// Which SIMD targets this CPU can run among those the library was compiled for.
#include "hwy/highway.h"
#include "hwy/targets.h"

#include "frame/hw.h"

bool tvx_simd_target_available() {
  // HWY_SUPPORTED_TARGETS is the compiled target itself when there is only one (ARMv7 builds
  // NEON statically, and the distribution's libhwy may be built without NEON, so asking it
  // would wrongly answer "scalar only"); with run-time dispatch it asks the CPU.
  const int64_t usable = static_cast<int64_t>(HWY_SUPPORTED_TARGETS) & HWY_TARGETS;
  return (usable & ~(HWY_SCALAR | HWY_EMU128)) != 0;
}

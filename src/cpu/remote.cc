// Reference variants of the remote layer's own rows: on the CPU there is no DSP clock to read
// and no DSP to register a buffer with.
#include "frame/frame.h"

int64_t probeR6TimeC() { return 0; }

int32_t tvxRegisterBufC(uint8_t* buffer, uint32_t length, int32_t fd) { return 0; }

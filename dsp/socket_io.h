// Socket plumbing shared by the host DSP and its client stub: whole-message writes from
// scattered pieces, reads with a deadline, and passing a descriptor alongside a message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/uio.h>

namespace tvxdsp {

// Writes every byte of the pieces (retrying partial writes and EINTR); `fd` >= 0 travels with
// the first byte. False when the peer is gone.
bool SendAll(int socket, struct iovec* pieces, int count, int fd = -1);

// Reads exactly n bytes, waiting at most timeoutMs in total (negative: no limit). A descriptor
// that arrives with the bytes is stored in *fd when fd is given (else closed). False on end of
// stream, error or timeout.
bool ReadExact(int socket, void* buffer, size_t n, int timeoutMs, int* fd = nullptr);

// Milliseconds from an environment variable, or the default when unset or malformed.
int EnvMilliseconds(const char* name, int fallback);

}  // namespace tvxdsp

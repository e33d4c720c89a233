// Linux host back end of the shareable-memory seams: a memory file stands in for an ION buffer
// (mappable, shared, page-backed), /dev/null stands in for the ION device so every block still
// holds a real device descriptor, and the host DSP client registers the buffers.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/platform.h"

// Defined by the host DSP client (dsp/stub).
extern "C" void rmtcall_register_buf(void* buffer, int32_t length, int32_t fd);

int tvx_platform_ion_open() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

int tvx_platform_ion_alloc_fd(int device, size_t length, size_t, uint32_t, uint32_t, int* dmaFd) {
  if (device < 0 || dmaFd == nullptr) return -1;
  const int fd = memfd_create("tavix-shm", MFD_CLOEXEC);
  if (fd < 0) return -1;
  if (ftruncate(fd, static_cast<off_t>(length)) != 0) {
    close(fd);
    return -1;
  }
  *dmaFd = fd;
  return 0;
}

int tvx_platform_ion_close(int device) { return close(device); }

// Host memory is coherent: no cache maintenance around CPU access.
int tvx_platform_dma_buf_sync(int, uint64_t) { return 0; }

tavixdsp_register_buf_fn tvx_platform_register_buf() { return &rmtcall_register_buf; }

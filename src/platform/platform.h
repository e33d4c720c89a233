// Seams between the library and the operating system. One implementation per platform:
// platform/android/ (Android logger, system properties) and platform/host/ (stderr,
// environment variables). Nothing outside src/platform/ calls OS-specific APIs directly.
#pragma once

#include <cstddef>
#include <cstdint>

#include "remote/tavixdsp.h"  // tavixdsp_register_buf_fn

// Writes one finished log line at the given Android priority under the tag.
void tvx_platform_log(int priority, const char* tag, const char* message);

// Reads a system property into value (capacity bytes, always terminated). Returns the value's
// length, 0 when the property is absent. On a host, "a.b.c" is read from the environment
// variable A_B_C.
int tvx_platform_property(const char* name, char* value, size_t capacity);

// Reads up to capacity bytes of a file in one read (retrying on EINTR). Returns the byte count,
// or -1 when the file cannot be opened or read.
long tvx_platform_read_file(const char* path, char* buffer, size_t capacity);

// Number of online processors, or -1 when the system cannot say.
long tvx_platform_processors();

// ---- DMA-shareable memory for the DSP (platform/<platform>/shared_mem_<platform>.cc) ----------

// Opens the shareable-memory allocator device: its descriptor, or -1.
int tvx_platform_ion_open();

// Allocates length bytes from the heaps in heapMask with the allocator's flags and hands back
// a DMA-buffer descriptor that can be mapped. 0 on success.
int tvx_platform_ion_alloc_fd(int device, size_t length, size_t align, uint32_t heapMask, uint32_t flags, int* dmaFd);

// Closes the allocator device opened by tvx_platform_ion_open.
int tvx_platform_ion_close(int device);

// Begins or ends CPU access to a DMA buffer (DMA_BUF_IOCTL_SYNC flags). 0 on success.
int tvx_platform_dma_buf_sync(int dmaFd, uint64_t flags);

// The remote-call layer's buffer registration function, or null when that layer is absent.
tavixdsp_register_buf_fn tvx_platform_register_buf();

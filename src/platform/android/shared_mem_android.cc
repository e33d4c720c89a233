// Android back end of the shareable-memory seams: the ION allocator through its kernel ioctls
// (the interface of Android 9 and later kernels, with the legacy handle-based interface as the
// fallback), the DMA-buffer sync ioctl, and the FastRPC client's buffer registration.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "platform/platform.h"

namespace {

// Kernel ION interface, declared here because the NDK ships no ION header.
constexpr unsigned kIonMagic = 'I';

// Kernels 4.12 and later: allocation returns a DMA-buffer descriptor directly.
struct IonAllocationData {
  uint64_t len;
  uint32_t heap_id_mask;
  uint32_t flags;
  uint32_t fd;
  uint32_t unused;
};

// Older kernels: allocation returns a handle, which is then shared as a descriptor and freed.
typedef int IonUserHandle;
struct IonLegacyAllocationData {
  size_t len;
  size_t align;
  unsigned int heap_id_mask;
  unsigned int flags;
  IonUserHandle handle;
};
struct IonLegacyFdData {
  IonUserHandle handle;
  int fd;
};
struct IonLegacyHandleData {
  IonUserHandle handle;
};

constexpr unsigned long kIonIocAlloc = _IOWR(kIonMagic, 0, IonAllocationData);
constexpr unsigned long kIonIocLegacyAlloc = _IOWR(kIonMagic, 0, IonLegacyAllocationData);
constexpr unsigned long kIonIocLegacyFree = _IOWR(kIonMagic, 1, IonLegacyHandleData);
constexpr unsigned long kIonIocLegacyShare = _IOWR(kIonMagic, 4, IonLegacyFdData);

struct DmaBufSync {
  uint64_t flags;
};
constexpr unsigned long kDmaBufIoctlSync = 0x40086200;  // _IOW('b', 0, struct dma_buf_sync)

int Ioctl(int fd, unsigned long request, void* argument) {
  int result;
  do {
    result = ioctl(fd, request, argument);
  } while (result < 0 && errno == EINTR);
  return result;
}

int LegacyAlloc(int device, size_t length, size_t align, uint32_t heapMask, uint32_t flags, int* dmaFd) {
  IonLegacyAllocationData allocation = {length, align, heapMask, flags, 0};
  if (Ioctl(device, kIonIocLegacyAlloc, &allocation) < 0) return -1;
  IonLegacyFdData share = {allocation.handle, -1};
  const int shared = Ioctl(device, kIonIocLegacyShare, &share);
  // The shared descriptor keeps the buffer alive; the handle is no longer needed either way.
  IonLegacyHandleData handle = {allocation.handle};
  Ioctl(device, kIonIocLegacyFree, &handle);
  if (shared < 0 || share.fd < 0) return -1;
  *dmaFd = share.fd;
  return 0;
}

std::once_flag g_rpcLookup;
tavixdsp_register_buf_fn g_registerBuf = nullptr;

void LookUpRegisterBuf() {
  for (const char* library : {"libcdsprpc.so", "libadsprpc.so"}) {
    void* handle = dlopen(library, RTLD_NOW);
    if (handle == nullptr) continue;
    // The library stays loaded for the life of the process: registered buffers depend on it.
    g_registerBuf = reinterpret_cast<tavixdsp_register_buf_fn>(dlsym(handle, "remote_register_buf"));
    if (g_registerBuf != nullptr) return;
    dlclose(handle);
  }
}

}  // namespace

int tvx_platform_ion_open() { return open("/dev/ion", O_RDONLY | O_CLOEXEC); }

int tvx_platform_ion_alloc_fd(int device, size_t length, size_t align, uint32_t heapMask, uint32_t flags, int* dmaFd) {
  if (device < 0 || dmaFd == nullptr) return -1;
  IonAllocationData allocation = {length, heapMask, flags, 0, 0};
  if (Ioctl(device, kIonIocAlloc, &allocation) == 0) {
    *dmaFd = static_cast<int>(allocation.fd);
    return 0;
  }
  // A kernel with the legacy interface does not know the request (the structures differ in
  // size, so the request numbers do too).
  if (errno != ENOTTY) return -1;
  return LegacyAlloc(device, length, align, heapMask, flags, dmaFd);
}

int tvx_platform_ion_close(int device) { return close(device); }

int tvx_platform_dma_buf_sync(int dmaFd, uint64_t flags) {
  DmaBufSync sync = {flags};
  return Ioctl(dmaFd, kDmaBufIoctlSync, &sync) < 0 ? -1 : 0;
}

tavixdsp_register_buf_fn tvx_platform_register_buf() {
  std::call_once(g_rpcLookup, LookUpRegisterBuf);
  return g_registerBuf;
}

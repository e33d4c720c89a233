// Reference variants of the pyramid entries and the builders both tiers share: level records
// allocated and released with the library's aligned allocator, Gaussian pyramids built level
// by level with the 5x5 reductions by 2 (or, for a scale other than 0.5, the bilinear scaler),
// and Sobel gradient pyramids.
//
// A level-0 block allocated by tvxPyramidAllocate* is remembered (address and size) until a
// delete frees it. A create that finds such a block in level 0 copies the caller's image into
// it instead of pointing level 0 at the image, so the block stays reachable and the matching
// delete frees the block and never the caller's image; a delete frees a level-0 pointer only
// when it is such a block.
#include <cmath>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "cpu/pyramid_build.h"
#include "frame/frame.h"

namespace {

constexpr const char* kPath = "src/cpu/tavixPyramidC";
constexpr const char* kMultiples =
    "( (baseWidth & ((1 << (numLevels - 1)) - 1)) == 0 ) & ( (baseHeight & ((1 << (numLevels - 1)) - 1)) == 0 )";
constexpr const char* kMultiplesCompact =
    "((baseWidth&((1<<(numLevels-1))-1))==0)&((baseHeight&((1<<(numLevels-1))-1))==0)";

// Level-0 blocks of tvxPyramidAllocate*, with their sizes in bytes. Addresses are kept
// complemented, so this table does not make a block that nobody frees look reachable to a
// leak checker.
class BaseBlocks {
 public:
  void Add(const void* block, uint64_t bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    bytes_[Key(block)] = bytes;
  }
  bool Find(const void* block, uint64_t* bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = bytes_.find(Key(block));
    if (it == bytes_.end()) return false;
    *bytes = it->second;
    return true;
  }
  bool Remove(const void* block) {
    std::lock_guard<std::mutex> lock(mutex_);
    return bytes_.erase(Key(block)) != 0;
  }

 private:
  static uintptr_t Key(const void* block) { return ~reinterpret_cast<uintptr_t>(block); }
  std::mutex mutex_;
  std::unordered_map<uintptr_t, uint64_t> bytes_;
};

// Never destroyed: a process ending through an assertion must not race its destructor.
BaseBlocks& Blocks() {
  static BaseBlocks* blocks = new BaseBlocks;
  return *blocks;
}

// The creation preconditions. The multiples of 2^(numLevels - 1) are evaluated in 64 bits (the
// logged expression would shift out of range for large level counts); every failure is logged
// with the condition as written and ends the process.
void CheckCreation(const void* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels, const void* pyramid,
                   bool compactText) {
  TVX_REQUIRE(kPath, base && numLevels && baseHeight && baseWidth && pyramid);
  const uint64_t mask = numLevels <= 33 ? (uint64_t{1} << (numLevels - 1)) - 1 : ~uint64_t{0};
  if ((baseWidth & mask) != 0 || (baseHeight & mask) != 0) tvx_fatal(kPath, __LINE__, compactText ? kMultiplesCompact : kMultiples);
}

void CopyRows(void* dst, const void* src, uint32_t stride, uint64_t rowBytes, uint32_t rows) {
  for (uint32_t y = 0; y < rows; ++y) {
    std::memcpy(static_cast<uint8_t*>(dst) + uint64_t{y} * stride, static_cast<const uint8_t*>(src) + uint64_t{y} * stride,
                rowBytes);
  }
}

// Level 0 of a create: the caller's image, or, when the level holds a level-0 block of
// tvxPyramidAllocate*, that block with the image copied in (rows `stride` bytes apart). False
// when such a block is too small for the image; nothing is written then.
bool SetLevel0(void*& ptr, const void* base, uint32_t stride, uint64_t rowBytes, uint32_t height) {
  uint64_t bytes = 0;
  if (ptr != base && ptr != nullptr && Blocks().Find(ptr, &bytes)) {
    if (bytes < uint64_t{stride} * (height - 1) + rowBytes) return false;
    CopyRows(ptr, base, stride, rowBytes, height);
    return true;
  }
  ptr = const_cast<void*>(base);
  return true;
}

void* AllocateLevel(uint64_t bytes) {
  return bytes > UINT32_MAX ? nullptr : tvxMemAlloc(static_cast<uint32_t>(bytes), 16);
}

template <typename Level>
int32_t DeleteLevels(Level* pyr, uint32_t numLevels, uint32_t startLevel) {
  for (uint32_t i = startLevel; i < numLevels; ++i) {
    void* block = pyr[i].ptr;
    if (block == nullptr) continue;
    // Level 0 may hold the caller's image (set by a create): only a level-0 block of ours is freed.
    if (Blocks().Remove(block) || i > 0) tvxMemFree(block);
    pyr[i].ptr = nullptr;
  }
  return 0;
}

// Second-form allocation for any scale factor; `failure` is returned when a block cannot be had,
// after every block allocated here has been released.
int32_t AllocateV2(tvxPyramidLevel_v2* pyr, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                   uint32_t bytesPerPixel, uint32_t numLevels, uint32_t allocateBase, float scale, int32_t failure) {
  pyr[0] = {nullptr, baseWidth, baseHeight, baseStride};
  uint64_t bytes0 = uint64_t{baseStride} * baseHeight;
  bool sizesFit = true;
  for (uint32_t i = 1; i < numLevels; ++i) {
    const uint32_t w = tvxpyr::LevelSize(baseWidth, i, scale), h = tvxpyr::LevelSize(baseHeight, i, scale);
    const uint64_t stride = uint64_t{w} * bytesPerPixel;
    sizesFit = sizesFit && stride <= UINT32_MAX;
    pyr[i] = {nullptr, w, h, static_cast<uint32_t>(stride)};
  }
  for (uint32_t i = allocateBase ? 0 : 1; i < numLevels; ++i) {
    const uint64_t bytes = i == 0 ? bytes0 : uint64_t{pyr[i].stride} * pyr[i].height;
    pyr[i].ptr = sizesFit ? AllocateLevel(bytes) : nullptr;
    if (pyr[i].ptr == nullptr) {
      DeleteLevels(pyr, i, allocateBase ? 0 : 1);
      return failure;
    }
    if (i == 0) Blocks().Add(pyr[0].ptr, bytes0);
  }
  return 0;
}

// Second-form byte pyramid for any scale factor. `failure` is returned for a bad base stride
// or a missing level buffer.
int32_t CreateU8Strided(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                        uint32_t numLevels, tvxPyramidLevel_v2* pyramid, float scale, tvxpyr::ReduceU8Strided reduce,
                        tvxpyr::ResampleU8 resample, int32_t failure) {
  const uint32_t stride = baseStride ? baseStride : baseWidth;
  if (stride < baseWidth) return failure;
  if (!SetLevel0(pyramid[0].ptr, base, stride, baseWidth, baseHeight)) return failure;
  pyramid[0].width = baseWidth;
  pyramid[0].height = baseHeight;
  pyramid[0].stride = stride;
  for (uint32_t i = 1; i < numLevels; ++i) {
    const tvxPyramidLevel_v2& prev = pyramid[i - 1];
    tvxPyramidLevel_v2& cur = pyramid[i];
    cur.width = tvxpyr::LevelSize(baseWidth, i, scale);
    cur.height = tvxpyr::LevelSize(baseHeight, i, scale);
    cur.stride = cur.width;
    if (cur.ptr == nullptr) return failure;
    const auto* in = static_cast<const uint8_t*>(prev.ptr);
    auto* out = static_cast<uint8_t*>(cur.ptr);
    if (scale == 0.5f) {
      reduce(in, prev.width, prev.height, prev.stride, out, cur.stride);
    } else {
      resample(in, prev.width, prev.height, prev.stride, out, cur.width, cur.height, cur.stride, 1, 2, 0);
    }
  }
  return 0;
}

// Zeroes the one-pixel frame the 3x3 Sobel kernels leave alone (the whole plane when it is
// narrower or lower than 3).
template <typename T>
void ZeroFrame(T* plane, uint32_t width, uint32_t height) {
  if (width < 3 || height < 3) {
    std::memset(plane, 0, uint64_t{width} * height * sizeof(T));
    return;
  }
  std::memset(plane, 0, uint64_t{width} * sizeof(T));
  std::memset(plane + uint64_t{height - 1} * width, 0, uint64_t{width} * sizeof(T));
  for (uint32_t y = 1; y + 1 < height; ++y) {
    plane[uint64_t{y} * width] = 0;
    plane[uint64_t{y} * width + width - 1] = 0;
  }
}

template <typename T, typename Kernel>
int32_t SobelLevels(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr, uint32_t numLevels,
                    Kernel sobel) {
  const uint32_t width0 = imgPyr[0].width, height0 = imgPyr[0].height;
  for (uint32_t i = 0; i < numLevels; ++i) {
    const uint32_t w = i < 32 ? width0 >> i : 0, h = i < 32 ? height0 >> i : 0;
    dxPyr[i].width = dyPyr[i].width = w;
    dxPyr[i].height = dyPyr[i].height = h;
    const tvxPyramidLevel& img = imgPyr[i];
    if (img.ptr == nullptr || img.width != w || img.height != h || dxPyr[i].ptr == nullptr || dyPyr[i].ptr == nullptr)
      return -1;
    if (uint64_t{w} * sizeof(T) > UINT32_MAX) return -1;
    auto* dx = static_cast<T*>(dxPyr[i].ptr);
    auto* dy = static_cast<T*>(dyPyr[i].ptr);
    if (w != 0 && h != 0) sobel(static_cast<const uint8_t*>(img.ptr), w, h, w, dx, dy, static_cast<uint32_t>(w * sizeof(T)));
    ZeroFrame(dx, w, h);
    ZeroFrame(dy, w, h);
  }
  return 0;
}

// Packed levels (first record form): level 0 is the base, each further level the reduction of
// the one before; a missing level buffer stops the build with the earlier levels valid.
template <typename T>
int32_t CreatePacked(const T* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                     tvxPyramidLevel* pyramid, void (*reduce)(const T*, uint32_t, uint32_t, T*)) {
  const uint64_t rowBytes = uint64_t{baseWidth} * sizeof(T);
  if (rowBytes > UINT32_MAX) return -1;
  if (!SetLevel0(pyramid[0].ptr, base, static_cast<uint32_t>(rowBytes), rowBytes, baseHeight)) return -1;
  pyramid[0].width = baseWidth;
  pyramid[0].height = baseHeight;
  for (uint32_t i = 1; i < numLevels; ++i) {
    const tvxPyramidLevel& prev = pyramid[i - 1];
    tvxPyramidLevel& cur = pyramid[i];
    cur.width = baseWidth >> i;
    cur.height = baseHeight >> i;
    if (cur.ptr == nullptr) return -1;
    reduce(static_cast<const T*>(prev.ptr), prev.width, prev.height, static_cast<T*>(cur.ptr));
  }
  return 0;
}

}  // namespace

namespace tvxpyr {

uint32_t LevelSize(uint32_t base, uint32_t level, float scale) {
  if (scale == 0.5f) return level < 32 ? base >> level : 0;
  double factor = 1.0;
  for (uint32_t i = 0; i < level; ++i) factor *= static_cast<double>(scale);
  return static_cast<uint32_t>(std::nearbyint(static_cast<double>(base) * factor));
}

int32_t CreateU8(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                 tvxPyramidLevel* pyramid, ReduceU8 reduce) {
  CheckCreation(base, baseWidth, baseHeight, numLevels, pyramid, false);
  return CreatePacked(base, baseWidth, baseHeight, numLevels, pyramid, reduce);
}

int32_t CreateU8v2(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride, uint32_t numLevels,
                   tvxPyramidLevel_v2* pyramid, ReduceU8Strided reduce) {
  CheckCreation(base, baseWidth, baseHeight, numLevels, pyramid, false);
  return CreateU8Strided(base, baseWidth, baseHeight, baseStride, numLevels, pyramid, 0.5f, reduce, nullptr, -1);
}

int32_t CreateU8v3(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride, uint32_t numLevels,
                   tvxPyramidLevel_v2* pyramid, float scale, ReduceU8Strided reduce, ResampleU8 resample) {
  CheckCreation(base, baseWidth, baseHeight, numLevels, pyramid, false);
  if (!(scale >= 0.5f && scale < 1.0f)) return 3;
  return CreateU8Strided(base, baseWidth, baseHeight, baseStride, numLevels, pyramid, scale, reduce, resample, 3);
}

int32_t CreateF32(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                  tvxPyramidLevel* pyramid, ReduceF32 reduce) {
  CheckCreation(base, baseWidth, baseHeight, numLevels, pyramid, false);
  return CreatePacked(base, baseWidth, baseHeight, numLevels, pyramid, reduce);
}

int32_t CreateF32v2(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride, uint32_t numLevels,
                    tvxPyramidLevel_v2* pyramid, ReduceF32Strided reduce) {
  CheckCreation(base, baseWidth, baseHeight, numLevels, pyramid, true);
  const uint64_t rowBytes = uint64_t{baseWidth} * 4;
  const uint64_t stride = baseStride ? baseStride : rowBytes;
  if (stride > UINT32_MAX || stride < rowBytes || stride % 4 != 0) return -1;
  if (!SetLevel0(pyramid[0].ptr, base, static_cast<uint32_t>(stride), rowBytes, baseHeight)) return -1;
  pyramid[0].width = baseWidth;
  pyramid[0].height = baseHeight;
  pyramid[0].stride = static_cast<uint32_t>(stride);
  for (uint32_t i = 1; i < numLevels; ++i) {
    const tvxPyramidLevel_v2& prev = pyramid[i - 1];
    tvxPyramidLevel_v2& cur = pyramid[i];
    cur.width = baseWidth >> i;
    cur.height = baseHeight >> i;
    cur.stride = cur.width * 4;
    if (cur.ptr == nullptr) return -1;
    reduce(static_cast<const float*>(prev.ptr), prev.width, prev.height, prev.stride, static_cast<float*>(cur.ptr),
           cur.stride);
  }
  return 0;
}

int32_t SobelCreate(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr, uint32_t numLevels,
                    SobelS16 sobel) {
  return SobelLevels<int16_t>(imgPyr, dxPyr, dyPyr, numLevels, sobel);
}
int32_t SobelCreate(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr, uint32_t numLevels,
                    SobelS8 sobel) {
  return SobelLevels<int8_t>(imgPyr, dxPyr, dyPyr, numLevels, sobel);
}
int32_t SobelCreate(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr, uint32_t numLevels,
                    SobelF32 sobel) {
  return SobelLevels<float>(imgPyr, dxPyr, dyPyr, numLevels, sobel);
}

}  // namespace tvxpyr

// ---- reference variants ------------------------------------------------------------------------

int32_t tvxPyramidAllocateC(tvxPyramidLevel* pyr, uint32_t baseWidth, uint32_t baseHeight, uint32_t bytesPerPixel,
                            uint32_t numLevels, uint32_t allocateBase) {
  // Every record is set, so that after a failure the matching delete frees exactly what was
  // allocated: the failing level and those after it keep null pointers.
  bool ok = true;
  pyr[0] = {nullptr, baseWidth, baseHeight};
  if (allocateBase) {
    const uint64_t bytes = uint64_t{baseWidth} * baseHeight * bytesPerPixel;
    pyr[0].ptr = AllocateLevel(bytes);
    ok = pyr[0].ptr != nullptr;
    if (ok) Blocks().Add(pyr[0].ptr, bytes);
  }
  for (uint32_t i = 1; i < numLevels; ++i) {
    pyr[i] = {nullptr, baseWidth >> i, baseHeight >> i};
    if (ok) {
      pyr[i].ptr = AllocateLevel(uint64_t{pyr[i].width} * pyr[i].height * bytesPerPixel);
      ok = pyr[i].ptr != nullptr;
    }
  }
  return ok ? 0 : -1;
}

int32_t tvxPyramidAllocate_v2C(tvxPyramidLevel_v2* pyr, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                               uint32_t bytesPerPixel, uint32_t numLevels, uint32_t allocateBase) {
  return AllocateV2(pyr, baseWidth, baseHeight, baseStride, bytesPerPixel, numLevels, allocateBase, 0.5f, -1);
}

int32_t tvxPyramidAllocate_v3C(tvxPyramidLevel_v2* pyr, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                               uint32_t bytesPerPixel, uint32_t numLevels, uint32_t allocateBase, float scale) {
  if (!(scale >= 0.5f && scale < 1.0f)) return 3;
  return AllocateV2(pyr, baseWidth, baseHeight, baseStride, bytesPerPixel, numLevels, allocateBase, scale, 5);
}

int32_t tvxPyramidDeleteC(tvxPyramidLevel* pyr, uint32_t numLevels, uint32_t startLevel) {
  return DeleteLevels(pyr, numLevels, startLevel);
}

int32_t tvxPyramidDelete_v2C(tvxPyramidLevel_v2* pyr, uint32_t numLevels, uint32_t startLevel) {
  return DeleteLevels(pyr, numLevels, startLevel);
}

int32_t tvxPyramidCreateu8C(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                            tvxPyramidLevel* pyramid) {
  return tvxpyr::CreateU8(base, baseWidth, baseHeight, numLevels, pyramid, &tvxScaleDownBy2Gaussian5x5u8C);
}

int32_t tvxPyramidCreateu8_v2C(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                               uint32_t numLevels, tvxPyramidLevel_v2* pyramid) {
  return tvxpyr::CreateU8v2(base, baseWidth, baseHeight, baseStride, numLevels, pyramid, &tvxScaleDownBy2Gaussian5x5u8_v2C);
}

int32_t tvxPyramidCreateu8_v3C(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                               uint32_t numLevels, tvxPyramidLevel_v2* pyramid, float scale) {
  return tvxpyr::CreateU8v3(base, baseWidth, baseHeight, baseStride, numLevels, pyramid, scale,
                            &tvxScaleDownBy2Gaussian5x5u8_v2C, &tvxScaleu8_v2C);
}

int32_t tvxPyramidCreatef32C(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                             tvxPyramidLevel* pyramid) {
  return tvxpyr::CreateF32(base, baseWidth, baseHeight, numLevels, pyramid, &tvxScaleDownBy2Gaussian5x5f32C);
}

int32_t tvxPyramidCreatef32_v2C(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                                uint32_t numLevels, tvxPyramidLevel_v2* pyramid) {
  return tvxpyr::CreateF32v2(base, baseWidth, baseHeight, baseStride, numLevels, pyramid,
                             &tvxScaleDownBy2Gaussian5x5f32_v2C);
}

int32_t tvxPyramidSobelGradientCreatei16C(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr,
                                          uint32_t numLevels) {
  return tvxpyr::SobelCreate(imgPyr, dxPyr, dyPyr, numLevels, &tvxImageGradientSobelPlanars16_v2C);
}

int32_t tvxPyramidSobelGradientCreatei8C(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr,
                                         uint32_t numLevels) {
  return tvxpyr::SobelCreate(imgPyr, dxPyr, dyPyr, numLevels, &tvxImageGradientSobelPlanars8_v2C);
}

int32_t tvxPyramidSobelGradientCreatef32C(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr,
                                          uint32_t numLevels) {
  return tvxpyr::SobelCreate(imgPyr, dxPyr, dyPyr, numLevels, &tvxImageGradientSobelPlanarf32_v2C);
}

// Reference variants of the Haar and 5/3 wavelet transforms and their inverses. The forward
// transforms run the rows into a transposed scratch plane and then that plane's rows (the image
// columns) into the destination, down its columns (normal order) or along its rows (transposed
// order). The inverses undo the column pass first and the row pass second.
#include <cstddef>
#include <vector>

#include "cpu/wavelet_kernels.h"
#include "frame/frame.h"

namespace {

constexpr const char* kPath = "src/cpu/tavixIppTransformC";

enum class Kind { kHaar, k53 };

// A scratch block of `bytes` from the pool; none to be had ends the process.
void* TakeScratch(uint64_t bytes, int line) {
  void* p = bytes <= UINT32_MAX ? tvxGetScratchBufferUnaligned_(static_cast<uint32_t>(bytes)) : nullptr;
  if (!p) tvx_fatal(kPath, line, "tmpBuf != NULL");
  return p;
}

template <typename T>
void Line(Kind kind, const T* in, ptrdiff_t inStep, uint32_t n, int16_t* out, ptrdiff_t outStep) {
  if (kind == Kind::kHaar) tvxwav::Haar1D(in, inStep, n, out, outStep);
  else tvxwav::F53_1D(in, inStep, n, out, outStep);
}

void InverseLine(Kind kind, const int16_t* in, ptrdiff_t inStep, uint32_t n, int32_t* out) {
  if (kind == Kind::kHaar) tvxwav::IHaar1D(in, inStep, n, out);
  else tvxwav::I53_1D(in, inStep, n, out);
}

template <typename T>
void Forward2D(Kind kind, const T* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dst,
               uint32_t dstStride, bool transposed, int line) {
  int16_t* plane = static_cast<int16_t*>(TakeScratch(uint64_t{width} * height * sizeof(int16_t), line));
  const size_t srcStep = srcStride / sizeof(T), dstStep = dstStride / sizeof(int16_t);
  // Rows: row y's coefficients go down column y of the plane (plane row k holds coefficient k of every row).
  for (uint32_t y = 0; y < height; ++y) Line(kind, src + y * srcStep, 1, width, plane + y, height);
  // Columns: plane row k is image column k's sequence.
  for (uint32_t k = 0; k < width; ++k) {
    const int16_t* column = plane + size_t{k} * height;
    if (transposed) Line(kind, column, 1, height, dst + k * dstStep, 1);
    else Line(kind, column, 1, height, dst + k, static_cast<ptrdiff_t>(dstStep));
  }
  tvxReleaseScratchBuffer_(plane);
}

// Inverse of an imgW x imgH image from its coefficient plane; coefficient (x-index k, y-index j)
// sits at src[k * kStep + j * jStep].
template <typename Out>
void Inverse2D(Kind kind, const int16_t* src, ptrdiff_t kStep, ptrdiff_t jStep, uint32_t imgW, uint32_t imgH, Out* dst,
               uint32_t dstStride, int line) {
  const uint32_t longest = imgW > imgH ? imgW : imgH;
  const uint64_t planeBytes = uint64_t{imgW} * imgH * sizeof(int16_t);
  uint8_t* block = static_cast<uint8_t*>(TakeScratch(planeBytes + uint64_t{longest} * sizeof(int32_t) + 4, line));
  int16_t* plane = reinterpret_cast<int16_t*>(block);
  // 4-byte aligned place for the line buffer after the plane.
  int32_t* tmp = reinterpret_cast<int32_t*>(block + ((planeBytes + 3) & ~uint64_t{3}));
  // Undo the column pass: image column k into plane row k.
  for (uint32_t k = 0; k < imgW; ++k) {
    InverseLine(kind, src + k * kStep, jStep, imgH, tmp);
    for (uint32_t y = 0; y < imgH; ++y) plane[size_t{k} * imgH + y] = tvxwav::Sat16(tmp[y]);
  }
  // Undo the row pass: image row y from plane column y.
  const size_t dstStep = dstStride / sizeof(Out);
  for (uint32_t y = 0; y < imgH; ++y) {
    InverseLine(kind, plane + y, imgH, imgW, tmp);
    Out* row = dst + y * dstStep;
    for (uint32_t x = 0; x < imgW; ++x) {
      if constexpr (sizeof(Out) == 1) row[x] = tvxwav::Sat8(tmp[x]);
      else row[x] = tvxwav::Sat16(tmp[x]);
    }
  }
  tvxReleaseScratchBuffer_(block);
}

}  // namespace

void tvxDWTHaaru8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                   uint32_t dstStride) {
  Forward2D(Kind::kHaar, src, srcWidth, srcHeight, srcStride, dst, dstStride, false, 118);
}

void tvxDWTHaarTransposeu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            int16_t* dst, uint32_t dstStride) {
  Forward2D(Kind::kHaar, src, srcWidth, srcHeight, srcStride, dst, dstStride, true, 196);
}

void tvxDWT53Tabs16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                     uint32_t dstStride) {
  Forward2D(Kind::k53, src, srcWidth, srcHeight, srcStride, dst, dstStride, false, 412);
}

void tvxDWT53TabTransposes16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              int16_t* dst, uint32_t dstStride) {
  Forward2D(Kind::k53, src, srcWidth, srcHeight, srcStride, dst, dstStride, true, 468);
}

void tvxIDWTHaars16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstStride) {
  Inverse2D(Kind::kHaar, src, 1, srcStride / 2, srcWidth, srcHeight, dst, dstStride, 285);
}

void tvxIDWTHaarTransposes16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  // The plane's rows are the image's columns: an image srcHeight wide and srcWidth high.
  Inverse2D(Kind::kHaar, src, srcStride / 2, 1, srcHeight, srcWidth, dst, dstStride, 341);
}

void tvxIDWT53Tabs16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                      uint32_t dstStride) {
  Inverse2D(Kind::k53, src, 1, srcStride / 2, srcWidth, srcHeight, dst, dstStride, 530);
}

void tvxIDWT53TabTransposes16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               int16_t* dst, uint32_t dstStride) {
  Inverse2D(Kind::k53, src, srcStride / 2, 1, srcHeight, srcWidth, dst, dstStride, 587);
}

// SIMD variants of the code-book update and difference and of the two companions.
//
// The code words of a pixel sit anywhere in the block storage and a pixel's list has any length,
// so the list walks stay scalar. What runs on vectors: the update's clamped learning bounds
// (saturating byte arithmetic on de-interleaved pixels); the difference's test of each pixel's
// first word, gathered into planar rows so that a whole vector of pixels is classified at once
// (the rest of a list is walked only for pixels their first word misses); the mask cleaning's
// 3x3 erosions and dilations (separable minimum / maximum); the foreground bytes of the YCbCr
// integral. Blob filtering and the integral's running sums are scalar.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/codebook.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
#include "hwy/cache_control.h"

#include <cstddef>
#include <cstring>

#include "cpu/codebook.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace codebook {
namespace hn = hwy::HWY_NAMESPACE;

using tvxcb::CodeWord;
using tvxcb::Model;

// Pixels per chunk of a row: the planar row buffers live on the stack.
constexpr uint32_t kChunk = 256;
// Pixels between a list head's prefetch and its use.
constexpr uint32_t kAhead = 16;

// low = p - bounds, high = p + bounds, clamped to 0..255, for count interleaved pixels.
void LearnBounds(const uint8_t* p, uint32_t count, const uint8_t* bounds, uint8_t* low, uint8_t* high) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const auto b0 = hn::Set(d, bounds[0]), b1 = hn::Set(d, bounds[1]), b2 = hn::Set(d, bounds[2]);
  size_t i = 0;
  for (; i + N <= count; i += N) {
    hn::Vec<decltype(d)> p0, p1, p2;
    hn::LoadInterleaved3(d, p + 3 * i, p0, p1, p2);
    hn::StoreInterleaved3(hn::SaturatedSub(p0, b0), hn::SaturatedSub(p1, b1), hn::SaturatedSub(p2, b2), d, low + 3 * i);
    hn::StoreInterleaved3(hn::SaturatedAdd(p0, b0), hn::SaturatedAdd(p1, b1), hn::SaturatedAdd(p2, b2), d, high + 3 * i);
  }
  for (; i < count; ++i)
    for (int c = 0; c < 3; ++c) {
      const int32_t v = p[3 * i + c];
      low[3 * i + c] = static_cast<uint8_t>(v > bounds[c] ? v - bounds[c] : 0);
      high[3 * i + c] = static_cast<uint8_t>(v + bounds[c] < 255 ? v + bounds[c] : 255);
    }
}

int32_t Update(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
               const uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap) {
  Model* m = static_cast<Model*>(cbmodel);
  if (!tvxcb::FrameFits(m, srcWidth, srcHeight, cbMap)) return 3;
  const uint32_t t = ++m->t;
  uint8_t low[3 * kChunk], high[3 * kChunk];
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* row = src + size_t{y} * srcStride;
    const uint8_t* mask = fgMask ? fgMask + size_t{y} * fgMaskStride : nullptr;
    CodeWord** heads = m->cbMap + size_t{y} * m->width;
    for (uint32_t x0 = 0; x0 < srcWidth; x0 += kChunk) {
      const uint32_t count = srcWidth - x0 < kChunk ? srcWidth - x0 : kChunk;
      LearnBounds(row + 3 * size_t{x0}, count, m->cbBounds, low, high);
      for (uint32_t i = 0; i < count; ++i) {
        const uint32_t x = x0 + i;
        // The lists' words are reached through the map: ask for them a few pixels ahead.
        if (x + kAhead < srcWidth) hwy::Prefetch(heads[x + kAhead]);
        if (mask && mask[x] == 0) continue;
        tvxcb::UpdatePixel(m, heads + x, row + 3 * size_t{x}, low + 3 * i, high + 3 * i, t);
      }
    }
  }
  return 0;
}

int32_t Diff(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
             uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap, int32_t* numFgMask) {
  const Model* m = static_cast<const Model*>(cbmodel);
  if (!tvxcb::FrameFits(m, srcWidth, srcHeight, cbMap)) return 3;
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const auto lo0 = hn::Set(d, m->modMin[0]), lo1 = hn::Set(d, m->modMin[1]), lo2 = hn::Set(d, m->modMin[2]);
  const auto hi0 = hn::Set(d, m->modMax[0]), hi1 = hn::Set(d, m->modMax[1]), hi2 = hn::Set(d, m->modMax[2]);
  const auto zero = hn::Zero(d), all = hn::Set(d, 255);
  // The first word of each pixel of a chunk, its boxes as planar rows, and whether it exists.
  alignas(64) uint8_t bmin[3][kChunk], bmax[3][kChunk], has[kChunk];
  const CodeWord* first[kChunk];
  int64_t background = 0;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* row = src + size_t{y} * srcStride;
    uint8_t* mask = fgMask + size_t{y} * fgMaskStride;
    CodeWord* const* heads = m->cbMap + size_t{y} * m->width;
    for (uint32_t x0 = 0; x0 < srcWidth; x0 += kChunk) {
      const uint32_t count = srcWidth - x0 < kChunk ? srcWidth - x0 : kChunk;
      const uint32_t vectored = static_cast<uint32_t>(count / N * N);
      for (uint32_t i = 0; i < vectored; ++i) {
        if (x0 + i + kAhead < srcWidth) hwy::Prefetch(heads[x0 + i + kAhead]);
        const CodeWord* w = heads[x0 + i];
        first[i] = w;
        if (w != nullptr) {
          for (int c = 0; c < 3; ++c) {
            bmin[c][i] = w->boxMin[c];
            bmax[c][i] = w->boxMax[c];
          }
          has[i] = 255;
        } else {
          has[i] = 0;
        }
      }
      const uint8_t* p = row + 3 * size_t{x0};
      uint8_t* out = mask + x0;
      for (uint32_t i = 0; i < vectored; i += static_cast<uint32_t>(N)) {
        hn::Vec<decltype(d)> p0, p1, p2;
        hn::LoadInterleaved3(d, p + 3 * i, p0, p1, p2);
        // boxMin - modMin <= p  <=>  boxMin saturating-minus (p + modMin) is 0, and
        // p <= boxMax + modMax  <=>  (p - modMax) saturating-minus boxMax is 0, both exactly.
        auto miss = hn::SaturatedSub(hn::Load(d, bmin[0] + i), hn::SaturatedAdd(p0, lo0));
        miss = hn::Or(miss, hn::SaturatedSub(hn::Load(d, bmin[1] + i), hn::SaturatedAdd(p1, lo1)));
        miss = hn::Or(miss, hn::SaturatedSub(hn::Load(d, bmin[2] + i), hn::SaturatedAdd(p2, lo2)));
        miss = hn::Or(miss, hn::SaturatedSub(hn::SaturatedSub(p0, hi0), hn::Load(d, bmax[0] + i)));
        miss = hn::Or(miss, hn::SaturatedSub(hn::SaturatedSub(p1, hi1), hn::Load(d, bmax[1] + i)));
        miss = hn::Or(miss, hn::SaturatedSub(hn::SaturatedSub(p2, hi2), hn::Load(d, bmax[2] + i)));
        const auto held = hn::And(hn::Eq(miss, zero), hn::Ne(hn::Load(d, has + i), zero));
        background += static_cast<int64_t>(hn::CountTrue(d, held));
        hn::StoreU(hn::IfThenZeroElse(held, all), d, out + i);
      }
      // Pixels whose first word missed: the rest of their list.
      for (uint32_t i = 0; i < vectored; ++i) {
        if (out[i] == 0 || first[i] == nullptr || first[i]->next == nullptr) continue;
        if (tvxcb::AnyHolds(first[i]->next, p + 3 * i, m->modMin, m->modMax)) {
          out[i] = 0;
          ++background;
        }
      }
      for (uint32_t i = vectored; i < count; ++i) {
        const bool held = tvxcb::AnyHolds(heads[x0 + i], p + 3 * i, m->modMin, m->modMax);
        out[i] = held ? 0 : 255;
        background += held;
      }
    }
  }
  if (numFgMask) *numFgMask = static_cast<int32_t>(int64_t{srcWidth} * srcHeight - background);
  return 0;
}

// ---- mask cleaning -------------------------------------------------------------------------------

// out = min (erode) or max (dilate) of in[x - 1], in[x], in[x + 1], the ends repeating their
// pixel (equal to leaving the outside out of a minimum or maximum).
template <bool kErode>
void MorphRow(const uint8_t* in, uint8_t* out, uint32_t width) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const auto op = [](uint8_t a, uint8_t b) { return kErode ? (a < b ? a : b) : (a > b ? a : b); };
  const auto at = [&](int64_t x) { return in[x < 0 ? 0 : x >= width ? width - 1 : x]; };
  uint32_t x = 0;
  if (width >= N + 2) {
    out[0] = op(at(-1), op(in[0], at(1)));
    for (x = 1; x + N + 1 <= width; x += static_cast<uint32_t>(N)) {
      const auto a = hn::LoadU(d, in + x - 1), b = hn::LoadU(d, in + x), c = hn::LoadU(d, in + x + 1);
      hn::StoreU(kErode ? hn::Min(a, hn::Min(b, c)) : hn::Max(a, hn::Max(b, c)), d, out + x);
    }
  }
  for (; x < width; ++x) out[x] = op(at(int64_t{x} - 1), op(in[x], at(int64_t{x} + 1)));
}

template <bool kErode>
void MorphColumns(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* out, uint32_t width) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N)) {
    const auto va = hn::LoadU(d, a + x), vb = hn::LoadU(d, b + x), vc = hn::LoadU(d, c + x);
    hn::StoreU(kErode ? hn::Min(va, hn::Min(vb, vc)) : hn::Max(va, hn::Max(vb, vc)), d, out + x);
  }
  for (; x < width; ++x) {
    const uint8_t lo = a[x] < b[x] ? (a[x] < c[x] ? a[x] : c[x]) : (b[x] < c[x] ? b[x] : c[x]);
    const uint8_t hi = a[x] > b[x] ? (a[x] > c[x] ? a[x] : c[x]) : (b[x] > c[x] ? b[x] : c[x]);
    out[x] = kErode ? lo : hi;
  }
}

// 3x3 erosion or dilation of a packed mask through a packed temporary of the same size.
template <bool kErode>
void Morph3x3(const uint8_t* in, uint8_t* tmp, uint8_t* out, uint32_t width, uint32_t height) {
  for (uint32_t y = 0; y < height; ++y) MorphRow<kErode>(in + size_t{y} * width, tmp + size_t{y} * width, width);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* up = tmp + size_t{y ? y - 1 : 0} * width;
    const uint8_t* mid = tmp + size_t{y} * width;
    const uint8_t* down = tmp + size_t{y + 1 < height ? y + 1 : y} * width;
    MorphColumns<kErode>(up, mid, down, out + size_t{y} * width, width);
  }
}

int32_t Segment(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                uint32_t dstStride, uint32_t morphology, uint32_t minArea) {
  const uint64_t area = uint64_t{width} * height;
  const uint64_t bytes = 3 * area + (minArea > 1 ? 4 * area + 4 : 0);
  if (bytes > UINT32_MAX) return 5;
  uint8_t* scratch = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 16));
  if (scratch == nullptr) return 5;
  uint8_t* a = scratch;
  uint8_t* b = scratch + area;
  uint8_t* tmp = scratch + 2 * area;
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const auto zero = hn::Zero(d);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* in = src + size_t{y} * srcStride;
    uint8_t* out = a + size_t{y} * width;
    uint32_t x = 0;
    for (; x + N <= width; x += static_cast<uint32_t>(N))
      hn::StoreU(hn::VecFromMask(d, hn::Ne(hn::LoadU(d, in + x), zero)), d, out + x);
    for (; x < width; ++x) out[x] = in[x] ? 255 : 0;
  }
  if (morphology >= 1) {
    Morph3x3<true>(a, tmp, b, width, height);
    Morph3x3<false>(b, tmp, a, width, height);
  }
  if (morphology >= 2) {
    Morph3x3<false>(a, tmp, b, width, height);
    Morph3x3<true>(b, tmp, a, width, height);
  }
  if (minArea > 1) {
    uint32_t* labels = reinterpret_cast<uint32_t*>(scratch + ((3 * area + 3) & ~uint64_t{3}));
    tvxcb::DropSmallBlobs(a, width, height, minArea, labels);
  }
  for (uint32_t y = 0; y < height; ++y) std::memcpy(dst + size_t{y} * dstStride, a + size_t{y} * width, width);
  tvxReleaseScratchBuffer_(scratch);
  return 0;
}

// ---- foreground integral -------------------------------------------------------------------------

int32_t ForegroundIntegral(const uint8_t* srcY, const uint8_t* srcC, const uint8_t* refY, const uint8_t* refC,
                           uint32_t srcWidth, uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride,
                           uint32_t lumaThresh, uint32_t chromaThresh, uint32_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t N = hn::Lanes(d8);
  // |a - b| > T is (|a - b| saturating-minus T) != 0; a threshold beyond the largest distance
  // never fires.
  const bool lumaOn = lumaThresh < 255, chromaOn = chromaThresh < 510;
  const auto tY = hn::Set(d8, static_cast<uint8_t>(lumaOn ? lumaThresh : 255));
  const auto tC = hn::Set(d16, static_cast<uint16_t>(chromaOn ? chromaThresh : 510));
  const auto low = hn::Set(d16, 0x00FF);
  const auto zero8 = hn::Zero(d8);
  const auto zero16 = hn::Zero(d16);
  alignas(64) uint8_t fg[kChunk];
  uint32_t* above = dst;
  for (uint32_t x = 0; x <= srcWidth; ++x) above[x] = 0;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* sy = srcY + size_t{y} * srcYStride;
    const uint8_t* ry = refY + size_t{y} * srcYStride;
    const uint8_t* sc = srcC + size_t{y / 2} * srcCStride;
    const uint8_t* rc = refC + size_t{y / 2} * srcCStride;
    uint32_t* cur = reinterpret_cast<uint32_t*>(reinterpret_cast<uint8_t*>(dst) + size_t{y + 1} * dstStride);
    cur[0] = 0;
    uint32_t run = 0;
    for (uint32_t x0 = 0; x0 < srcWidth; x0 += kChunk) {
      const uint32_t count = srcWidth - x0 < kChunk ? srcWidth - x0 : kChunk;
      uint32_t i = 0;
      for (; i + N <= count; i += static_cast<uint32_t>(N)) {
        const size_t x = size_t{x0} + i;  // even, so chroma bytes x .. x + N - 1 are its pairs
        const auto s = hn::LoadU(d8, sy + x), r = hn::LoadU(d8, ry + x);
        const auto dy = hn::Or(hn::SaturatedSub(s, r), hn::SaturatedSub(r, s));
        auto mask = lumaOn ? hn::VecFromMask(d8, hn::Ne(hn::SaturatedSub(dy, tY), zero8)) : zero8;
        if (chromaOn) {
          const auto cs = hn::LoadU(d8, sc + x), cr = hn::LoadU(d8, rc + x);
          const auto dc = hn::BitCast(d16, hn::Or(hn::SaturatedSub(cs, cr), hn::SaturatedSub(cr, cs)));
          const auto sum = hn::Add(hn::And(dc, low), hn::ShiftRight<8>(dc));
          mask = hn::Or(mask, hn::BitCast(d8, hn::VecFromMask(d16, hn::Ne(hn::SaturatedSub(sum, tC), zero16))));
        }
        hn::Store(mask, d8, fg + i);
      }
      for (; i < count; ++i) {
        fg[i] = tvxcb::ForegroundAt(sy, ry, sc, rc, x0 + i, lumaThresh, chromaThresh) ? 255 : 0;
      }
      for (i = 0; i < count; ++i) {
        run += fg[i] & 1u;
        cur[x0 + i + 1] = above[x0 + i + 1] + run;
      }
    }
    above = cur;
  }
  return 0;
}

}  // namespace codebook

int32_t CodeBookUpdate(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       const uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap) {
  return codebook::Update(cbmodel, src, srcWidth, srcHeight, srcStride, fgMask, fgMaskStride, cbMap);
}
int32_t CodeBookDiff(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                     uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap, int32_t* numFgMask) {
  return codebook::Diff(cbmodel, src, srcWidth, srcHeight, srcStride, fgMask, fgMaskStride, cbMap, numFgMask);
}
int32_t CodeBookSegment(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride, uint32_t morphology, uint32_t minArea) {
  return codebook::Segment(src, width, height, srcStride, dst, dstStride, morphology, minArea);
}
int32_t CodeBookForegroundIntegral(const uint8_t* srcY, const uint8_t* srcC, const uint8_t* refY, const uint8_t* refC,
                                   uint32_t srcWidth, uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride,
                                   uint32_t lumaThresh, uint32_t chromaThresh, uint32_t* dst, uint32_t dstStride) {
  return codebook::ForegroundIntegral(srcY, srcC, refY, refC, srcWidth, srcHeight, srcYStride, srcCStride, lumaThresh,
                                      chromaThresh, dst, dstStride);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(CodeBookUpdate);
HWY_EXPORT(CodeBookDiff);
HWY_EXPORT(CodeBookSegment);
HWY_EXPORT(CodeBookForegroundIntegral);
}  // namespace tvx

using namespace tvx;

int32_t tvxBGCodeBookUpdateu8V(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                               uint32_t srcStride, const uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap) {
  return HWY_DYNAMIC_DISPATCH(CodeBookUpdate)(cbmodel, src, srcWidth, srcHeight, srcStride, fgMask, fgMaskStride, cbMap);
}
int32_t tvxBGCodeBookDiffu8V(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                             uint32_t srcStride, uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap,
                             int32_t* numFgMask) {
  return HWY_DYNAMIC_DISPATCH(CodeBookDiff)(cbmodel, src, srcWidth, srcHeight, srcStride, fgMask, fgMaskStride, cbMap,
                                            numFgMask);
}
int32_t tvxSegmentFGMasku8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                            uint32_t dstStride, uint32_t morphology, uint32_t minArea) {
  return HWY_DYNAMIC_DISPATCH(CodeBookSegment)(src, width, height, srcStride, dst, dstStride, morphology, minArea);
}
int32_t tvxFindForegroundIntegrateImageYCbCr420u32V(const uint8_t* srcY, const uint8_t* srcC, const uint8_t* refY,
                                                    const uint8_t* refC, uint32_t srcWidth, uint32_t srcHeight,
                                                    uint32_t srcYStride, uint32_t srcCStride, uint32_t lumaThresh,
                                                    uint32_t chromaThresh, uint32_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(CodeBookForegroundIntegral)(srcY, srcC, refY, refC, srcWidth, srcHeight, srcYStride,
                                                          srcCStride, lumaThresh, chromaThresh, dst, dstStride);
}
#endif  // HWY_ONCE

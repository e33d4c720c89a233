// Reference variants of the background code book (model lifecycle, update, difference, clearing
// of stale words) and of its companions: foreground-mask cleaning and the foreground integral of
// a YCbCr 4:2:0 frame against a reference frame.
#include "cpu/codebook.h"

#include <cstring>

#include "frame/frame.h"

namespace tvxcb {

namespace {

constexpr const char* kPath = "src/cpu/tavixBGCodeBookC";

void* TakeBlock(uint32_t bytes) { return tvxMemAlign(bytes, 16); }

}  // namespace

void RefillFreeList(Model* m) {
  Storage* s = m->storage;
  const uint32_t numBlocks = RunLength(s->blockSize);
  if (!(numBlocks > 0)) tvx_fatal(kPath, 325, "numBlocks > 0");
  const uint32_t runBytes = numBlocks * uint32_t(sizeof(CodeWord));
  if (s->currentBlock == nullptr || s->freeBytes < runBytes) {
    void* block = TakeBlock(s->blockSize);
    if (block == nullptr) tvx_fatal(kPath, 441, "cwfreelist");
    *static_cast<void**>(block) = nullptr;
    if (s->currentBlock != nullptr) *static_cast<void**>(s->currentBlock) = block;
    else s->firstBlock = block;
    s->currentBlock = block;
    s->freeBytes = s->blockSize - kBlockHeader;
  }
  CodeWord* run = reinterpret_cast<CodeWord*>(static_cast<uint8_t*>(s->currentBlock) + (s->blockSize - s->freeBytes));
  s->freeBytes -= runBytes;
  for (uint32_t i = 0; i + 1 < numBlocks; ++i) run[i].next = &run[i + 1];
  run[numBlocks - 1].next = m->freeList;
  m->freeList = run;
}

uint32_t BlockCount(const Model* m) {
  uint32_t n = 0;
  for (void* b = m->storage->firstBlock; b != nullptr; b = *static_cast<void**>(b)) ++n;
  return n;
}

void DropSmallBlobs(uint8_t* mask, uint32_t width, uint32_t height, uint32_t minArea, uint32_t* labels) {
  enum : uint8_t { kPending = 1, kKept = 2 };
  const size_t total = size_t{width} * height;
  for (size_t start = 0; start < total; ++start) {
    if (mask[start] != 255) continue;
    // Breadth-first walk of the blob: labels[0..n) lists its pixels, labels[head..n) the queue.
    size_t n = 0, head = 0;
    labels[n++] = static_cast<uint32_t>(start);
    mask[start] = kPending;
    while (head < n) {
      const uint32_t j = labels[head++];
      const uint32_t x = j % width, y = j / width;
      const uint32_t x0 = x ? x - 1 : 0, x1 = x + 1 < width ? x + 1 : x;
      const uint32_t y0 = y ? y - 1 : 0, y1 = y + 1 < height ? y + 1 : y;
      for (uint32_t yy = y0; yy <= y1; ++yy)
        for (uint32_t xx = x0; xx <= x1; ++xx) {
          const size_t k = size_t{yy} * width + xx;
          if (mask[k] == 255) {
            mask[k] = kPending;
            labels[n++] = static_cast<uint32_t>(k);
          }
        }
    }
    const uint8_t verdict = n < minArea ? 0 : kKept;
    for (size_t i = 0; i < n; ++i) mask[labels[i]] = verdict;
  }
  for (size_t i = 0; i < total; ++i)
    if (mask[i] == kKept) mask[i] = 255;
}

}  // namespace tvxcb

using tvxcb::CodeWord;
using tvxcb::Model;

// ---- model lifecycle -----------------------------------------------------------------------------

void** tvxCreateBGCodeBookModelC(uint32_t width, uint32_t height, void** cbmodel) {
  Model* m = static_cast<Model*>(tvxMemAlign(sizeof(Model), 16));
  tvxcb::Storage* s = m ? static_cast<tvxcb::Storage*>(tvxMemAlign(sizeof(tvxcb::Storage), 16)) : nullptr;
  uint8_t* table = s ? static_cast<uint8_t*>(tvxMemAlign(768, 16)) : nullptr;
  if (table == nullptr) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "NULL storage pointer\n");
    tvxMemAlignFree(s);
    tvxMemAlignFree(m);
    *cbmodel = nullptr;
    return nullptr;
  }
  std::memset(m, 0, sizeof(Model));
  m->width = width;
  m->height = height;
  const uint8_t bounds[3] = {10, 10, 10}, lo[3] = {3, 1, 1}, hi[3] = {10, 1, 1};
  std::memcpy(m->cbBounds, bounds, 3);
  std::memcpy(m->modMin, lo, 3);
  std::memcpy(m->modMax, hi, 3);
  *s = tvxcb::Storage{nullptr, nullptr, tvxcb::kBlockSize, 0};
  m->storage = s;
  for (int i = 0; i < 768; ++i) table[i] = static_cast<uint8_t>(i < 256 ? 0 : i < 511 ? i - 255 : 255);
  m->satTable = table;
  const uint64_t mapBytes = uint64_t{width} * height * sizeof(CodeWord*);
  m->cbMap = mapBytes <= UINT32_MAX ? static_cast<CodeWord**>(tvxMemAlign(static_cast<uint32_t>(mapBytes), 16)) : nullptr;
  if (m->cbMap == nullptr) tvx_fatal("src/cpu/tavixBGCodeBookC", 272, "cbmodel->cbMap");
  std::memset(m->cbMap, 0, static_cast<size_t>(mapBytes));
  *cbmodel = m;
  return reinterpret_cast<void**>(m->cbMap);
}

int32_t tvxConfigBGCodeBookModelC(void* cbmodel, const uint8_t* cbBounds, const uint8_t* modMin, const uint8_t* modMax) {
  Model* m = static_cast<Model*>(cbmodel);
  std::memcpy(m->cbBounds, cbBounds, 3);
  std::memcpy(m->modMin, modMin, 3);
  std::memcpy(m->modMax, modMax, 3);
  return 0;
}

int32_t tvxReleaseBGCodeBookModelC(void** cbmodel) {
  Model* m = static_cast<Model*>(*cbmodel);
  if (m == nullptr) return 0;
  for (void* b = m->storage->firstBlock; b != nullptr;) {
    void* next = *static_cast<void**>(b);
    tvxMemAlignFree(b);
    b = next;
  }
  tvxMemAlignFree(m->storage);
  tvxMemAlignFree(m->satTable);
  tvxMemAlignFree(m->cbMap);
  tvxMemAlignFree(m);
  *cbmodel = nullptr;
  return 0;
}

// ---- learning and classification -------------------------------------------------------------

int32_t tvxBGCodeBookUpdateu8C(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                               uint32_t srcStride, const uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap) {
  Model* m = static_cast<Model*>(cbmodel);
  if (!tvxcb::FrameFits(m, srcWidth, srcHeight, cbMap)) return 3;
  const uint32_t t = ++m->t;
  const uint8_t* sat = m->satTable + 255;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* row = src + size_t{y} * srcStride;
    const uint8_t* mask = fgMask ? fgMask + size_t{y} * fgMaskStride : nullptr;
    CodeWord** heads = m->cbMap + size_t{y} * m->width;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      if (mask && mask[x] == 0) continue;
      const uint8_t* p = row + 3 * x;
      uint8_t low[3], high[3];
      for (int c = 0; c < 3; ++c) {
        low[c] = sat[int32_t{p[c]} - m->cbBounds[c]];
        high[c] = sat[int32_t{p[c]} + m->cbBounds[c]];
      }
      tvxcb::UpdatePixel(m, heads + x, p, low, high, t);
    }
  }
  return 0;
}

int32_t tvxBGCodeBookDiffu8C(void* cbmodel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                             uint32_t srcStride, uint8_t* fgMask, uint32_t fgMaskStride, void** cbMap,
                             int32_t* numFgMask) {
  const Model* m = static_cast<const Model*>(cbmodel);
  if (!tvxcb::FrameFits(m, srcWidth, srcHeight, cbMap)) return 3;
  int32_t count = static_cast<int32_t>(srcWidth * srcHeight);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* row = src + size_t{y} * srcStride;
    uint8_t* mask = fgMask + size_t{y} * fgMaskStride;
    CodeWord* const* heads = m->cbMap + size_t{y} * m->width;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      const bool background = tvxcb::AnyHolds(heads[x], row + 3 * x, m->modMin, m->modMax);
      mask[x] = background ? 0 : 255;
      count -= background;
    }
  }
  if (numFgMask) *numFgMask = count;
  return 0;
}

int32_t tvxBGCodeBookClearStaleu8C(void* cbmodel, int32_t staleThresh, const uint8_t* fgMask, uint32_t fgMaskWidth,
                                   uint32_t fgMaskHeight, uint32_t fgMaskStride, void** cbMap) {
  Model* m = static_cast<Model*>(cbmodel);
  if (!tvxcb::FrameFits(m, fgMaskWidth, fgMaskHeight, cbMap)) return 3;
  const uint32_t t = m->t;
  CodeWord* freeList = m->freeList;
  for (uint32_t y = 0; y < fgMaskHeight; ++y) {
    const uint8_t* mask = fgMask + size_t{y} * fgMaskStride;
    CodeWord** heads = m->cbMap + size_t{y} * m->width;
    for (uint32_t x = 0; x < fgMaskWidth; ++x) {
      if (mask[x] == 0) continue;
      CodeWord** link = heads + x;
      while (CodeWord* w = *link) {
        if (int64_t{w->stale} > int64_t{staleThresh}) {
          *link = w->next;
          w->next = freeList;
          freeList = w;
        } else {
          w->tLastUpdate = t;
          w->stale = 0;
          link = &w->next;
        }
      }
    }
  }
  m->freeList = freeList;
  return 0;
}

// ---- companions ------------------------------------------------------------------------------

namespace {

// 3x3 erosion (all in-image neighbours set) or dilation (any set) of a packed 0/255 mask.
void Morph3x3(const uint8_t* in, uint8_t* out, uint32_t width, uint32_t height, bool erode) {
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      bool all = true, any = false;
      for (int64_t yy = int64_t{y} - 1; yy <= int64_t{y} + 1; ++yy)
        for (int64_t xx = int64_t{x} - 1; xx <= int64_t{x} + 1; ++xx) {
          if (yy < 0 || xx < 0 || yy >= height || xx >= width) continue;
          const bool set = in[yy * width + xx] != 0;
          all = all && set;
          any = any || set;
        }
      out[size_t{y} * width + x] = (erode ? all : any) ? 255 : 0;
    }
}

}  // namespace

int32_t tvxSegmentFGMasku8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                            uint32_t dstStride, uint32_t morphology, uint32_t minArea) {
  const uint64_t area = uint64_t{width} * height;
  const uint64_t bytes = 2 * area + (minArea > 1 ? 4 * area + 4 : 0);
  if (bytes > UINT32_MAX) return 5;
  uint8_t* scratch = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 16));
  if (scratch == nullptr) return 5;
  uint8_t* a = scratch;
  uint8_t* b = scratch + area;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) a[size_t{y} * width + x] = src[size_t{y} * srcStride + x] ? 255 : 0;
  if (morphology >= 1) {
    Morph3x3(a, b, width, height, true);
    Morph3x3(b, a, width, height, false);
  }
  if (morphology >= 2) {
    Morph3x3(a, b, width, height, false);
    Morph3x3(b, a, width, height, true);
  }
  if (minArea > 1) {
    uint32_t* labels = reinterpret_cast<uint32_t*>(scratch + ((2 * area + 3) & ~uint64_t{3}));
    tvxcb::DropSmallBlobs(a, width, height, minArea, labels);
  }
  for (uint32_t y = 0; y < height; ++y) std::memcpy(dst + size_t{y} * dstStride, a + size_t{y} * width, width);
  tvxReleaseScratchBuffer_(scratch);
  return 0;
}

int32_t tvxFindForegroundIntegrateImageYCbCr420u32C(const uint8_t* srcY, const uint8_t* srcC, const uint8_t* refY,
                                                    const uint8_t* refC, uint32_t srcWidth, uint32_t srcHeight,
                                                    uint32_t srcYStride, uint32_t srcCStride, uint32_t lumaThresh,
                                                    uint32_t chromaThresh, uint32_t* dst, uint32_t dstStride) {
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
    for (uint32_t x = 0; x < srcWidth; ++x) {
      run += tvxcb::ForegroundAt(sy, ry, sc, rc, x, lumaThresh, chromaThresh);
      cur[x + 1] = above[x + 1] + run;
    }
    above = cur;
  }
  return 0;
}

// The background code-book model's records and the per-pixel steps that the reference and SIMD
// variants share, so that both leave the model in exactly the same state.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvxcb {

// A pixel of an NV12 frame is foreground when its luma differs from the reference by more than
// lumaThresh or its 2x2 block's chroma pair by more than chromaThresh (sum of both differences).
inline bool ForegroundAt(const uint8_t* sy, const uint8_t* ry, const uint8_t* sc, const uint8_t* rc, uint32_t x,
                         uint32_t lumaThresh, uint32_t chromaThresh) {
  const auto absDiff = [](int32_t a, int32_t b) { return uint32_t(a > b ? a - b : b - a); };
  const uint32_t c = 2 * (x / 2);
  return absDiff(sy[x], ry[x]) > lumaThresh || absDiff(sc[c], rc[c]) + absDiff(sc[c + 1], rc[c + 1]) > chromaThresh;
}

// One box pair in RGB space (channels in source order). 24 bytes with 32-bit pointers.
struct CodeWord {
  CodeWord* next;
  uint32_t tLastUpdate;
  uint32_t stale;  // the longest gap between matches, in frames
  uint8_t boxMin[3], boxMax[3];
  uint8_t learnMin[3], learnMax[3];
};

// Block storage of code words: blocks of blockSize bytes chained through their first word (a
// pointer to the next block); runs of words are carved from the current block.
struct Storage {
  void* firstBlock;
  void* currentBlock;
  uint32_t blockSize;
  uint32_t freeBytes;  // bytes of the current block not yet carved
};

struct Model {
  uint32_t width;
  uint32_t height;
  uint32_t t;  // frame counter
  uint8_t cbBounds[3];
  uint8_t modMin[3];
  uint8_t modMax[3];
  uint8_t reserved[3];
  CodeWord** cbMap;  // width * height list heads
  Storage* storage;
  CodeWord* freeList;
  uint8_t* satTable;  // satTable[255 + k] = clamp(k, 0, 255) for k in -255..512
};

constexpr uint32_t kBlockSize = 65408;
constexpr uint32_t kBlockHeader = 8;  // room for the link to the next block
constexpr uint32_t kMaxRun = 1024;
static_assert(sizeof(void*) <= kBlockHeader, "a block's link must fit its header");

// Words per refill of the free list.
constexpr uint32_t RunLength(uint32_t blockSize) {
  const uint32_t fit = (blockSize - kBlockHeader) / uint32_t(sizeof(CodeWord));
  return fit < kMaxRun ? fit : kMaxRun;
}

// Chains a new run of words into the free list, taking a new block when the current one is
// short. Ends the process when the heap is exhausted (there is no soft failure path).
void RefillFreeList(Model* model);

// Number of storage blocks the model holds (tests and diagnostics).
uint32_t BlockCount(const Model* model);

// A frame of srcWidth x srcHeight fits the model and comes with the model's own map.
inline bool FrameFits(const Model* m, uint32_t srcWidth, uint32_t srcHeight, void** cbMap) {
  return srcWidth <= m->width && srcHeight <= m->height && reinterpret_cast<CodeWord**>(cbMap) == m->cbMap;
}

// One pixel of an update: p the colour, low/high the colour -/+ cbBounds clamped to 0..255.
inline void UpdatePixel(Model* m, CodeWord** head, const uint8_t* p, const uint8_t* low, const uint8_t* high,
                        uint32_t t) {
  CodeWord* w = *head;
  for (; w != nullptr; w = w->next) {
    if (w->learnMin[0] <= p[0] && p[0] <= w->learnMax[0] && w->learnMin[1] <= p[1] && p[1] <= w->learnMax[1] &&
        w->learnMin[2] <= p[2] && p[2] <= w->learnMax[2]) {
      w->tLastUpdate = t;
      // Unconditional stores: with a noisy colour these comparisons are coin flips, which
      // branches would mispredict.
      for (int c = 0; c < 3; ++c) {
        const uint8_t bmin = w->boxMin[c], bmax = w->boxMax[c], lmin = w->learnMin[c], lmax = w->learnMax[c];
        w->boxMin[c] = p[c] < bmin ? p[c] : bmin;
        w->boxMax[c] = p[c] > bmax ? p[c] : bmax;
        w->learnMax[c] = static_cast<uint8_t>(lmax + (lmax < high[c]));
        w->learnMin[c] = static_cast<uint8_t>(lmin - (lmin > low[c]));
      }
      break;
    }
    const uint32_t gap = t - w->tLastUpdate;
    if (gap > w->stale) w->stale = gap;
  }
  if (w != nullptr) {
    // The words after the match (and the match itself, whose gap is now 0) age as well.
    for (; w != nullptr; w = w->next) {
      const uint32_t gap = t - w->tLastUpdate;
      if (gap > w->stale) w->stale = gap;
    }
    return;
  }
  if (m->freeList == nullptr) RefillFreeList(m);
  CodeWord* fresh = m->freeList;
  m->freeList = fresh->next;
  fresh->next = *head;
  fresh->tLastUpdate = t;
  fresh->stale = 0;
  for (int c = 0; c < 3; ++c) {
    fresh->boxMin[c] = fresh->boxMax[c] = p[c];
    fresh->learnMin[c] = low[c];
    fresh->learnMax[c] = high[c];
  }
  *head = fresh;
}

// The word's box, widened by the margins, holds the colour (signed, unclamped).
inline bool Holds(const CodeWord* w, const uint8_t* p, const uint8_t* modMin, const uint8_t* modMax) {
  for (int c = 0; c < 3; ++c) {
    if (int32_t{p[c]} < int32_t{w->boxMin[c]} - modMin[c] || int32_t{p[c]} > int32_t{w->boxMax[c]} + modMax[c])
      return false;
  }
  return true;
}

// Some word from w on holds the colour.
inline bool AnyHolds(const CodeWord* w, const uint8_t* p, const uint8_t* modMin, const uint8_t* modMax) {
  for (; w != nullptr; w = w->next)
    if (Holds(w, p, modMin, modMax)) return true;
  return false;
}

// Companion kernels shared by both tiers.
// Clears the 8-connected blobs of 255 bytes smaller than minArea in a packed width x height
// 0/255 mask; labels holds width * height entries of scratch. 
void DropSmallBlobs(uint8_t* mask, uint32_t width, uint32_t height, uint32_t minArea, uint32_t* labels);

}  // namespace tvxcb

// MSER reference tier: detector handles and the component-tree walk of both polarities.
//
// The tree is built by union-find over the interior pixels sorted by their key (the grey value
// for MSER+, 255 - grey for MSER-), sweeping the threshold from 255 down to 0: at threshold t
// the components are those of {key >= t}. Every component that gains pixels at a threshold
// becomes a new tree node at that threshold; its previous node (and those of the components it
// absorbed) become its children. Each component keeps its pixels as a linked list that is only
// ever extended at its tail, so every node's pixels stay one contiguous run of `area` links
// starting at the node's head pixel. Stability, the local-minimum rule and the diversity rule are
// then evaluated over the finished tree in integer arithmetic (variations in 1/65536 units).
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "cpu/mser_core.h"
#include "frame/frame.h"

namespace {

constexpr const char* kPath = "src/cpu/tavixMserFxpC";
constexpr uint32_t kUnadded = 0xFFFFFFFFu;  // mask plane: pixel not (yet) part of a component
constexpr uint32_t kRoot = 0x80000000u;     // mask plane: root pixel, low bits its component
constexpr uint32_t kNone = 0xFFFFFFFFu;
constexpr uint32_t kUndefined = 0xFFFFFFFFu;  // variation with no component delta steps on
constexpr uint32_t kVarMax = 0xFFFFFFFEu;     // variations saturate here
constexpr uint32_t kWorkBytes = 256 * 1024;

std::atomic<int> g_threading{1};
std::atomic<int> g_failThreadStart{0};
std::atomic<uint32_t> g_maskOffset{0};

struct Comp {
  uint32_t area, head, tail, node;
  uint32_t level;   // last threshold at which the component gained pixels
  uint32_t listed;  // last threshold at which it entered the list of grown components
};

struct Node {
  uint32_t area, head, parent, var, minChildVar, count, stableParent;
  uint8_t level;
  uint8_t candidate;
};

struct Polarity {
  uint32_t* mask;     // union-find plane: kUnadded, kRoot | component, or the parent pixel
  uint32_t* next;     // pixel list links
  uint32_t* order;    // interior pixels by key, highest first; afterwards the reported nodes
  uint32_t* touched;  // roots that gained pixels at the current threshold
  uint32_t* pending;  // nodes whose parent is the node of the component now holding them
  Comp* comps;
  Node* nodes;
  uint32_t* hist;  // 256 counts, in the handle's work area
  uint32_t numNodes, numRegions;
  uint64_t regionPoints;
};

struct Handle {
  uint32_t width, height, nStride, nNumPixels, nDelta, nMinSize, nMaxSize;
  float nMaxVar, nMinDiv;
  uint32_t maxVarQ, minDivQ;
  bool eightNeighbours;
  void* maskPlusBlock;
  void* maskMinusBlock;
  uint32_t* pMaskPlus;
  uint32_t* pMaskMinus;
  uint8_t* work;
  Polarity plus, minus;
};

// What one polarity's walk needs for one call.
struct Walk {
  Handle* h;
  Polarity* pol;
  const uint8_t* keys;
  const tvxmser::Prep* prep;
  uint32_t width, height, stride, maxArea;
};

uint32_t RoundUp32(uint32_t v) { return static_cast<uint32_t>((uint64_t{v} + 31) & ~uint64_t{31}); }

uint32_t Find(uint32_t* mask, uint32_t i) {
  for (;;) {
    const uint32_t p = mask[i];
    if (p & kRoot) return i;
    const uint32_t g = mask[p];
    if (g & kRoot) return p;
    mask[i] = g;  // path halving
    i = g;
  }
}

uint32_t Variation(uint32_t grown, uint32_t area) {
  const uint64_t v = (uint64_t{grown - area} << 16) / area;
  return v > kVarMax ? kVarMax : static_cast<uint32_t>(v);
}

void BuildTree(const Walk& w) {
  Polarity& p = *w.pol;
  const uint32_t ns = w.stride;
  w.prep->fill(p.mask, size_t{ns} * w.height, kUnadded);
  uint32_t* hist = p.hist;
  std::memset(hist, 0, 256 * sizeof(uint32_t));
  for (uint32_t y = 1; y + 1 < w.height; ++y) {
    const uint8_t* row = w.keys + size_t{y} * ns;
    for (uint32_t x = 1; x + 1 < w.width; ++x) ++hist[row[x]];
  }
  uint32_t start[257];
  start[255] = 0;
  for (int l = 254; l >= 0; --l) start[l] = start[l + 1] + hist[l + 1];
  uint32_t fillPos[256];
  std::memcpy(fillPos, start, sizeof(fillPos));
  for (uint32_t y = 1; y + 1 < w.height; ++y) {
    const uint8_t* row = w.keys + size_t{y} * ns;
    for (uint32_t x = 1; x + 1 < w.width; ++x) p.order[fillPos[row[x]]++] = y * ns + x;
  }

  const int32_t s = static_cast<int32_t>(ns);
  const int32_t off8[8] = {-s - 1, -s, -s + 1, -1, 1, s - 1, s, s + 1};
  const int32_t off4[4] = {-s, -1, 1, s};
  const int32_t* off = w.h->eightNeighbours ? off8 : off4;
  const int numOff = w.h->eightNeighbours ? 8 : 4;

  uint32_t* mask = p.mask;
  uint32_t* next = p.next;
  Comp* comps = p.comps;
  Node* nodes = p.nodes;
  uint32_t numComps = 0, numNodes = 0;
  for (int l = 255; l >= 0; --l) {
    const uint32_t level = static_cast<uint32_t>(l);
    uint32_t numTouched = 0, numPending = 0;
    const uint32_t* px = p.order + start[l];
    for (uint32_t j = 0; j < hist[l]; ++j) {
      const uint32_t i = px[j];
      uint32_t roots[8];
      int k = 0;
      for (int n = 0; n < numOff; ++n) {
        const uint32_t q = static_cast<uint32_t>(static_cast<int32_t>(i) + off[n]);
        if (mask[q] == kUnadded) continue;
        const uint32_t r = Find(mask, q);
        bool seen = false;
        for (int m = 0; m < k; ++m) seen |= roots[m] == r;
        if (!seen) roots[k++] = r;
      }
      if (k == 0) {
        comps[numComps] = Comp{1, i, i, kNone, level, level};
        mask[i] = kRoot | numComps++;
        p.touched[numTouched++] = i;
        continue;
      }
      int main = 0;
      for (int m = 0; m < k; ++m) {
        Comp& c = comps[mask[roots[m]] & ~kRoot];
        if (c.level != level) {  // first growth at this threshold: its last node becomes a child
          if (c.node != kNone) p.pending[numPending++] = c.node;
          c.level = level;
        }
        if (c.area > comps[mask[roots[main]] & ~kRoot].area) main = m;
      }
      const uint32_t mr = roots[main];
      Comp& mc = comps[mask[mr] & ~kRoot];
      mask[i] = mr;
      next[mc.tail] = i;
      mc.tail = i;
      ++mc.area;
      for (int m = 0; m < k; ++m) {
        if (m == main) continue;
        const Comp& c = comps[mask[roots[m]] & ~kRoot];
        next[mc.tail] = c.head;
        mc.tail = c.tail;
        mc.area += c.area;
        mask[roots[m]] = mr;
      }
      if (mc.listed != level) {
        mc.listed = level;
        p.touched[numTouched++] = mr;
      }
    }
    for (uint32_t t = 0; t < numTouched; ++t) {
      Comp& c = comps[mask[Find(mask, p.touched[t])] & ~kRoot];
      if (c.node != kNone && nodes[c.node].level == level) continue;  // already finalised at this threshold
      nodes[numNodes] = Node{c.area, c.head, kNone, kUndefined, kUndefined, 1, kNone, static_cast<uint8_t>(level), 0};
      c.node = numNodes++;
    }
    for (uint32_t t = 0; t < numPending; ++t) {
      Node& n = nodes[p.pending[t]];
      n.parent = comps[mask[Find(mask, n.head)] & ~kRoot].node;
    }
  }
  p.numNodes = numNodes;
}

// Variation, the local-minimum rule, the area limits and the diversity rule over the tree; the
// reported nodes land in p.order in creation order.
void SelectRegions(const Walk& w) {
  Polarity& p = *w.pol;
  const Handle& h = *w.h;
  Node* nodes = p.nodes;
  const uint32_t n = p.numNodes;
  for (uint32_t i = 0; i < n; ++i) {
    Node& a = nodes[i];
    if (a.level < h.nDelta) continue;
    const uint32_t target = a.level - h.nDelta;
    uint32_t up = i;
    while (nodes[up].parent != kNone && nodes[nodes[up].parent].level >= target) up = nodes[up].parent;
    a.var = Variation(nodes[up].area, a.area);
  }
  for (uint32_t i = 0; i < n; ++i) {  // children come before their parents
    const Node& a = nodes[i];
    if (a.parent == kNone) continue;
    Node& b = nodes[a.parent];
    b.count += a.count;
    if (a.var != kUndefined) b.minChildVar = std::min(b.minChildVar, a.var);
  }
  for (uint32_t i = 0; i < n; ++i) {
    Node& a = nodes[i];
    if (a.var == kUndefined || a.area < h.nMinSize || a.area > w.maxArea || a.var > h.maxVarQ) continue;
    if (a.minChildVar != kUndefined && a.var > a.minChildVar) continue;
    if (a.var > 0 && a.parent != kNone && nodes[a.parent].var != kUndefined && a.var >= nodes[a.parent].var) continue;
    a.candidate = 1;
  }
  for (uint32_t i = n; i-- > 0;) {  // parents before their children
    Node& a = nodes[i];
    if (a.parent != kNone) a.stableParent = nodes[a.parent].candidate ? a.parent : nodes[a.parent].stableParent;
  }
  p.numRegions = 0;
  p.regionPoints = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const Node& a = nodes[i];
    if (!a.candidate) continue;
    if (a.stableParent != kNone) {
      const uint32_t big = nodes[a.stableParent].area;
      if (((uint64_t{big - a.area} << 16) / big) < h.minDivQ) continue;
    }
    p.order[p.numRegions++] = i;
    p.regionPoints += a.area;
  }
}

void* WalkThread(void* arg) {
  const Walk& w = *static_cast<const Walk*>(arg);
  BuildTree(w);
  SelectRegions(w);
  return nullptr;
}

void* AllocBlock(uint64_t bytes) {
  if (bytes == 0 || bytes > 0xFFFFFF00u) return nullptr;
  return tvxMemAlign(static_cast<uint32_t>(bytes), 32);
}

void FreeHandle(Handle* h) {
  if (!h) return;
  tvxMemAlignFree(h->maskPlusBlock);
  tvxMemAlignFree(h->maskMinusBlock);
  tvxMemAlignFree(h->work);
  for (Polarity* p : {&h->plus, &h->minus}) {
    tvxMemAlignFree(p->next);
    tvxMemAlignFree(p->order);
    tvxMemAlignFree(p->touched);
    tvxMemAlignFree(p->pending);
    tvxMemAlignFree(p->comps);
    tvxMemAlignFree(p->nodes);
  }
  tvxMemAlignFree(h);
}

void Reference_toWorking(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                         uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    std::memcpy(dst + size_t{y} * dstStride, src + size_t{y} * srcStride, width);
    std::memset(dst + size_t{y} * dstStride + width, 0, dstStride - width);
  }
}
void Reference_invert(const uint8_t* src, uint8_t* dst, size_t count) {
  for (size_t i = 0; i < count; ++i) dst[i] = static_cast<uint8_t>(255 - src[i]);
}
void Reference_fill(uint32_t* plane, size_t count, uint32_t value) {
  for (size_t i = 0; i < count; ++i) plane[i] = value;
}

}  // namespace

void tvx_mser_set_threading_for_test(int enabled) { g_threading.store(enabled); }
void tvx_mser_fail_thread_start_for_test(int fail) { g_failThreadStart.store(fail); }
void tvx_mser_mask_offset_for_test(uint32_t bytes) { g_maskOffset.store(bytes); }

namespace tvxmser {

const Prep kReferencePrep = {&Reference_toWorking, &Reference_invert, &Reference_fill};

int32_t Create(uint32_t width, uint32_t height, uint32_t delta, uint32_t minArea, uint32_t maxArea, float maxVar,
               float minDiv, bool eightNeighbours, void** handle) {
  *handle = nullptr;
  auto fail = [](Handle* h) {
    FreeHandle(h);
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Failed to initialize MSER handle!\n");
    return 0;
  };
  Handle* h = static_cast<Handle*>(tvxMemAlign(sizeof(Handle), 32));
  if (!h) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "ERROR: Cannot allocate MSER handle.\n");
    return fail(nullptr);
  }
  std::memset(static_cast<void*>(h), 0, sizeof(Handle));
  if (width <= 50) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "ERROR: image width must be greater than 50 for MSER.\n");
    return fail(h);
  }
  if (height <= 5) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "ERROR: image height must be greater than 5 for MSER.\n");
    return fail(h);
  }
  h->width = width;
  h->height = height;
  h->nStride = RoundUp32(width);
  h->nNumPixels = static_cast<uint32_t>(std::min<uint64_t>(uint64_t{width - 2} * (height - 2), 0xFFFFFFFFu));
  h->nDelta = delta;
  h->nMinSize = minArea;
  h->nMaxSize = maxArea;
  h->nMaxVar = maxVar;
  h->nMinDiv = minDiv;
  h->eightNeighbours = eightNeighbours;
  const Handle* pHandle = h;
  if (!(((pHandle->nStride & (32 - 1)) == 0) && (pHandle->nStride <= ((1 << 8) - 1) * 32) &&
        (0 < pHandle->nDelta && pHandle->nDelta < 256) && (pHandle->nMinSize < pHandle->nNumPixels) &&
        (pHandle->nMaxSize > 1) && (uint64_t{pHandle->nMinSize} + 1 < pHandle->nMaxSize) && (pHandle->nMaxVar > 0) &&
        (pHandle->nMinDiv < (1 << 8)))) {
    tvx_fatal(kPath, 394,
              "( ( pHandle->nStride&(32-1)) == 0 ) && ( pHandle->nStride <= ((1<<8)-1)*32) && ( 0<pHandle->nDelta && "
              "pHandle->nDelta<256) && ( pHandle->nMinSize < pHandle->nNumPixels) && ( pHandle->nMaxSize > 1) && ( "
              "pHandle->nMinSize+1 < pHandle->nMaxSize) && ( pHandle->nMaxVar > 0) && ( pHandle->nMinDiv < (1<<8))");
  }
  const double maxVarQ = std::floor(double{maxVar} * 65536.0 + 0.5);
  h->maxVarQ = maxVarQ >= double{kVarMax} ? kVarMax : static_cast<uint32_t>(maxVarQ);
  h->minDivQ = minDiv <= 0.0f ? 0u : static_cast<uint32_t>(std::floor(double{minDiv} * 65536.0 + 0.5));

  const uint64_t planePixels = uint64_t{h->nStride} * height;
  const uint64_t interior = uint64_t{width - 2} * (height - 2);
  const uint32_t offset = g_maskOffset.load();
  h->maskPlusBlock = AllocBlock(planePixels * 4 + 64);
  h->maskMinusBlock = AllocBlock(planePixels * 4 + 64);
  if (!h->maskPlusBlock || !h->maskMinusBlock) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "ERROR: out of memory initializing MSER.\n");
    return fail(h);
  }
  h->pMaskPlus = reinterpret_cast<uint32_t*>(static_cast<uint8_t*>(h->maskPlusBlock) + offset % 64);
  h->pMaskMinus = reinterpret_cast<uint32_t*>(static_cast<uint8_t*>(h->maskMinusBlock) + offset % 64);
  if (!(((uintptr_t)pHandle->pMaskPlus & (32 - 1)) == 0 && ((uintptr_t)pHandle->pMaskMinus & (32 - 1)) == 0)) {
    tvx_fatal(kPath, 431,
              "((uintptr_t)pHandle->pMaskPlus&(32-1)) == 0 && ((uintptr_t)pHandle->pMaskMinus&(32-1)) == 0");
  }
  h->work = static_cast<uint8_t*>(AllocBlock(kWorkBytes));
  bool ok = h->work != nullptr;
  h->plus.mask = h->pMaskPlus;
  h->minus.mask = h->pMaskMinus;
  h->plus.hist = reinterpret_cast<uint32_t*>(h->work);
  h->minus.hist = reinterpret_cast<uint32_t*>(h->work + 1024);
  for (Polarity* p : {&h->plus, &h->minus}) {
    if (!ok) break;
    p->next = static_cast<uint32_t*>(AllocBlock(planePixels * 4));
    p->order = static_cast<uint32_t*>(AllocBlock(interior * 4));
    p->touched = static_cast<uint32_t*>(AllocBlock(interior * 4));
    p->pending = static_cast<uint32_t*>(AllocBlock(interior * 4));
    p->comps = static_cast<Comp*>(AllocBlock(interior * sizeof(Comp)));
    p->nodes = static_cast<Node*>(AllocBlock(interior * sizeof(Node)));
    ok = p->next && p->order && p->touched && p->pending && p->comps && p->nodes;
  }
  if (!ok) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "ERROR: out of memory initializing MSER.\n");
    return fail(h);
  }
  *handle = h;
  return 1;
}

int32_t Release(void* handle) {
  FreeHandle(static_cast<Handle*>(handle));
  return 0;
}

int32_t Run(void* handle, const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, bool eightNeighbours,
            const Outputs& out, const Prep& prep) {
  Handle* h = static_cast<Handle*>(handle);
  if (width > h->width || height > h->height || eightNeighbours != h->eightNeighbours) {
    *out.numContours = 0;
    return 3;
  }
  if (width < 3 || height < 3) {  // no interior pixels
    *out.numContours = 0;
    return 0;
  }
  // Re-targeting: a smaller image works on its own stride and pixel count, and the largest
  // region area shrinks with the image area.
  const uint32_t ns = RoundUp32(width);
  const uint32_t maxArea =
      static_cast<uint32_t>(uint64_t{h->nMaxSize} * width * height / (uint64_t{h->width} * h->height));
  const uint32_t planeBytes = ns * height;
  uint8_t* working = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(planeBytes, 32));
  if (!working) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "ERROR: Failed to allocate memory of %i bytes.\n", static_cast<int>(planeBytes));
    *out.numContours = 0;
    return 5;
  }
  uint8_t* inverted = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(planeBytes, 32));
  if (!inverted) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "ERROR: failed to extract MSER-.\n");
    tvxReleaseScratchBuffer_(working);
    *out.numContours = 0;
    return 5;
  }
  prep.toWorking(src, width, height, stride, working, ns);
  prep.invert(working, inverted, planeBytes);

  Walk plus{h, &h->plus, working, &prep, width, height, ns, maxArea};
  Walk minus{h, &h->minus, inverted, &prep, width, height, ns, maxArea};
  bool started = false;
  pthread_t thread;
  if (g_threading.load() && !g_failThreadStart.load()) started = pthread_create(&thread, nullptr, &WalkThread, &minus) == 0;
  if (!started) WalkThread(&minus);
  WalkThread(&plus);
  if (started) pthread_join(thread, nullptr);

  // Merge: MSER+ regions, then MSER- regions, until a capacity is reached.
  const uint64_t totalPoints = h->plus.regionPoints + h->minus.regionPoints;
  uint32_t k = 0;
  uint64_t used = 0;
  bool full = false;
  const Polarity* pols[2] = {&h->plus, &h->minus};
  for (int s = 0; s < 2 && !full; ++s) {
    const Polarity& p = *pols[s];
    for (uint32_t r = 0; r < p.numRegions; ++r) {
      const Node& node = p.nodes[p.order[r]];
      if (k == out.maxContours) {
        if (out.extendedLog)
          tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG,
                  "ERROR: extracted contours exceed the maximum number allowed of %i. Please increase maxContours.\n",
                  static_cast<int>(out.maxContours));
        else
          tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG,
                  "ERROR: maxContours = %i,  detected more MSER regions beyond this capacity. Please consider "
                  "increasing maxContours.\n",
                  static_cast<int>(out.maxContours));
        full = true;
        break;
      }
      if (used + node.area > out.pointsArraySize) {
        tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG,
                "ERROR: %i contour points extracted. Exceeds the maximum number of %i points allowed in the contour "
                "output buffers. Please increase pointsArraySize.\n",
                static_cast<int>(totalPoints), static_cast<int>(out.pointsArraySize));
        full = true;
        break;
      }
      uint32_t xmin = width, ymin = height, xmax = 0, ymax = 0;
      uint32_t i = node.head;
      for (uint32_t j = 0; j < node.area; ++j, i = p.next[i]) {
        const uint32_t y = i / ns, x = i - y * ns;
        if (out.split) {
          out.pointsArray[used + j] = x;
          out.pointsArray[size_t{out.pointsArraySize} + used + j] = y;
        } else {
          out.pointsArray[2 * (used + j)] = x;
          out.pointsArray[2 * (used + j) + 1] = y;
        }
        xmin = std::min(xmin, x);
        xmax = std::max(xmax, x);
        ymin = std::min(ymin, y);
        ymax = std::max(ymax, y);
      }
      out.numPointsInContour[k] = node.area;
      if (out.contourVariation) out.contourVariation[k] = static_cast<float>(node.var) / 65536.0f;
      if (out.contourPolarity) out.contourPolarity[k] = s == 0 ? 1 : -1;
      if (out.contourNodeId) out.contourNodeId[k] = p.order[r];
      if (out.contourNodeCounter) out.contourNodeCounter[k] = node.count;
      if (out.contourBoundingBox) {
        out.contourBoundingBox[4 * k] = xmin;
        out.contourBoundingBox[4 * k + 1] = ymin;
        out.contourBoundingBox[4 * k + 2] = xmax;
        out.contourBoundingBox[4 * k + 3] = ymax;
      }
      used += node.area;
      ++k;
    }
  }
  *out.numContours = k;
  tvxReleaseScratchBuffer_(inverted);
  tvxReleaseScratchBuffer_(working);
  return 0;
}

}  // namespace tvxmser

// ---- reference variants -----------------------------------------------------------------------

using tvxmser::Outputs;

int32_t tvxMserInitC(uint32_t width, uint32_t height, uint32_t delta, uint32_t minArea, uint32_t maxArea, float maxVar,
                     float minDiv, void** handle) {
  return tvxmser::Create(width, height, delta, minArea, maxArea, maxVar, minDiv, false, handle);
}
int32_t tvxMserNN8InitC(uint32_t width, uint32_t height, uint32_t delta, uint32_t minArea, uint32_t maxArea,
                        float maxVar, float minDiv, void** handle) {
  return tvxmser::Create(width, height, delta, minArea, maxArea, maxVar, minDiv, true, handle);
}
int32_t tvxMserReleaseC(void* mserHandle) { return tvxmser::Release(mserHandle); }

TVX_MSER_IMAGE_ENTRIES(C, tvxmser::kReferencePrep)

// Suzuki-Abe border following. The image is copied with a one-pixel background frame and
// binarised to 0/1; a row-by-row scan finds where outer borders (0 then 1) and hole borders
// (foreground then 0) begin, follows each border once to mark it (a border pixel whose right-hand
// neighbour is background gets a negative mark, others a positive one, so later scans know which
// borders they are inside), and records where it starts, whether it is a hole and its parent. The
// points are written afterwards by following every border again from its start: a border's path
// depends only on which pixels are zero, which marking never changes, so no point storage is
// needed between the two passes.
#include "cpu/contour_find.h"

#include <cstring>

#include "frame/frame.h"

namespace tvxcontour {

namespace {

struct Record {
  uint32_t origin;   // index of the start pixel in the framed copy
  uint32_t parent;   // record index (0: the frame)
  uint32_t count;    // points in the written form
  uint32_t child;    // first child (0: none)
  uint32_t sibling;  // next sibling (0: none)
  uint32_t out;      // position in the output order
  uint32_t hole;
};

// A growable array of records in library memory; index 0 is the frame.
class Records {
 public:
  ~Records() { tvxMemFree(data_); }
  bool Push(const Record& r) {
    if (size_ == capacity_) {
      const uint32_t grown = capacity_ ? capacity_ * 2 : 256;
      if (uint64_t{grown} * sizeof(Record) > 0x7FFFFFFFu) return false;
      Record* bigger = static_cast<Record*>(tvxMemAlloc(grown * uint32_t(sizeof(Record)), 16));
      if (bigger == nullptr) return false;
      if (size_) std::memcpy(bigger, data_, size_ * sizeof(Record));
      tvxMemFree(data_);
      data_ = bigger;
      capacity_ = grown;
    }
    data_[size_++] = r;
    return true;
  }
  Record& operator[](uint32_t i) { return data_[i]; }
  uint32_t size() const { return size_; }

 private:
  Record* data_ = nullptr;
  uint32_t size_ = 0, capacity_ = 0;
};

// Steps of the eight chain directions, counter-clockwise from "right" (y grows downwards).
constexpr int kStepX[8] = {1, 1, 0, -1, -1, -1, 0, 1};
constexpr int kStepY[8] = {0, -1, -1, -1, 0, 1, 1, 1};

struct Tracer {
  int8_t* img;
  uint32_t* labels;  // owner of each mark (tree modes), else null
  int deltas[16] = {};
  bool simple;

  explicit Tracer(int8_t* image, uint32_t* owner, uint32_t stride, bool approxSimple)
      : img(image), labels(owner), simple(approxSimple) {
    const int w = int(stride);
    const int d[8] = {1, -w + 1, -w, -w - 1, -1, w - 1, w, w + 1};
    for (int i = 0; i < 8; ++i) deltas[i] = deltas[i + 8] = d[i];
  }

  // Follows the border starting at pixel start. kMark: writes the marks (value nbd, and the
  // owner label when labels are kept); out: receives the points (null: only counted). Returns the
  // number of points of the written form.
  template <bool kMark>
  uint32_t Follow(uint32_t start, uint32_t stride, bool hole, int nbd, uint32_t owner, uint32_t* out) const {
    const int8_t negative = int8_t(nbd | 0x80), positive = int8_t(nbd);
    int8_t* const base = img;
    const int8_t* i0 = base + start;
    int x = int(start % stride) - 1, y = int(start / stride) - 1;
    uint32_t n = 0;
    int s_end = hole ? 0 : 4;
    int s = s_end;
    const int8_t* i1;
    do {
      s = (s - 1) & 7;
      i1 = i0 + deltas[s];
    } while (*i1 == 0 && s != s_end);

    if (s == s_end) {  // a single pixel
      if (kMark) {
        base[start] = negative;
        if (labels) labels[start] = owner;
      }
      if (out) {
        out[0] = uint32_t(x);
        out[1] = uint32_t(y);
      }
      return 1;
    }
    const int8_t* i3 = i0;
    const int8_t* i4;
    int prev_s = s ^ 4;
    for (;;) {
      s_end = s;
      do {
        i4 = i3 + deltas[++s];
      } while (*i4 == 0);
      s &= 7;
      if (kMark) {
        int8_t* m = const_cast<int8_t*>(i3);
        if (unsigned(s - 1) < unsigned(s_end)) {
          *m = negative;
          if (labels) labels[m - base] = owner;
        } else if (*m == 1) {
          *m = positive;
          if (labels) labels[m - base] = owner;
        }
      }
      if (!simple || s != prev_s) {
        if (out) {
          out[2 * n] = uint32_t(x);
          out[2 * n + 1] = uint32_t(y);
        }
        ++n;
      }
      prev_s = s;
      x += kStepX[s];
      y += kStepY[s];
      if (i4 == i0 && i3 == i1) break;
      i3 = i4;
      s = (s + 4) & 7;
    }
    return n;
  }
};

}  // namespace

int32_t FindContours(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                     uint32_t maxContours, uint32_t maxPoints, uint32_t* numContours, uint32_t* numPointsInContour,
                     uint32_t* points, int32_t* hierarchy, uint32_t approx, uint8_t* work, uint32_t workSize, int mode,
                     BinariseFn binarise, SkipFn skip) {
  const uint32_t W = srcWidth + 2, H = srcHeight + 2;
  const uint64_t need = WorkBytes(srcWidth, srcHeight);
  const bool labelled = mode >= kCcomp;
  uint8_t* own = nullptr;
  if (work != nullptr && workSize != 0) {
    if (workSize < need) return 3;
  } else {
    // The list modes need only the marks; the tree modes also keep one owner label per pixel.
    const uint64_t bytes = labelled ? need : uint64_t{W} * H;
    own = static_cast<uint8_t*>(tvxMemAlloc(uint32_t(bytes), 16));
    if (own == nullptr) return 5;
    work = own;
  }
  // Labels first (4-byte aligned whenever the buffer is), then the marks.
  uint32_t* labels = labelled ? reinterpret_cast<uint32_t*>(work) : nullptr;
  int8_t* img = reinterpret_cast<int8_t*>(labelled ? work + size_t{4} * W * H : work);
  if (labelled && (reinterpret_cast<uintptr_t>(work) & 3) != 0) {
    // A caller buffer at an odd address: keep the labels aligned by using the marks' share.
    if (own) tvxMemFree(own);
    return 3;
  }
  binarise(src, srcWidth, srcHeight, srcStride, img);

  Records recs;
  const Tracer tracer(img, labels, W, approx == 1);
  bool ok = recs.Push(Record{0, 0, 0, 0, 0, 0, 1});
  int nbd = 2;
  for (uint32_t y = 1; ok && y + 1 < H; ++y) {
    int8_t* row = img + size_t{y} * W;
    int prev = 0;
    uint32_t lnbd = 0;
    uint32_t x = 1;
    for (;;) {
      x = skip(row, x, W - 1, int8_t(prev));
      if (x >= W - 1) break;
      const int p = row[x];
      bool hole = false;
      bool take = true;
      if (!(prev == 0 && p == 1)) {
        if (p != 0 || prev < 1) {
          take = false;
        } else {
          if (prev & -2) lnbd = x - 1;
          hole = true;
        }
      }
      if (take && mode == kExternal && (hole || row[lnbd] > 0)) take = false;
      if (!take) {
        prev = p;
        if (prev & -2) lnbd = x;
        ++x;
        continue;
      }
      uint32_t parent = 0;
      if (labelled && !(mode == kCcomp && !hole) && lnbd > 0) {
        uint32_t par = labels[size_t{y} * W + lnbd];
        if ((recs[par].hole != 0) == hole) par = recs[par].parent;
        parent = par;
      }
      lnbd = x - hole;
      const uint32_t origin = y * W + x - hole;
      const uint32_t index = recs.size();
      const int mark = mode >= kCcomp ? nbd : 2;
      const uint32_t count = tracer.Follow<true>(origin, W, hole, mark, index, nullptr);
      if (mode >= kCcomp) {
        nbd = (nbd + 1) & 127;
        if (nbd == 0) nbd = 3;
      }
      if (!(ok = recs.Push(Record{origin, parent, count, 0, 0, 0, hole ? 1u : 0u}))) break;
      prev = row[x];
      ++x;
    }
  }
  if (!ok) {
    if (own) tvxMemFree(own);
    return 5;
  }

  // Children are linked newest first, as each border joins its parent when found; the output
  // order is the depth-first pre-order of that tree.
  const uint32_t total = recs.size();
  for (uint32_t i = 1; i < total; ++i) {
    Record& r = recs[i];
    r.sibling = recs[r.parent].child;
    recs[r.parent].child = i;
  }
  uint32_t order = 0;
  for (uint32_t node = recs[0].child; node != 0;) {
    recs[node].out = order++;
    if (recs[node].child) {
      node = recs[node].child;
      continue;
    }
    while (node != 0 && recs[node].sibling == 0) node = recs[node].parent;
    if (node != 0) node = recs[node].sibling;
  }

  // Whole contours in output order while both capacities allow.
  uint32_t written = 0, used = 0;
  uint32_t* byOut = nullptr;
  if (total > 1) {
    byOut = static_cast<uint32_t*>(tvxMemAlloc(total * uint32_t(sizeof(uint32_t)), 16));
    if (byOut == nullptr) {
      if (own) tvxMemFree(own);
      return 5;
    }
    for (uint32_t i = 1; i < total; ++i) byOut[recs[i].out] = i;
  }
  for (uint32_t k = 0; k + 1 < total; ++k) {
    const Record& r = recs[byOut[k]];
    if (written >= maxContours || r.count > maxPoints - used) break;
    tracer.Follow<false>(r.origin, W, r.hole != 0, 0, 0, points + size_t{2} * used);
    numPointsInContour[written++] = r.count;
    used += r.count;
  }
  auto link = [&](uint32_t rec) -> int32_t {
    return rec == 0 || recs[rec].out >= written ? -1 : int32_t(recs[rec].out);
  };
  // The previous sibling of each written contour: walk every child list once.
  for (uint32_t k = 0; k < written; ++k) {
    const Record& r = recs[byOut[k]];
    int32_t* h = hierarchy + size_t{4} * k;
    h[0] = r.sibling ? link(r.sibling) : -1;
    h[1] = -1;
    h[2] = r.child ? link(r.child) : -1;
    h[3] = link(r.parent);
  }
  for (uint32_t k = 0; k < written; ++k) {
    const Record& r = recs[byOut[k]];
    if (r.sibling && recs[r.sibling].out < written) hierarchy[size_t{4} * recs[r.sibling].out + 1] = int32_t(k);
  }
  *numContours = written;
  tvxMemFree(byOut);
  if (own) tvxMemFree(own);
  return 0;
}

}  // namespace tvxcontour

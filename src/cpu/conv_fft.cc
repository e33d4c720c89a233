// Spectral path of the MxN convolution for big kernels: the bordered image and the kernel are
// padded to power-of-two sizes, transformed together (image as the real part, kernel as the
// imaginary part of one complex array), their spectra separated and multiplied element by
// element, and the product transformed back. Double precision keeps the error of these integer
// sums far below 0.5, so rounding gives the same integers as the direct sum.
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "cpu/conv_rules.h"
#include "frame/frame.h"

namespace tvx::conv {

namespace {

// Blocks from the memory services, freed on every path out. Requests above 2 GiB are refused
// outright: the aligned allocator adds its alignment to a 32-bit size.
struct MemBlock {
  void* p = nullptr;
  explicit MemBlock(uint64_t bytes) {
    if (bytes != 0 && bytes <= (uint64_t(1) << 31)) p = tvxMemAlloc(static_cast<uint32_t>(bytes), 64);
  }
  ~MemBlock() { tvxMemFree(p); }
  MemBlock(const MemBlock&) = delete;
  MemBlock& operator=(const MemBlock&) = delete;
  double* d() const { return static_cast<double*>(p); }
};

size_t NextPow2(size_t v) {
  size_t p = 1;
  while (p < v) p <<= 1;
  return p;
}

// Columns of a rows x cols complex array transformed in groups, gathered into contiguous
// buffers so that each pass reads whole cache lines.
constexpr size_t kColumnGroup = 8;

bool TransformColumns(double* a, size_t rows, size_t cols, bool inverse, const double* twiddles) {
  MemBlock tmp(uint64_t(kColumnGroup) * rows * 2 * sizeof(double));
  if (!tmp.p) return false;
  double* t = tmp.d();
  for (size_t c0 = 0; c0 < cols; c0 += kColumnGroup) {
    const size_t g = cols - c0 < kColumnGroup ? cols - c0 : kColumnGroup;
    for (size_t r = 0; r < rows; ++r)
      for (size_t k = 0; k < g; ++k) {
        t[(k * rows + r) * 2] = a[(r * cols + c0 + k) * 2];
        t[(k * rows + r) * 2 + 1] = a[(r * cols + c0 + k) * 2 + 1];
      }
    for (size_t k = 0; k < g; ++k) Fft(t + k * rows * 2, rows, inverse, twiddles);
    for (size_t r = 0; r < rows; ++r)
      for (size_t k = 0; k < g; ++k) {
        a[(r * cols + c0 + k) * 2] = t[(k * rows + r) * 2];
        a[(r * cols + c0 + k) * 2 + 1] = t[(k * rows + r) * 2 + 1];
      }
  }
  return true;
}

// Rows, then columns; each direction with its own table of twiddles.
bool Transform2D(double* a, size_t rows, size_t cols, bool inverse) {
  MemBlock rowTw(uint64_t(cols) * sizeof(double)), colTw(uint64_t(rows) * sizeof(double));
  if (!rowTw.p || !colTw.p) return false;
  FftTwiddles(rowTw.d(), cols);
  FftTwiddles(colTw.d(), rows);
  for (size_t r = 0; r < rows; ++r) Fft(a + r * cols * 2, cols, inverse, rowTw.d());
  return TransformColumns(a, rows, cols, inverse, colTw.d());
}

}  // namespace

void Fft(double* data, size_t n, bool inverse) {
  std::vector<double> twiddles(n);
  FftTwiddles(twiddles.data(), n);
  Fft(data, n, inverse, twiddles.data());
}

void FftTwiddles(double* twiddles, size_t n) {
  // Each twiddle straight from cos and sin: no error builds up along a stage.
  for (size_t k = 0; k < n / 2; ++k) {
    const double angle = -2.0 * M_PI * double(k) / double(n);
    twiddles[2 * k] = std::cos(angle);
    twiddles[2 * k + 1] = std::sin(angle);
  }
}

void Fft(double* data, size_t n, bool inverse, const double* twiddles) {
  if (n < 2) return;
  for (size_t i = 1, j = 0; i < n; ++i) {  // bit-reversal permutation
    size_t bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) {
      std::swap(data[2 * i], data[2 * j]);
      std::swap(data[2 * i + 1], data[2 * j + 1]);
    }
  }
  const double sign = inverse ? -1.0 : 1.0;  // the inverse uses conjugate twiddles
  for (size_t len = 2; len <= n; len <<= 1) {
    const size_t half = len / 2, step = n / len;
    for (size_t k = 0; k < half; ++k) {
      const double wr = twiddles[2 * k * step], wi = sign * twiddles[2 * k * step + 1];
      for (size_t i = k; i < n; i += len) {
        double* u = data + 2 * i;
        double* v = data + 2 * (i + half);
        const double tr = v[0] * wr - v[1] * wi, ti = v[0] * wi + v[1] * wr;
        v[0] = u[0] - tr;
        v[1] = u[1] - ti;
        u[0] += tr;
        u[1] += ti;
      }
    }
  }
  if (inverse) {
    const double scale = 1.0 / double(n);
    for (size_t i = 0; i < 2 * n; ++i) data[i] *= scale;
  }
}

bool ConvolveSumsSpectral(const int8_t* kernel, uint32_t M, uint32_t N, const uint8_t* src, uint32_t width,
                          uint32_t height, uint32_t stride, uint32_t borderType, uint8_t borderValue, int32_t* sums) {
  const size_t P = NextPow2(size_t(width) + M - 1), Q = NextPow2(size_t(height) + N - 1);
  MemBlock block(uint64_t(P) * Q * 2 * sizeof(double));
  MemBlock rowBlock(uint64_t(width) + M);
  if (!block.p || !rowBlock.p) return false;
  double* z = block.d();
  uint8_t* row = static_cast<uint8_t*>(rowBlock.p);
  std::memset(z, 0, P * Q * 2 * sizeof(double));
  // Real part: the image extended by the border, (M - 1) / 2 columns left and M / 2 right,
  // (N - 1) / 2 rows above and N / 2 below, so that output (x, y) lands at (x + M - 1, y + N - 1).
  const uint32_t padL = (M - 1) / 2, padT = (N - 1) / 2;
  const size_t pw = size_t(width) + M - 1, ph = size_t(height) + N - 1;
  for (size_t v = 0; v < ph; ++v) {
    BorderRow(src, width, height, stride, int64_t(v) - padT, padL, M / 2, borderType, borderValue, row);
    for (size_t u = 0; u < pw; ++u) z[(v * P + u) * 2] = row[u];
  }
  // Imaginary part: the kernel at the origin.
  for (uint32_t i = 0; i < N; ++i)
    for (uint32_t j = 0; j < M; ++j) z[(size_t(i) * P + j) * 2 + 1] = kernel[size_t(i) * M + j];
  if (!Transform2D(z, Q, P, false)) return false;
  // Z = A + iB with A, B the spectra of two real arrays: A[k] = (Z[k] + conj(Z[-k])) / 2,
  // B[k] = (Z[k] - conj(Z[-k])) / 2i. The product at -k is the conjugate of the product at k.
  for (size_t v = 0; v < Q; ++v) {
    const size_t nv = (Q - v) % Q;
    for (size_t u = 0; u < P; ++u) {
      const size_t nu = (P - u) % P;
      const size_t k = v * P + u, nk = nv * P + nu;
      if (nk < k) continue;  // the pair was done from its partner
      const double zr = z[2 * k], zi = z[2 * k + 1], mr = z[2 * nk], mi = z[2 * nk + 1];
      const double ar = (zr + mr) * 0.5, ai = (zi - mi) * 0.5;
      const double br = (zi + mi) * 0.5, bi = (mr - zr) * 0.5;
      const double cr = ar * br - ai * bi, ci = ar * bi + ai * br;
      z[2 * k] = cr;
      z[2 * k + 1] = ci;
      z[2 * nk] = cr;
      z[2 * nk + 1] = -ci;
    }
  }
  if (!Transform2D(z, Q, P, true)) return false;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      sums[size_t(y) * width + x] = Wrap(std::llround(z[((size_t(y) + N - 1) * P + x + M - 1) * 2]));
  return true;
}

namespace {

template <typename Out>
int32_t ConvolveSpectralInto(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                             uint32_t width, uint32_t height, uint32_t srcStride, Out* dst, uint32_t dstStride,
                             uint32_t borderType, uint8_t borderValue, int32_t lo, int32_t hi) {
  MemBlock block(uint64_t(width) * height * sizeof(int32_t));
  int32_t* sums = static_cast<int32_t*>(block.p);
  if (!sums || !ConvolveSumsSpectral(kernel, M, N, src, width, height, srcStride, borderType, borderValue, sums))
    return 5;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      Row(dst, dstStride, y)[x] = static_cast<Out>(ScaleClamp(sums[size_t(y) * width + x], shift, lo, hi));
  return 0;
}

}  // namespace

int32_t ConvolveSpectral(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                         uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst, uint32_t dstStride,
                         uint32_t borderType, uint8_t borderValue) {
  return ConvolveSpectralInto(kernel, M, N, shift, src, width, height, srcStride, dst, dstStride, borderType,
                              borderValue, 0, 255);
}

int32_t ConvolveSpectral(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                         uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dst, uint32_t dstStride,
                         uint32_t borderType, uint8_t borderValue) {
  return ConvolveSpectralInto(kernel, M, N, shift, src, width, height, srcStride, dst, dstStride, borderType,
                              borderValue, -32768, 32767);
}

}  // namespace tvx::conv

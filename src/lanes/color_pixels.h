// Vector loads and stores of packed-RGB pixel formats for the colour SIMD kernels: a block of
// Lanes(d8) pixels becomes three (or four) u8 vectors holding bytes 0, 1 and 2 (and alpha) in
// RGB888 order, and back. Also the split of a u8 vector into its even and odd lanes widened
// to u16, which is how the kernels reach 16-bit arithmetic without reordering pixels.
//
// Included inside namespace tvx::HWY_NAMESPACE by every colour SIMD file, once per target
// (no include guard, like the Highway headers it builds on).
namespace hn = hwy::HWY_NAMESPACE;

template <class D8>
struct PixelVecs {
  hn::Vec<D8> b0, b1, b2, a;
};

// Loads Lanes(d8) pixels of format F starting at p.
template <color::Fmt F, class D8>
HWY_INLINE PixelVecs<D8> LoadPixels(D8 d8, const uint8_t* p) {
  using color::Fmt;
  PixelVecs<D8> v;
  if constexpr (color::BytesPerPixel(F) == 2) {
    hn::Vec<D8> lo, hi;
    hn::LoadInterleaved2(d8, p, lo, hi);
    v.b0 = hn::ShiftLeft<3>(lo);
    v.b1 = hn::Or(hn::ShiftLeft<5>(hi), hn::And(hn::ShiftRight<3>(lo), hn::Set(d8, 0x1C)));
    v.b2 = hn::And(hi, hn::Set(d8, 0xF8));
    v.a = hn::Set(d8, 255);
  } else if constexpr (color::BytesPerPixel(F) == 3) {
    hn::LoadInterleaved3(d8, p, v.b0, v.b1, v.b2);
    v.a = hn::Set(d8, 255);
  } else {
    hn::LoadInterleaved4(d8, p, v.b0, v.b1, v.b2, v.a);
  }
  if constexpr (color::SwapsBytes0And2(F)) std::swap(v.b0, v.b2);
  return v;
}

// Stores Lanes(d8) pixels in format F at p; four-byte formats take v.a as alpha.
template <color::Fmt F, class D8>
HWY_INLINE void StorePixels(D8 d8, PixelVecs<D8> v, uint8_t* p) {
  if constexpr (color::SwapsBytes0And2(F)) std::swap(v.b0, v.b2);
  if constexpr (color::BytesPerPixel(F) == 2) {
    const auto lo = hn::Or(hn::And(hn::ShiftLeft<3>(v.b1), hn::Set(d8, 0xE0)), hn::ShiftRight<3>(v.b0));
    const auto hi = hn::Or(hn::And(v.b2, hn::Set(d8, 0xF8)), hn::ShiftRight<5>(v.b1));
    hn::StoreInterleaved2(lo, hi, d8, p);
  } else if constexpr (color::BytesPerPixel(F) == 3) {
    hn::StoreInterleaved3(v.b0, v.b1, v.b2, d8, p);
  } else {
    hn::StoreInterleaved4(v.b0, v.b1, v.b2, v.a, d8, p);
  }
}

// The even lanes (0, 2, 4, ...) and the odd lanes of a u8 vector as u16 lanes.
template <class D8>
HWY_INLINE hn::Vec<hn::Repartition<uint16_t, D8>> EvenLanes(D8, hn::Vec<D8> v) {
  const hn::Repartition<uint16_t, D8> d16;
  return hn::And(hn::BitCast(d16, v), hn::Set(d16, 0xFF));
}
template <class D8>
HWY_INLINE hn::Vec<hn::Repartition<uint16_t, D8>> OddLanes(D8, hn::Vec<D8> v) {
  const hn::Repartition<uint16_t, D8> d16;
  return hn::ShiftRight<8>(hn::BitCast(d16, v));
}
// Inverse of the split: u16 lanes holding values 0-255 back into one u8 vector.
template <class D8>
HWY_INLINE hn::Vec<D8> MergeEvenOdd(D8 d8, hn::Vec<hn::Repartition<uint16_t, D8>> even,
                                    hn::Vec<hn::Repartition<uint16_t, D8>> odd) {
  return hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd)));
}

// The 30 YCbCr layout changes as one table for the colour-layout suites: each case names its
// source and destination layouts and calls the public entry, the reference variant or the SIMD
// variant with one uniform argument shape.
#pragma once

#include <cstdint>

#include "cpu/color_layout_rules.h"
#include "frame/frame.h"

namespace tvxtest {

// Planes of one YCbCr image; a pseudo-planar image keeps its pairs in cb and leaves cr null.
struct YuvRef {
  uint8_t *y, *cb, *cr;
  uint32_t yStride, cbStride, crStride;
};

struct LayoutKind {
  uint32_t stepX, stepY;  // pixels per chroma sample along each axis
  bool planar;
};

typedef void (*LayoutCall)(const YuvRef& src, uint32_t width, uint32_t height, const YuvRef& dst);

struct LayoutCase {
  const char* name;
  LayoutKind from, to;
  LayoutCall entry, reference, simd;
};

#define TVX_TEST_KIND_444 1, 1
#define TVX_TEST_KIND_422 2, 1
#define TVX_TEST_KIND_420 2, 2
#define TVX_TEST_PLANAR_Planar true
#define TVX_TEST_PLANAR_PseudoPlanar false
#define TVX_TEST_SRC_Planar(s) s.y, s.cb, s.cr, w, h, s.yStride, s.cbStride, s.crStride
#define TVX_TEST_SRC_PseudoPlanar(s) s.y, s.cb, w, h, s.yStride, s.cbStride
#define TVX_TEST_DST_Planar(d) d.y, d.cb, d.cr, d.yStride, d.cbStride, d.crStride
#define TVX_TEST_DST_PseudoPlanar(d) d.y, d.cb, d.yStride, d.cbStride
#define TVX_TEST_KIND(S, P) \
  LayoutKind { TVX_TEST_KIND_##S, TVX_TEST_PLANAR_##P }
#define TVX_TEST_CALL(S, P, T, Q, SUFFIX)                                                           \
  [](const YuvRef& s, uint32_t w, uint32_t h, const YuvRef& d) {                                   \
    tvxColorYCbCr##S##P##ToYCbCr##T##Q##u8##SUFFIX(TVX_TEST_SRC_##P(s), TVX_TEST_DST_##Q(d));      \
  }
#define TVX_TEST_LAYOUT_CASE(S, P, T, Q)                                                                   \
  LayoutCase{#S #P "To" #T #Q, TVX_TEST_KIND(S, P), TVX_TEST_KIND(T, Q), TVX_TEST_CALL(S, P, T, Q, ),      \
             TVX_TEST_CALL(S, P, T, Q, C), TVX_TEST_CALL(S, P, T, Q, V)},

inline const LayoutCase kLayoutCases[] = {TVX_COLOR_LAYOUT_PAIRS(TVX_TEST_LAYOUT_CASE)};

}  // namespace tvxtest

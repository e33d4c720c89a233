// Pyramid builders shared by the reference and SIMD variants of the pyramid entries: each takes
// the per-level kernels it runs, so the reference variants pass the reference kernels and the
// SIMD variants the SIMD ones, while the argument checks, level sizes and the handling of an
// allocated level 0 stay in one place (src/cpu/pyramid.cc).
#pragma once

#include <cstdint>

#include "tavix/tavix.h"

namespace tvxpyr {

using ReduceU8 = void (*)(const uint8_t*, uint32_t, uint32_t, uint8_t*);
using ReduceU8Strided = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
using ReduceF32 = void (*)(const float*, uint32_t, uint32_t, float*);
using ReduceF32Strided = void (*)(const float*, uint32_t, uint32_t, uint32_t, float*, uint32_t);
using ResampleU8 = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, uint32_t,
                               uint32_t, uint32_t, uint8_t);
using SobelS16 = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, int16_t*, int16_t*, uint32_t);
using SobelS8 = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, int8_t*, int8_t*, uint32_t);
using SobelF32 = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, float*, float*, uint32_t);

int32_t CreateU8(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                 tvxPyramidLevel* pyramid, ReduceU8 reduce);
int32_t CreateU8v2(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride, uint32_t numLevels,
                   tvxPyramidLevel_v2* pyramid, ReduceU8Strided reduce);
int32_t CreateU8v3(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride, uint32_t numLevels,
                   tvxPyramidLevel_v2* pyramid, float scale, ReduceU8Strided reduce, ResampleU8 resample);
int32_t CreateF32(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                  tvxPyramidLevel* pyramid, ReduceF32 reduce);
int32_t CreateF32v2(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride, uint32_t numLevels,
                    tvxPyramidLevel_v2* pyramid, ReduceF32Strided reduce);
int32_t SobelCreate(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr, uint32_t numLevels,
                    SobelS16 sobel);
int32_t SobelCreate(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr, uint32_t numLevels,
                    SobelS8 sobel);
int32_t SobelCreate(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr, uint32_t numLevels,
                    SobelF32 sobel);

// Size of level `level` along one axis for a scale factor between levels: base >> level for
// 0.5, otherwise base * scale^level rounded half to even (scale^level as repeated products in
// double, the same on every target).
uint32_t LevelSize(uint32_t base, uint32_t level, float scale);

}  // namespace tvxpyr

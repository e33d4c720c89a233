// SIMD variants of the pyramid entries: the shared builders of src/cpu/pyramid.cc run with the
// SIMD variants of the 5x5 reductions by 2, the bilinear scaler and the planar Sobel kernels,
// so every level of a SIMD-tier pyramid comes from SIMD kernels.
#include "cpu/pyramid_build.h"
#include "frame/frame.h"

int32_t tvxPyramidCreateu8V(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                            tvxPyramidLevel* pyramid) {
  return tvxpyr::CreateU8(base, baseWidth, baseHeight, numLevels, pyramid, &tvxScaleDownBy2Gaussian5x5u8V);
}

int32_t tvxPyramidCreateu8_v2V(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                               uint32_t numLevels, tvxPyramidLevel_v2* pyramid) {
  return tvxpyr::CreateU8v2(base, baseWidth, baseHeight, baseStride, numLevels, pyramid, &tvxScaleDownBy2Gaussian5x5u8_v2V);
}

int32_t tvxPyramidCreateu8_v3V(const uint8_t* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                               uint32_t numLevels, tvxPyramidLevel_v2* pyramid, float scale) {
  return tvxpyr::CreateU8v3(base, baseWidth, baseHeight, baseStride, numLevels, pyramid, scale,
                            &tvxScaleDownBy2Gaussian5x5u8_v2V, &tvxScaleu8_v2V);
}

int32_t tvxPyramidCreatef32V(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t numLevels,
                             tvxPyramidLevel* pyramid) {
  return tvxpyr::CreateF32(base, baseWidth, baseHeight, numLevels, pyramid, &tvxScaleDownBy2Gaussian5x5f32V);
}

int32_t tvxPyramidCreatef32_v2V(const float* base, uint32_t baseWidth, uint32_t baseHeight, uint32_t baseStride,
                                uint32_t numLevels, tvxPyramidLevel_v2* pyramid) {
  return tvxpyr::CreateF32v2(base, baseWidth, baseHeight, baseStride, numLevels, pyramid,
                             &tvxScaleDownBy2Gaussian5x5f32_v2V);
}

int32_t tvxPyramidSobelGradientCreatei16V(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr,
                                          uint32_t numLevels) {
  return tvxpyr::SobelCreate(imgPyr, dxPyr, dyPyr, numLevels, &tvxImageGradientSobelPlanars16_v2V);
}

int32_t tvxPyramidSobelGradientCreatei8V(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr,
                                         uint32_t numLevels) {
  return tvxpyr::SobelCreate(imgPyr, dxPyr, dyPyr, numLevels, &tvxImageGradientSobelPlanars8_v2V);
}

int32_t tvxPyramidSobelGradientCreatef32V(const tvxPyramidLevel* imgPyr, tvxPyramidLevel* dxPyr, tvxPyramidLevel* dyPyr,
                                          uint32_t numLevels) {
  return tvxpyr::SobelCreate(imgPyr, dxPyr, dyPyr, numLevels, &tvxImageGradientSobelPlanarf32_v2V);
}

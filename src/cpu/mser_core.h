// MSER detector shared by the reference and SIMD tiers: the handle, the component-tree walk
// (scalar in both tiers) and the merge of both polarities into the caller's arrays. The tiers
// differ only in the preparation kernels they hand to tvxmser::Run.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvxmser {

// Preparation of one call: the source in the working layout (rows nStride bytes apart, the
// columns past the width zero), its inversion for the dark polarity, and the per-pixel mask
// planes set to "not yet added".
struct Prep {
  void (*toWorking)(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstStride);
  void (*invert)(const uint8_t* src, uint8_t* dst, size_t count);
  void (*fill)(uint32_t* plane, size_t count, uint32_t value);
};

// The reference kernels (plain loops).
extern const Prep kReferencePrep;

// The caller's output arrays of one image call. Optional arrays are null for the basic forms.
struct Outputs {
  uint32_t maxContours;
  uint32_t pointsArraySize;
  uint32_t* numContours;
  uint32_t* numPointsInContour;
  uint32_t* pointsArray;
  float* contourVariation;
  int32_t* contourPolarity;
  uint32_t* contourNodeId;
  uint32_t* contourNodeCounter;
  uint32_t* contourBoundingBox;
  bool split;          // x coordinates first, then the y coordinates
  bool extendedLog;    // which of the two region-capacity messages to log
};

// One image call on a handle: 0, 3 (image larger than the handle, or a handle of the other
// connectivity: no regions), 5 (working memory unavailable: no regions).
int32_t Run(void* handle, const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, bool eightNeighbours,
            const Outputs& out, const Prep& prep);

// Handle creation and release (the bodies of tvxMserInit, tvxMserNN8Init, tvxMserRelease).
int32_t Create(uint32_t width, uint32_t height, uint32_t delta, uint32_t minArea, uint32_t maxArea, float maxVar,
               float minDiv, bool eightNeighbours, void** handle);
int32_t Release(void* handle);

}  // namespace tvxmser

// The image entries of one tier: each fills the output description of its form and runs the
// shared tree with the tier's preparation kernels (SUFFIX C for the reference, V for SIMD).
#define TVX_MSER_BASIC_ARGS                                                                                        \
  void *mserHandle, const uint8_t *srcPtr, uint32_t width, uint32_t height, uint32_t stride, uint32_t maxContours, \
      uint32_t pointsArraySize, uint32_t *numContours, uint32_t *numPointsInContour, uint32_t *pointsArray
#define TVX_MSER_EXT_ARGS                                                                          \
  TVX_MSER_BASIC_ARGS, float *contourVariation, int32_t *contourPolarity, uint32_t *contourNodeId, \
      uint32_t *contourNodeCounter
#define TVX_MSER_EXT_OUTPUTS contourVariation, contourPolarity, contourNodeId, contourNodeCounter
#define TVX_MSER_NO_EXT_OUTPUTS nullptr, nullptr, nullptr, nullptr
#define TVX_MSER_RUN(NN8, EXT_OUTPUTS, BOX, SPLIT, EXT, PREP)                                                      \
  tvxmser::Run(mserHandle, srcPtr, width, height, stride, NN8,                                                     \
               tvxmser::Outputs{maxContours, pointsArraySize, numContours, numPointsInContour, pointsArray,        \
                                EXT_OUTPUTS, BOX, SPLIT, EXT},                                                     \
               PREP)
#define TVX_MSER_IMAGE_ENTRIES(SUFFIX, PREP)                                                                         \
  int32_t tvxMseru8##SUFFIX(TVX_MSER_BASIC_ARGS) {                                                                   \
    return TVX_MSER_RUN(false, TVX_MSER_NO_EXT_OUTPUTS, nullptr, false, false, PREP);                                \
  }                                                                                                                  \
  int32_t tvxMseru8_v2##SUFFIX(TVX_MSER_BASIC_ARGS) {                                                                \
    return tvxMseru8##SUFFIX(mserHandle, srcPtr, width, height, stride, maxContours, pointsArraySize, numContours,  \
                             numPointsInContour, pointsArray);                                                       \
  }                                                                                                                  \
  int32_t tvxMserNN8u8##SUFFIX(TVX_MSER_BASIC_ARGS) {                                                                \
    return TVX_MSER_RUN(true, TVX_MSER_NO_EXT_OUTPUTS, nullptr, false, false, PREP);                                 \
  }                                                                                                                  \
  int32_t tvxMserExtu8##SUFFIX(TVX_MSER_EXT_ARGS) {                                                                  \
    return TVX_MSER_RUN(false, TVX_MSER_EXT_OUTPUTS, nullptr, false, true, PREP);                                    \
  }                                                                                                                  \
  int32_t tvxMserExtu8_v2##SUFFIX(TVX_MSER_EXT_ARGS) {                                                               \
    return tvxMserExtu8##SUFFIX(mserHandle, srcPtr, width, height, stride, maxContours, pointsArraySize,             \
                                numContours, numPointsInContour, pointsArray, TVX_MSER_EXT_OUTPUTS);                 \
  }                                                                                                                  \
  int32_t tvxMserExtu8_v3##SUFFIX(TVX_MSER_EXT_ARGS, uint32_t* contourBoundingBox) {                                 \
    return TVX_MSER_RUN(false, TVX_MSER_EXT_OUTPUTS, contourBoundingBox, false, true, PREP);                         \
  }                                                                                                                  \
  int32_t tvxMserExtNN8u8##SUFFIX(TVX_MSER_EXT_ARGS) {                                                               \
    return TVX_MSER_RUN(true, TVX_MSER_EXT_OUTPUTS, nullptr, false, true, PREP);                                     \
  }                                                                                                                  \
  int32_t tvxMserSplitExtu8##SUFFIX(TVX_MSER_EXT_ARGS) {                                                             \
    return TVX_MSER_RUN(false, TVX_MSER_EXT_OUTPUTS, nullptr, true, true, PREP);                                     \
  }

// Test seams. Threading: 1 (default) runs the dark polarity on a second thread, 0 runs both on
// the caller's. Thread start failure: when nonzero the second thread is treated as refused by
// the system. Mask offset: bytes added to both mask planes at creation (a nonzero value below 32
// makes them misaligned, which ends the process).
void tvx_mser_set_threading_for_test(int enabled);
void tvx_mser_fail_thread_start_for_test(int fail);
void tvx_mser_mask_offset_for_test(uint32_t bytes);

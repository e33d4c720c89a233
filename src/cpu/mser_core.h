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

// Test seams. Threading: 1 (default) runs the dark polarity on a second thread, 0 runs both on
// the caller's. Thread start failure: when nonzero the second thread is treated as refused by
// the system. Mask offset: bytes added to both mask planes at creation (a nonzero value below 32
// makes them misaligned, which ends the process).
void tvx_mser_set_threading_for_test(int enabled);
void tvx_mser_fail_thread_start_for_test(int fail);
void tvx_mser_mask_offset_for_test(uint32_t bytes);

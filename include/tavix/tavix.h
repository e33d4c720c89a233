/* libtavixopt public interface: shared types, lifecycle and memory services, and (through
 * tavix_ops.h, generated from the operation registry) every implemented operation. */
#ifndef TAVIX_TAVIX_H
#define TAVIX_TAVIX_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define TVX_API
#else
#define TVX_API __attribute__((visibility("default")))
#endif

#if !defined(__ARM_NEON) && !defined(__ARM_NEON__) && !defined(TVX_HAVE_FLOAT32_T)
#define TVX_HAVE_FLOAT32_T 1
typedef float float32_t;
#elif !defined(TVX_HAVE_FLOAT32_T)
#define TVX_HAVE_FLOAT32_T 1
#include <arm_neon.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Operation modes (tvxSetOperationMode). */
typedef int32_t tvxOperationMode;
#define TAVIX_OP_LOW_POWER        0
#define TAVIX_OP_PERFORMANCE      1
#define TAVIX_OP_CPU_OFFLOAD      2
#define TAVIX_OP_CPU_PERFORMANCE  3
#define TAVIX_OP_EXT_CPU          ((int32_t)0x80000001)
#define TAVIX_OP_EXT_REFERENCE    ((int32_t)0x80000002)
#define TAVIX_OP_EXT_CPU_ALT      ((int32_t)0x80000004)
#define TAVIX_OP_EXT_RDSP_ALIAS   ((int32_t)0x80000008)
#define TAVIX_OP_EXT_GPU          ((int32_t)0x80000020)
#define TAVIX_OP_EXT_RDSP         ((int32_t)0x80000400)

/* Conversion policy: 0 wraps around, 1 saturates. */
typedef int32_t tvxConvertPolicy;
#define TVX_CONVERT_POLICY_WRAP     0
#define TVX_CONVERT_POLICY_SATURATE 1

/* Flip directions and rotations. */
#define TVX_FLIP_HORIZONTAL 1
#define TVX_FLIP_VERTICAL   2
#define TVX_FLIP_BOTH       3
typedef int32_t tvxRotateDegree;
#define TVX_ROTATE_90  1
#define TVX_ROTATE_180 2
#define TVX_ROTATE_270 3

/* Image pyramid levels: a level's pixels, its size, and (second form) its stride in bytes.
 * The first form's levels are packed (stride = width times the element size). */
typedef struct tvxPyramidLevel {
  void* ptr;
  uint32_t width;
  uint32_t height;
} tvxPyramidLevel;
typedef struct tvxPyramidLevel_v2 {
  void* ptr;
  uint32_t width;
  uint32_t height;
  uint32_t stride;
} tvxPyramidLevel_v2;

/* Point correspondences of the fitting and pose operations: pair k uses point indices[k] of
 * `from` (point i at from[i * fromStride]) and of `to` (to[i * toStride]); strides count floats.
 * numCorrespondences is the number of points in `from` and `to`. */
typedef struct tvxCorrespondences {
  const float* from;
  const float* to;
  uint32_t fromStride;
  uint32_t toStride;
  uint32_t numCorrespondences;
  const uint16_t* indices;
  uint32_t numIndices;
} tvxCorrespondences;

/* Status values of status-returning operations. */
#define TVX_SUCCESS         0
#define TVX_BAD_PARAMETER   3
#define TVX_OUT_OF_MEMORY   5
#define TVX_UNSUPPORTED     6

/* Hardware mask bits (tvxAvailableHardware). */
#define TVX_HW_PROBED     0x002u
#define TVX_HW_SIMD       0x004u
#define TVX_HW_DSP        0x008u
#define TVX_HW_GPU        0x020u
#define TVX_HW_FP         0x080u
#define TVX_HW_ARCH7      0x100u
#define TVX_HW_TARGET     0x800u

/* Lifecycle. */
TVX_API int32_t tvxSetOperationMode(tvxOperationMode mode);
TVX_API int32_t tvxSetOperationModeExt(int32_t option);
TVX_API void tvxSetHWFlag(uint32_t value);
TVX_API void tvxGetVersion(char* buffer, uint32_t length);
TVX_API int32_t tvxCleanUp(void);
TVX_API uint32_t tvxAvailableHardware(tvxOperationMode mode);
TVX_API int32_t tvxAvailableProcessors(void);
/* Default DSP domain for the remote tiers: 0 audio, 1 compute (default), 2 modem. */
TVX_API void setDefaultDSPValue(int32_t value);
/* Drives the library as a remote library: applies the mode without refilling the reference and
 * SIMD slots or resetting the chosen tiers. 0, or 999 for a CPU without SIMD and FPU. */
TVX_API int32_t tvxInitRemoteLib(tvxOperationMode mode);

/* Memory services. */
TVX_API void* tvxMemAlloc(uint32_t size, uint32_t alignment);
TVX_API void tvxMemFree(void* pointer);
TVX_API void* tvxMemAlign(uint32_t size, uint32_t alignment);
TVX_API void tvxMemAlignFree(void* pointer);
TVX_API int32_t tvxMemInit(void);
TVX_API int32_t tvxMemInitPreAlloc(uint32_t size);
TVX_API int32_t tvxMemDeInit(void);

/* Shared memory for the DSP: with the DSP bit (TVX_HW_DSP) and without the GPU bit of a
 * hardware mask, tvxMemAlloc and tvxMemFree serve blocks the DSP reads without copies.
 * tvxDeInitSharedMem returns to heap blocks. Both return 0 (tvxInitSharedMem -1 when the
 * allocator cannot be set up). */
TVX_API int32_t tvxInitSharedMem(uint32_t hardwareMask);
TVX_API int32_t tvxDeInitSharedMem(void);

/* Numeric helpers shared by several operations. */
TVX_API float tvxIsqrt(float x);
TVX_API float tvxAtan2(float y, float x);
/* Minimal-standard random generator with one global state (initially 55, no lock): a seed of 1
 * or more sets the state and returns 0; 0 or less advances the state (16807 state mod 2^31 - 1)
 * and returns it. */
TVX_API int32_t randValue(int32_t seed);
/* Population count of every byte value. */
extern TVX_API const int8_t tvxPopCountTable[256];

#ifdef __cplusplus
}
#endif

#include "tavix/tavix_ops.h"

#endif /* TAVIX_TAVIX_H */

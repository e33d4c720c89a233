// Reference variants of FAST-9 and FAST-10: every pixel of the scanned rectangle in scan order
// through the segment test's decision tree (fast_rules.h), then scores and suppression.
#include "cpu/fast_rules.h"

namespace {

template <int N>
struct PlainScan {
  bool operator()(const tvxfast::RowJob& job, tvxfast::CornerList& list) const {
    return tvxfast::ScanRowScalar<N>(job, list);
  }
};

template <int N>
int32_t Run(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier, uint32_t border,
            uint32_t* xy, uint32_t* scores, uint32_t capacity, uint32_t* count, const uint8_t* mask,
            uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled, uint32_t* tempBuf) {
  return tvxfast::Detect<N>(N == 9 ? tvxfast::kFast9Path : tvxfast::kFast10Path, src, width, height, stride, barrier,
                            border, xy, scores, capacity, count, mask, maskWidth, maskHeight, nmsEnabled, tempBuf,
                            PlainScan<N>());
}

}  // namespace

int32_t tvxCornerFast9u8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                          uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners) {
  return Run<9>(src, width, height, stride, barrier, border, xy, nullptr, nCornersMax, numcorners, nullptr, 0, 0, 0,
                nullptr);
}

int32_t tvxCornerFast9InMasku8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                                uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners,
                                const uint8_t* bitMask, uint32_t maskWidth, uint32_t maskHeight) {
  return Run<9>(src, width, height, stride, barrier, border, xy, nullptr, nCornersMax, numcorners, bitMask, maskWidth,
                maskHeight, 0, nullptr);
}

int32_t tvxCornerFast9Scoreu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                               uint32_t border, uint32_t* xy, uint32_t* scores, uint32_t nCornersMax,
                               uint32_t* numcorners) {
  return Run<9>(src, width, height, stride, barrier, border, xy, scores, nCornersMax, numcorners, nullptr, 0, 0, 0,
                nullptr);
}

int32_t tvxCornerFast9InMaskScoreu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                     int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                     uint32_t nCornersMax, uint32_t* numcorners, const uint8_t* bitMask,
                                     uint32_t maskWidth, uint32_t maskHeight) {
  return Run<9>(src, width, height, stride, barrier, border, xy, scores, nCornersMax, numcorners, bitMask, maskWidth,
                maskHeight, 0, nullptr);
}

int32_t tvxCornerFast9Scoreu8_v2C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                  int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                  uint32_t nCornersMax, uint32_t* numcorners, uint32_t nmsEnabled, uint32_t* tempBuf) {
  return Run<9>(src, width, height, stride, barrier, border, xy, scores, nCornersMax, numcorners, nullptr, 0, 0,
                nmsEnabled, tempBuf);
}

int32_t tvxCornerFast9InMaskScoreu8_v2C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                        int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                        uint32_t nCornersMax, uint32_t* numcorners, const uint8_t* bitMask,
                                        uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled,
                                        uint32_t* tempBuf) {
  return Run<9>(src, width, height, stride, barrier, border, xy, scores, nCornersMax, numcorners, bitMask, maskWidth,
                maskHeight, nmsEnabled, tempBuf);
}

int32_t tvxCornerFast10u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           int32_t barrier, uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* nCorners) {
  return Run<10>(src, srcWidth, srcHeight, srcStride, barrier, border, xy, nullptr, nCornersMax, nCorners, nullptr, 0,
                 0, 0, nullptr);
}

int32_t tvxCornerFast10InMasku8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 int32_t barrier, uint32_t border, uint32_t* xy, uint32_t nCornersMax,
                                 uint32_t* nCorners, const uint8_t* mask, uint32_t maskWidth, uint32_t maskHeight) {
  return Run<10>(src, srcWidth, srcHeight, srcStride, barrier, border, xy, nullptr, nCornersMax, nCorners, mask,
                 maskWidth, maskHeight, 0, nullptr);
}

int32_t tvxCornerFast10Scoreu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                uint32_t nCornersMax, uint32_t* nCorners, uint32_t nmsEnabled, uint32_t* tempBuf) {
  return Run<10>(src, srcWidth, srcHeight, srcStride, barrier, border, xy, scores, nCornersMax, nCorners, nullptr, 0,
                 0, nmsEnabled, tempBuf);
}

int32_t tvxCornerFast10InMaskScoreu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                      uint32_t nCornersMax, uint32_t* nCorners, const uint8_t* mask,
                                      uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled,
                                      uint32_t* tempBuf) {
  return Run<10>(src, srcWidth, srcHeight, srcStride, barrier, border, xy, scores, nCornersMax, nCorners, mask,
                 maskWidth, maskHeight, nmsEnabled, tempBuf);
}

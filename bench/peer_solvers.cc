// Dense solver pairs: batches of small decompositions and solves against OpenCV (cv::SVD,
// cv::solve) and Eigen (JacobiSVD, LLT, PartialPivLU) on the same random matrices. Each call
// handles kBatch systems; the square solvers copy their inputs first on every side (the library
// factorises in place). Labels carry "solver" so that `tavix_peer_compare solver` runs them alone.
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <Eigen/Dense>
#include <opencv2/core.hpp>

#include "frame/frame.h"
#include "peer_ops.h"

namespace {

constexpr int kBatch = 1000;

std::string largest(const std::vector<float>& a, const std::vector<float>& b) {
  double worst = 0;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) worst = std::max(worst, double(std::fabs(a[i] - b[i])));
  return worst == 0 ? "same" : "max |diff| " + std::to_string(worst);
}

struct Batch {
  int m, n;
  std::vector<float> A;  // kBatch matrices, row-major
  std::vector<float> b;  // kBatch right-hand sides of m
  Batch(int rows, int cols, bool spd) : m(rows), n(cols), A(size_t(kBatch) * rows * cols), b(size_t(kBatch) * rows) {
    cv::RNG rng(7);
    for (float& v : b) v = rng.uniform(-1.0f, 1.0f);
    for (int k = 0; k < kBatch; ++k) {
      float* a = &A[size_t(k) * m * n];
      for (int i = 0; i < m * n; ++i) a[i] = rng.uniform(-1.0f, 1.0f);
      if (!spd && m > 1) {  // the LU solver needs a row exchange in the first column
        a[0] = 0.001f;
        a[n] = 1.5f;
      }
      if (spd) {  // B B^T + n I
        std::vector<float> B(a, a + m * n);
        for (int i = 0; i < m; ++i)
          for (int j = 0; j < m; ++j) {
            float s = i == j ? float(m) : 0.0f;
            for (int t = 0; t < m; ++t) s += B[i * m + t] * B[j * m + t];
            a[i * m + j] = s;
          }
      }
    }
  }
  const float* mat(int k) const { return &A[size_t(k) * m * n]; }
  const float* rhs(int k) const { return &b[size_t(k) * m]; }
};

template <int M, int N>
void addSvd(std::vector<PeerPair>& pairs) {
  auto in = std::make_shared<Batch>(M, N, false);
  auto tw = std::make_shared<std::vector<float>>(size_t(kBatch) * N), cw = std::make_shared<std::vector<float>>(tw->size()),
       ew = std::make_shared<std::vector<float>>(tw->size());
  auto tavix = [in, tw] {
    float U[M * N], Vt[N * N], tU[M * N], tV[N * N];
    for (int k = 0; k < kBatch; ++k) tvxSVDf32(in->mat(k), M, N, &(*tw)[size_t(k) * N], U, Vt, tU, tV);
  };
  const std::string label = "solver SVD " + std::to_string(M) + "x" + std::to_string(N) + " x1000";
  const double bytes = 4.0 * kBatch * (M * N * 2 + N * N + N);
  pairs.emplace_back(label, "tvxSVDf32", "cv::SVD::compute", TVX_ROW_tvxSVDf32, bytes, tavix,
                     [in, cw] {
                       cv::Mat w, u, vt;
                       for (int k = 0; k < kBatch; ++k) {
                         cv::SVD::compute(cv::Mat(M, N, CV_32F, const_cast<float*>(in->mat(k))), w, u, vt, cv::SVD::FULL_UV);
                         for (int i = 0; i < std::min(M, N); ++i) (*cw)[size_t(k) * N + i] = w.at<float>(i);
                       }
                     },
                     [tw, cw] { return largest(*tw, *cw); });
  pairs.back().goalSpeedup = 2.0;
  pairs.emplace_back(label, "tvxSVDf32", "Eigen::JacobiSVD", TVX_ROW_tvxSVDf32, bytes, tavix,
                     [in, ew] {
                       using Mat = Eigen::Matrix<float, M, N, Eigen::RowMajor>;
                       for (int k = 0; k < kBatch; ++k) {
                         Eigen::JacobiSVD<Mat> svd(Eigen::Map<const Mat>(in->mat(k)), Eigen::ComputeFullU | Eigen::ComputeFullV);
                         const auto& s = svd.singularValues();
                         for (int i = 0; i < s.size(); ++i) (*ew)[size_t(k) * N + i] = s[i];
                       }
                     },
                     [tw, ew] { return largest(*tw, *ew); });
  pairs.back().goalSpeedup = 2.0;
}

template <int N>
void addSquare(std::vector<PeerPair>& pairs, bool cholesky) {
  auto in = std::make_shared<Batch>(N, N, cholesky);
  auto tx = std::make_shared<std::vector<float>>(size_t(kBatch) * N), cx = std::make_shared<std::vector<float>>(tx->size()),
       ex = std::make_shared<std::vector<float>>(tx->size());
  auto tavix = [in, tx, cholesky] {
    float A[N * N], b[N], diag[N];
    uint8_t pivot[N];
    for (int k = 0; k < kBatch; ++k) {
      std::memcpy(A, in->mat(k), sizeof A);
      std::memcpy(b, in->rhs(k), sizeof b);
      if (cholesky) {
        tvxSolveCholeskyf32(A, b, diag, N, &(*tx)[size_t(k) * N]);
      } else {
        tvxSolveLUf32(A, b, N, pivot, &(*tx)[size_t(k) * N]);
      }
    }
  };
  const std::string kind = cholesky ? "Cholesky" : "LU";
  const std::string label = "solver " + kind + " " + std::to_string(N) + "x" + std::to_string(N) + " x1000";
  const char* call = cholesky ? "tvxSolveCholeskyf32" : "tvxSolveLUf32";
  const uint32_t row = cholesky ? TVX_ROW_tvxSolveCholeskyf32 : TVX_ROW_tvxSolveLUf32;
  const double bytes = 4.0 * kBatch * (N * N * 2 + N * 3);
  pairs.emplace_back(label, call, cholesky ? "cv::solve DECOMP_CHOLESKY" : "cv::solve DECOMP_LU", row, bytes, tavix,
                     [in, cx, cholesky] {
                       cv::Mat x;
                       for (int k = 0; k < kBatch; ++k) {
                         cv::solve(cv::Mat(N, N, CV_32F, const_cast<float*>(in->mat(k))),
                                   cv::Mat(N, 1, CV_32F, const_cast<float*>(in->rhs(k))), x,
                                   cholesky ? cv::DECOMP_CHOLESKY : cv::DECOMP_LU);
                         std::memcpy(&(*cx)[size_t(k) * N], x.ptr<float>(), N * sizeof(float));
                       }
                     },
                     [tx, cx] { return largest(*tx, *cx); });
  pairs.back().goalSpeedup = 2.0;
  pairs.emplace_back(label, call, cholesky ? "Eigen::LLT" : "Eigen::PartialPivLU", row, bytes, tavix,
                     [in, ex, cholesky] {
                       using Mat = Eigen::Matrix<float, N, N, Eigen::RowMajor>;
                       using Vec = Eigen::Matrix<float, N, 1>;
                       for (int k = 0; k < kBatch; ++k) {
                         const Eigen::Map<const Mat> A(in->mat(k));
                         const Eigen::Map<const Vec> b(in->rhs(k));
                         Eigen::Map<Vec> x(&(*ex)[size_t(k) * N]);
                         if (cholesky) {
                           x = A.llt().solve(b);
                         } else {
                           x = A.partialPivLu().solve(b);
                         }
                       }
                     },
                     [tx, ex] { return largest(*tx, *ex); });
  pairs.back().goalSpeedup = 2.0;
}

}  // namespace

void addSolverPairs(PeerImages& images, std::vector<PeerPair>& pairs) {
  (void)images;
  addSvd<9, 9>(pairs);
  addSvd<8, 9>(pairs);
  addSquare<6>(pairs, true);
  addSquare<8>(pairs, true);
  addSquare<6>(pairs, false);
  addSquare<8>(pairs, false);
}

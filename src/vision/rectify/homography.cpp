// Perspective matrix that straightens the page.
//
// The matrix maps the four vertices (top-left, bottom-left, bottom-right,
// top-right) onto the corners (0,0), (0,h), (w,h), (w,0) of the output.
// Four exact correspondences determine it: with h22 fixed at 1 the other
// eight entries solve the 8 x 8 linear system
//   u = (h00 x + h01 y + h02) / (h20 x + h21 y + 1), v likewise,
// written in double precision and solved by LU decomposition (the system
// OpenCV's getPerspectiveTransform solves, without rounding the vertices to
// float). The vertices admit no perspective matrix when the system is
// singular or its solution not finite, and also when the solution only
// satisfies the equations by sending vertices to infinity: three collinear
// vertices, for instance, give a rank-deficient matrix whose denominator
// h20 x + h21 y + 1 vanishes at them. So the denominators at the four
// vertices must be clearly non-zero and of one sign (the page lies on one
// side of the horizon; a self-crossing quadrangle does not). Otherwise the
// builders return 0 and leave the matrix empty, and callers fall back to the
// photograph.
#include <algorithm>
#include <cmath>

#include "vision/rectify/rectify.h"

namespace {

constexpr double kMinDenominatorRatio = 1e-9;

bool DenominatorsAgree(const tem_Point quad[4], const double* h) {
    double d[4];
    double largest = 0.0;
    for (int i = 0; i < 4; ++i) {
        d[i] = h[6] * quad[i].x + h[7] * quad[i].y + 1.0;
        largest = std::max(largest, std::abs(d[i]));
    }
    for (int i = 0; i < 4; ++i) {
        if (std::abs(d[i]) <= kMinDenominatorRatio * largest || (d[i] > 0) != (d[0] > 0)) {
            return false;
        }
    }
    return true;
}

int SolveQuadToRect(const tem_Point quad[4], int32_t w, int32_t h, cv::Mat& matrix) {
    matrix.release();
    if (quad == nullptr || w <= 0 || h <= 0) return 0;
    const double dst[4][2] = {{0.0, 0.0},
                              {0.0, static_cast<double>(h)},
                              {static_cast<double>(w), static_cast<double>(h)},
                              {static_cast<double>(w), 0.0}};
    double a[8][8] = {};
    double b[8];
    for (int i = 0; i < 4; ++i) {
        const double x = quad[i].x;
        const double y = quad[i].y;
        const double u = dst[i][0];
        const double v = dst[i][1];
        a[i][0] = a[i + 4][3] = x;
        a[i][1] = a[i + 4][4] = y;
        a[i][2] = a[i + 4][5] = 1.0;
        a[i][6] = -x * u;
        a[i][7] = -y * u;
        a[i + 4][6] = -x * v;
        a[i + 4][7] = -y * v;
        b[i] = u;
        b[i + 4] = v;
    }
    try {
        cv::Mat solution;
        if (!cv::solve(cv::Mat(8, 8, CV_64F, a), cv::Mat(8, 1, CV_64F, b), solution,
                       cv::DECOMP_LU)) {
            return 0;
        }
        cv::Mat m(3, 3, CV_64F);
        double* out = m.ptr<double>();
        for (int i = 0; i < 8; ++i) {
            out[i] = solution.at<double>(i);
            if (!std::isfinite(out[i])) return 0;
        }
        out[8] = 1.0;
        if (!DenominatorsAgree(quad, out)) return 0;
        matrix = m;
    } catch (const cv::Exception&) {
        matrix.release();
        return 0;
    }
    return 1;
}

}  // namespace

int MakeGeometryRectifyMatrix3(const tem_Point quad[4], const cv::Mat& source, cv::Mat& matrix) {
    int32_t w = 0;
    int32_t h = 0;
    if (!CalDstSize2(quad, source, &w, &h)) {
        matrix.release();
        return 0;
    }
    return SolveQuadToRect(quad, w, h, matrix);
}

int MakeGeometryRectifyMatrix4(const tem_Point quad[4], int32_t w, int32_t h, cv::Mat& matrix) {
    return SolveQuadToRect(quad, w, h, matrix);
}

// Levelling text lines that run a few degrees off the horizontal.
//
// Corners placed a little off, or print set askew on its sheet, leave the
// lines of the straightened page slanting by a degree or a few. Over a
// stretch of line eight letter heights long, four degrees move the baseline
// by more than half a letter, which smears the row profile that tells which
// way up the print is. So the mask is levelled first.
//
// The slant is the angle whose sheared row profile of the ink is the most
// sharply peaked (largest sum of squares): sheared along the lines, every
// line's ink piles into its own few rows and the gaps between lines empty;
// sheared across them, lines smear into each other. The search runs over
// +-kMaxSlant degrees in kCoarseStep steps, then in kFineStep steps around
// the best one, over an even sample of at most kMaxPoints ink pixels; all
// the ink counts alike, so a handful of lines on an index card levels as
// well as a full page. Slants below kMinTurn are left alone:
// turning the mask would cost more than it gains.
#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/textdir/textdir.h"

namespace {

constexpr double kMaxSlant = 8.0;
constexpr double kCoarseStep = 0.5;
constexpr double kFineStep = 0.1;
constexpr double kMinTurn = 0.3;
constexpr size_t kMaxPoints = 40000;
constexpr double kPi = 3.14159265358979323846;

// Sum of squares of the row profile of the points sheared by `degrees`.
double Sharpness(const std::vector<cv::Point>& points, int rows, int cols, double degrees,
                 std::vector<int32_t>& profile) {
    const double t = std::tan(degrees * kPi / 180.0);
    const double cx = cols / 2.0;
    const int margin = static_cast<int>(std::ceil(std::abs(t) * cx)) + 1;
    profile.assign(static_cast<size_t>(rows + 2 * margin), 0);
    for (const cv::Point& p : points) {
        const int y = static_cast<int>(std::lround(p.y - (p.x - cx) * t)) + margin;
        ++profile[static_cast<size_t>(std::clamp(y, 0, rows + 2 * margin - 1))];
    }
    double sum = 0.0;
    for (int32_t v : profile) sum += static_cast<double>(v) * v;
    return sum;
}

}  // namespace

double EstimateLineSlant(const cv::Mat& ink) {
    if (ink.empty() || ink.type() != CV_8UC1) return 0.0;
    std::vector<cv::Point> all, points;
    cv::findNonZero(ink, all);
    if (all.size() < 2) return 0.0;
    // An even sample of the ink is as good as all of it and keeps the
    // search to a few milliseconds.
    const size_t stride = std::max<size_t>(1, all.size() / kMaxPoints);
    points.reserve(all.size() / stride + 1);
    for (size_t i = 0; i < all.size(); i += stride) points.push_back(all[i]);
    std::vector<int32_t> profile;
    auto search = [&](double from, double to, double step, double* best) {
        double bestScore = -1.0;
        const int steps = static_cast<int>(std::lround((to - from) / step));
        for (int i = 0; i <= steps; ++i) {
            const double a = from + i * step;
            const double score = Sharpness(points, ink.rows, ink.cols, a, profile);
            // Ties go to the smaller slant, so that level print stays level.
            if (score > bestScore || (score == bestScore && std::abs(a) < std::abs(*best))) {
                bestScore = score;
                *best = a;
            }
        }
    };
    double coarse = 0.0;
    search(-kMaxSlant, kMaxSlant, kCoarseStep, &coarse);
    double fine = coarse;
    search(coarse - kCoarseStep, coarse + kCoarseStep, kFineStep, &fine);
    return fine;
}

cv::Mat LevelLines(const cv::Mat& ink, double degrees) {
    if (ink.empty() || std::abs(degrees) < kMinTurn) return ink;
    // Lines falling to the right (y growing with x) level by a turn
    // counter-clockwise, which is OpenCV's positive angle.
    const cv::Mat turn =
        cv::getRotationMatrix2D(cv::Point2f(ink.cols / 2.0f, ink.rows / 2.0f), degrees, 1.0);
    cv::Mat level;
    cv::warpAffine(ink, level, turn, ink.size(), cv::INTER_NEAREST, cv::BORDER_CONSTANT,
                   cv::Scalar(0));
    return level;
}

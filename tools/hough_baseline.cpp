#include "hough_baseline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

namespace scrivo_eval {

namespace {

constexpr double kWorkSide = 500.0;     // longer side of the reduced photograph
constexpr double kMinAreaShare = 0.10;  // of the frame
constexpr double kMaxAreaShare = 0.98;  // of the frame
constexpr double kMinSupport = 0.5;     // share of the outline on edges
constexpr double kAreaWeight = 0.5;     // of the area share in the score
constexpr double kFrameMargin = 0.02;   // of the longer side, corners may lie outside
constexpr int kGroupSpread = 30;        // degrees around a dominant orientation
constexpr int kMinGroupAngle = 45;      // degrees between the two orientations
constexpr size_t kLinesPerGroup = 20;   // longest distinct lines kept per orientation

// An infinite line through `p` along the unit vector `d`, with the angle of
// d in whole degrees (0..179) and the length of the segment it came from.
struct Line {
    cv::Point2d p;
    cv::Point2d d;
    int angle = 0;
    double length = 0.0;
};

int AngleGap(int a, int b) {
    const int g = std::abs(a - b) % 180;
    return std::min(g, 180 - g);
}

// Canny's thresholds from the picture's own contrast: the upper one passes
// the strongest 5 % of gradients (|dx| + |dy| of the 3 x 3 Sobel filters, as
// Canny measures them), the lower one is 0.4 of it.
std::pair<double, double> CannyThresholds(const cv::Mat& grey) {
    cv::Mat dx, dy;
    cv::Sobel(grey, dx, CV_16S, 1, 0);
    cv::Sobel(grey, dy, CV_16S, 0, 1);
    std::vector<int> hist(2 * 4 * 255 + 1, 0);
    for (int y = 0; y < grey.rows; ++y) {
        const int16_t* gx = dx.ptr<int16_t>(y);
        const int16_t* gy = dy.ptr<int16_t>(y);
        for (int x = 0; x < grey.cols; ++x) ++hist[std::abs(gx[x]) + std::abs(gy[x])];
    }
    const double strong = 0.05 * grey.rows * grey.cols;
    double above = 0.0;
    int high = static_cast<int>(hist.size()) - 1;
    while (high > 0 && above + hist[high] < strong) above += hist[high--];
    return {0.4 * high, static_cast<double>(high)};
}

// The peak of the length-weighted histogram of the lines' angles, smoothed
// over a few degrees; with `awayFrom` (not -1), only angles at least
// kMinGroupAngle from it compete. -1 when no angle has any weight.
int DominantAngle(const std::vector<Line>& lines, int awayFrom) {
    std::array<double, 180> hist{};
    for (const Line& l : lines)
        for (int k = -3; k <= 3; ++k)
            hist[(l.angle + k + 180) % 180] += l.length * (4 - std::abs(k));
    int best = -1;
    for (int a = 0; a < 180; ++a) {
        if (awayFrom >= 0 && AngleGap(a, awayFrom) < kMinGroupAngle) continue;
        if (hist[a] > 0.0 && (best < 0 || hist[a] > hist[best])) best = a;
    }
    return best;
}

// The longest lines near `angle`, one for each run of near-duplicates.
std::vector<Line> Group(const std::vector<Line>& lines, int angle) {
    std::vector<Line> out;
    for (const Line& l : lines) {  // longest first
        if (AngleGap(l.angle, angle) > kGroupSpread) continue;
        const bool duplicate = std::any_of(out.begin(), out.end(), [&](const Line& k) {
            const cv::Point2d v = l.p - k.p;
            return AngleGap(l.angle, k.angle) <= 3 && std::abs(v.x * k.d.y - v.y * k.d.x) < 6.0;
        });
        if (!duplicate) out.push_back(l);
        if (out.size() == kLinesPerGroup) break;
    }
    return out;
}

bool Intersect(const Line& a, const Line& b, cv::Point2d* at) {
    const double den = a.d.x * b.d.y - a.d.y * b.d.x;
    if (std::abs(den) < 1e-9) return false;
    const cv::Point2d v = b.p - a.p;
    const double t = (v.x * b.d.y - v.y * b.d.x) / den;
    *at = a.p + t * a.d;
    return true;
}

// The share of points along the closed outline that fall on an edge.
double Support(const cv::Mat& edges, const Quad& q) {
    int hits = 0, total = 0;
    for (int i = 0; i < 4; ++i) {
        const cv::Point2d a = q[i], b = q[(i + 1) % 4];
        const int steps = std::max(1, static_cast<int>(cv::norm(b - a)));
        for (int s = 0; s < steps; ++s) {
            const cv::Point2d p = a + (b - a) * (static_cast<double>(s) / steps);
            const int x = static_cast<int>(std::lround(p.x)),
                      y = static_cast<int>(std::lround(p.y));
            ++total;
            if (x >= 0 && y >= 0 && x < edges.cols && y < edges.rows && edges.at<uint8_t>(y, x))
                ++hits;
        }
    }
    return static_cast<double>(hits) / total;
}

}  // namespace

std::optional<Quad> FindPageByHoughLines(const cv::Mat& photo) {
    CV_Assert(photo.depth() == CV_8U && !photo.empty());
    const double scale = std::min(1.0, kWorkSide / std::max(photo.cols, photo.rows));
    const cv::Size size(std::max(1, static_cast<int>(std::lround(photo.cols * scale))),
                        std::max(1, static_cast<int>(std::lround(photo.rows * scale))));
    cv::Mat small, grey, edges;
    cv::resize(photo, small, size, 0, 0, cv::INTER_AREA);
    if (small.channels() == 1)
        grey = small;
    else
        cv::cvtColor(small, grey, small.channels() == 4 ? cv::COLOR_RGBA2GRAY : cv::COLOR_RGB2GRAY);
    // Closing fills the print in with the paper around it, so that the
    // thresholds follow the page's outline rather than its text.
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(5, 5));
    cv::morphologyEx(grey, grey, cv::MORPH_CLOSE, square);
    cv::GaussianBlur(grey, grey, cv::Size(5, 5), 0);
    const auto [low, high] = CannyThresholds(grey);
    cv::Canny(grey, edges, low, high);
    cv::dilate(edges, edges, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3)));

    std::vector<cv::Vec4i> segments;
    const double longer = std::max(size.width, size.height);
    cv::HoughLinesP(edges, segments, 1, CV_PI / 180, 50, 0.1 * longer, 10);
    std::vector<Line> lines;
    for (const cv::Vec4i& s : segments) {
        const cv::Point2d a(s[0], s[1]), b(s[2], s[3]);
        const double length = cv::norm(b - a);
        if (length < 1.0) continue;
        const cv::Point2d d = (b - a) / length;
        const int angle =
            static_cast<int>(std::lround(std::atan2(d.y, d.x) * 180 / CV_PI) + 360) % 180;
        lines.push_back({a, d, angle, length});
    }
    std::sort(lines.begin(), lines.end(),
              [](const Line& x, const Line& y) { return x.length > y.length; });
    const int first = DominantAngle(lines, -1);
    const int second = first < 0 ? -1 : DominantAngle(lines, first);
    if (second < 0) return std::nullopt;
    const std::vector<Line> ga = Group(lines, first), gb = Group(lines, second);

    const double frame = static_cast<double>(size.width) * size.height;
    const double mx = kFrameMargin * longer;
    auto inFrame = [&](const cv::Point2d& p) {
        return p.x >= -mx && p.y >= -mx && p.x <= size.width + mx && p.y <= size.height + mx;
    };
    std::optional<Quad> best;
    double bestScore = 0.0;
    for (size_t a1 = 0; a1 < ga.size(); ++a1)
        for (size_t a2 = a1 + 1; a2 < ga.size(); ++a2)
            for (size_t b1 = 0; b1 < gb.size(); ++b1)
                for (size_t b2 = b1 + 1; b2 < gb.size(); ++b2) {
                    Quad q;
                    if (!Intersect(ga[a1], gb[b1], &q[0]) || !Intersect(ga[a1], gb[b2], &q[1]) ||
                        !Intersect(ga[a2], gb[b2], &q[2]) || !Intersect(ga[a2], gb[b1], &q[3]))
                        continue;
                    if (!std::all_of(q.begin(), q.end(), inFrame) || !IsStrictlyConvexQuad(q))
                        continue;
                    const double share = std::abs(SignedArea2(q)) * 0.5 / frame;
                    if (share < kMinAreaShare || share > kMaxAreaShare) continue;
                    const double support = Support(edges, q);
                    if (support < kMinSupport) continue;
                    const double score = support + kAreaWeight * share;
                    if (score > bestScore) {
                        bestScore = score;
                        best = q;
                    }
                }
    if (!best) return std::nullopt;

    // Back to photograph pixels: reduced pixel centres sit at i + 0.5.
    Quad q = *best;
    const double fx = static_cast<double>(photo.cols) / size.width;
    const double fy = static_cast<double>(photo.rows) / size.height;
    for (cv::Point2d& p : q) p = cv::Point2d((p.x + 0.5) * fx, (p.y + 0.5) * fy);
    // Top-left, bottom-left, bottom-right, top-right runs with a negative
    // signed area (y down); start at the corner nearest the origin.
    if (SignedArea2(q) > 0) std::swap(q[1], q[3]);
    const auto topLeft = std::min_element(
        q.begin(), q.end(), [](const auto& u, const auto& v) { return u.x + u.y < v.x + v.y; });
    std::rotate(q.begin(), topLeft, q.end());
    return q;
}

}  // namespace scrivo_eval

// The two measurements the direction decision rests on, both taken on the
// ink mask of the text blocks.
//
// Axis. Along a text line ink continues for many letter heights, broken
// only by the gaps between letters and words; across it, ink stops after
// one line height and the next line starts after a gap about as wide as
// the letters are tall. So runs of ink along rows, with gaps up to about
// half a letter bridged, are long (words and lines) when the lines run
// across and short (one letter) when they run down, and the runs along
// columns the other way round. The score is the log ratio of the
// ink-weighted mean run lengths, sum(r^2) / sum(r), along rows and along
// columns. Unlike a projection profile it needs neither straight lines
// over the whole page nor many lines: three lines on an index card, or a
// page left a degree or two askew by its corners, measure the same.
//
// Which way up (lines running across). The bridged runs joined into
// connected pieces are pieces of text lines; a piece much taller than the
// others (lines run together) or not clearly longer than tall (a lone
// letter) is not used, and long pieces are cut into stretches of at most
// eight times their height, so that a slight slant does not smear the
// profile. Each stretch gives its row profile of ink; the rows reaching
// half the profile's peak are its core band (the lower-case bodies, or the
// capitals of a line in capitals). In Latin print more ink lies above the
// core than below it (ascenders, capitals and the dots of i and j against
// the few descenders), and within the core the upper half holds a little
// more ink than the lower one (arches, bars and bowls at the x-height and
// cap-height of most letters and figures), which is what is left to go by
// in a line of capitals and figures. Such a line has next to no ink outside
// its core, and what it has (commas, the tails of Q and J, a stray mark)
// says nothing about which way up it is, so the zones only count for a
// stretch with at least kMinZoneShare of its ink outside the core. A
// stretch's evidence is (above - below, when counted, + upper half - lower
// half) / its ink; the page's is the mean over its stretches with the
// standard error of that mean, so that a page of many consistent lines is
// told apart from one of a few contradicting ones.
#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "vision/textdir/textdir.h"

namespace {

constexpr double kStretchPerHeight = 8.0;
constexpr double kMinPieceElongation = 2.0;
constexpr double kMaxPieceHeight = 2.0;  // times the median piece height
constexpr int kMinPieceHeight = 5;
constexpr double kCoreLevel = 0.5;
constexpr double kMinZoneShare = 0.04;
constexpr double kMaxZ = 1000.0;

// sum(r^2) and sum(r) of the bridged runs along the rows of `ink`.
void BridgedRuns(const cv::Mat& ink, int32_t gap, double* sumSquares, double* sum) {
    *sumSquares = 0.0;
    *sum = 0.0;
    for (int y = 0; y < ink.rows; ++y) {
        const uint8_t* row = ink.ptr<uint8_t>(y);
        int start = -1, last = -1;
        for (int x = 0; x < ink.cols; ++x) {
            if (row[x] == 0) continue;
            if (start >= 0 && x - last - 1 > gap) {
                const double r = last - start + 1;
                *sumSquares += r * r;
                *sum += r;
                start = -1;
            }
            if (start < 0) start = x;
            last = x;
        }
        if (start >= 0) {
            const double r = last - start + 1;
            *sumSquares += r * r;
            *sum += r;
        }
    }
}

double MeanRun(const cv::Mat& ink, int32_t gap) {
    double squares = 0.0, sum = 0.0;
    BridgedRuns(ink, gap, &squares, &sum);
    return sum > 0.0 ? squares / sum : 0.0;
}

// Evidence of one stretch from its row profile; false when it has too
// little ink to judge.
bool StretchEvidence(const std::vector<double>& profile, double* evidence) {
    double total = 0.0, peak = 0.0;
    for (double v : profile) {
        total += v;
        peak = std::max(peak, v);
    }
    const int n = static_cast<int>(profile.size());
    if (peak <= 0.0 || total < 2.0 * n) return false;
    int c0 = 0, c1 = n - 1;
    while (profile[c0] < kCoreLevel * peak) ++c0;
    while (profile[c1] < kCoreLevel * peak) --c1;
    double above = 0.0, below = 0.0, upper = 0.0, lower = 0.0;
    for (int y = 0; y < c0; ++y) above += profile[y];
    for (int y = c1 + 1; y < n; ++y) below += profile[y];
    const int half = (c1 - c0 + 1) / 2;
    for (int i = 0; i < half; ++i) {
        upper += profile[c0 + i];
        lower += profile[c1 - i];
    }
    const double zones = (above + below) / total >= kMinZoneShare ? above - below : 0.0;
    *evidence = (zones + upper - lower) / total;
    return true;
}

}  // namespace

double MeasureLineAxis(const cv::Mat& ink, int32_t gap) {
    if (ink.empty() || ink.type() != CV_8UC1) return 0.0;
    cv::Mat columns;
    cv::transpose(ink, columns);
    const double across = MeanRun(ink, gap);
    const double down = MeanRun(columns, gap);
    if (across <= 0.0 || down <= 0.0) return 0.0;
    return std::log(across / down);
}

UpDownEvidence MeasureUpDown(const cv::Mat& ink, int32_t gap) {
    UpDownEvidence out;
    if (ink.empty() || ink.type() != CV_8UC1) return out;
    cv::Mat bridged;
    const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(gap + 1, 1));
    cv::morphologyEx(ink, bridged, cv::MORPH_CLOSE, kernel);
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(bridged, labels, stats, centroids, 8, CV_32S);

    auto isLinePiece = [&](int i) {
        const int w = stats.at<int>(i, cv::CC_STAT_WIDTH);
        const int h = stats.at<int>(i, cv::CC_STAT_HEIGHT);
        return h >= kMinPieceHeight && w >= kMinPieceElongation * h;
    };
    std::vector<int> heights;
    for (int i = 1; i < n; ++i) {
        if (isLinePiece(i)) heights.push_back(stats.at<int>(i, cv::CC_STAT_HEIGHT));
    }
    if (heights.empty()) return out;
    std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
    const double medianHeight = heights[heights.size() / 2];

    std::vector<double> evidence;
    std::vector<double> profile;
    for (int i = 1; i < n; ++i) {
        if (!isLinePiece(i)) continue;
        const int x0 = stats.at<int>(i, cv::CC_STAT_LEFT);
        const int y0 = stats.at<int>(i, cv::CC_STAT_TOP);
        const int w = stats.at<int>(i, cv::CC_STAT_WIDTH);
        const int h = stats.at<int>(i, cv::CC_STAT_HEIGHT);
        if (h > kMaxPieceHeight * medianHeight) continue;
        const int stretches = std::max(1, static_cast<int>(std::ceil(w / (kStretchPerHeight * h))));
        for (int s = 0; s < stretches; ++s) {
            const int xa = x0 + static_cast<int>(static_cast<int64_t>(w) * s / stretches);
            const int xb = x0 + static_cast<int>(static_cast<int64_t>(w) * (s + 1) / stretches);
            profile.assign(h, 0.0);
            for (int y = 0; y < h; ++y) {
                const int32_t* label = labels.ptr<int32_t>(y0 + y);
                const uint8_t* row = ink.ptr<uint8_t>(y0 + y);
                int count = 0;
                for (int x = xa; x < xb; ++x) count += (label[x] == i && row[x] != 0);
                profile[y] = count;
            }
            double e = 0.0;
            if (StretchEvidence(profile, &e)) evidence.push_back(e);
        }
    }
    out.pieces = static_cast<int32_t>(evidence.size());
    if (evidence.empty()) return out;
    double sum = 0.0;
    for (double e : evidence) sum += e;
    out.mean = sum / evidence.size();
    if (evidence.size() < 2) return out;
    double var = 0.0;
    for (double e : evidence) var += (e - out.mean) * (e - out.mean);
    var /= (evidence.size() - 1);
    const double se = std::sqrt(var / evidence.size());
    // Identical stretches have no spread: the z stays finite for the caller.
    const double z = se > 0.0 ? out.mean / se : (out.mean == 0.0 ? 0.0 : out.mean * kMaxZ);
    out.z = std::clamp(z, -kMaxZ, kMaxZ);
    return out;
}

// Background estimation and the removal of uneven light.
//
// CalBackGround works on the block arrays of the layout analysis: every
// block that shows paper (class below 2) carries the paper's grey, Cr and
// Cb under it. Blocks without paper (pictures) take the mean of their
// known neighbours, ring by ring, so the estimate runs smoothly across
// them; the grid is then smoothed by a 3 x 3 mean and enlarged to the
// page (linear interpolation between block centres). The page levels are
// the medians over the paper blocks: L1 (Cr), L2 (Cb) and the paper grey.
//
// ComputeBackGround9 estimates the background of a reduced luma plane
// (at most 128 px long) from its paper flags:
// 1. at every pixel, the median of the flagged pixels in a window x window
//    square around it: a median follows the step at a shadow's edge where
//    a mean would smear it, and ignores the darker fringe of strokes that
//    the flag lets through;
// 2. pixels outside `trusted`, or whose window is less than 70 % flagged
//    (flagged pixels among many others are more likely the light parts of
//    a picture than paper), are filled from their filled 8-neighbours, ring
//    by ring inwards, then relaxed, so text and pictures get the paper
//    level around them, interpolated smoothly;
// 3. a 3 x 3 mean smooths the result. A plane with no flagged pixel at all
//    gets the page level everywhere.
//
// DeleteNonUniformIllumination5 divides the full-size luma by the enlarged
// background through a 256 x 256 table, bringing all paper to the page
// level M. The background is enlarged linearly one row at a time as the
// division needs it, so no full-size background plane is made. Column 0 of the table (a background
// of 0: no light measured) holds 255, as the division tends there. The last row and column of Y are
// left as they were.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "pixel/large_image.h"
#include "vision/enhance/document.h"

namespace {

constexpr int kWorkSide = 128;
constexpr int kRelaxSweeps = 100;

// Relaxes the filled cells towards the mean of their 4-neighbours, the
// known cells held fixed (Gauss-Seidel sweeps): a fill that interpolates
// smoothly, linearly along a gradient, instead of copying the edge of the
// hole inwards.
void Relax(cv::Mat& grid, const std::vector<cv::Point>& filled, int sweeps) {
    const int W = grid.cols, H = grid.rows;
    for (int k = 0; k < sweeps; ++k) {
        for (const cv::Point& p : filled) {
            float sum = 0.0f;
            int n = 0;
            const auto add = [&](int x, int y) {
                sum += grid.at<float>(y, x);
                ++n;
            };
            if (p.x > 0) add(p.x - 1, p.y);
            if (p.x + 1 < W) add(p.x + 1, p.y);
            if (p.y > 0) add(p.x, p.y - 1);
            if (p.y + 1 < H) add(p.x, p.y + 1);
            grid.at<float>(p) = sum / static_cast<float>(n);
        }
    }
}

// Fills the unknown cells (known == 0) of a float grid from their known
// 8-neighbours, ring by ring, then relaxes the filled cells. Returns false
// when nothing is known.
bool FillFromNeighbours(cv::Mat& grid, cv::Mat& known) {
    if (cv::countNonZero(known) == 0) return false;
    const int W = grid.cols, H = grid.rows;
    std::vector<cv::Point> filled;
    // The mean of the known 8-neighbours of (x, y); false when there are none.
    const auto neighbourMean = [&](int x, int y, float* mean) {
        float sum = 0.0f;
        int n = 0;
        for (int ny = std::max(y - 1, 0); ny <= std::min(y + 1, H - 1); ++ny) {
            for (int nx = std::max(x - 1, 0); nx <= std::min(x + 1, W - 1); ++nx) {
                if (known.at<uint8_t>(ny, nx) == 0) continue;
                sum += grid.at<float>(ny, nx);
                ++n;
            }
        }
        if (n > 0) *mean = sum / static_cast<float>(n);
        return n > 0;
    };
    std::vector<std::pair<cv::Point, float>> ring;
    for (;;) {
        ring.clear();
        for (int y = 0; y < H; ++y) {
            for (int x = 0; x < W; ++x) {
                float mean = 0.0f;
                if (known.at<uint8_t>(y, x) == 0 && neighbourMean(x, y, &mean)) {
                    ring.emplace_back(cv::Point(x, y), mean);
                }
            }
        }
        if (ring.empty()) break;
        for (const auto& [at, mean] : ring) {
            grid.at<float>(at) = mean;
            known.at<uint8_t>(at) = 255;
            filled.push_back(at);
        }
    }
    Relax(grid, filled, kRelaxSweeps);
    return true;
}

// Linear enlargement of a small 8-bit plane, one output row at a time
// (pixel centres aligned, edges clamped, 8-bit weights, rounded).
class LinearEnlarger {
  public:
    LinearEnlarger(const cv::Mat& small, cv::Size size)
        : small_(small),
          size_(size),
          x0_(size.width),
          x1_(size.width),
          fx_(size.width),
          column_(small.cols) {
        for (int x = 0; x < size.width; ++x) {
            Locate(x, small.cols, size.width, &x0_[x], &x1_[x], &fx_[x]);
        }
    }

    void Row(int y, uint8_t* out) const {
        int y0 = 0, y1 = 0, fy = 0;
        Locate(y, small_.rows, size_.height, &y0, &y1, &fy);
        const uint8_t *r0 = small_.ptr<uint8_t>(y0), *r1 = small_.ptr<uint8_t>(y1);
        for (int x = 0; x < small_.cols; ++x) column_[x] = r0[x] * (256 - fy) + r1[x] * fy;
        for (int x = 0; x < size_.width; ++x) {
            const int32_t v = column_[x0_[x]] * (256 - fx_[x]) + column_[x1_[x]] * fx_[x];
            out[x] = static_cast<uint8_t>((v + 32768) >> 16);
        }
    }

  private:
    // Source samples and the weight of the second for output position i.
    static void Locate(int i, int from, int to, int* a, int* b, int* w) {
        const double s = std::clamp((i + 0.5) * from / to - 0.5, 0.0, from - 1.0);
        *a = static_cast<int>(s);
        *b = std::min(*a + 1, from - 1);
        *w = static_cast<int>((s - *a) * 256.0 + 0.5);
    }

    const cv::Mat& small_;
    cv::Size size_;
    std::vector<int> x0_, x1_, fx_;
    mutable std::vector<int32_t> column_;
};

// A smoothed, filled block grid enlarged to the page size as 8-bit.
void GridToPlane(cv::Mat grid, cv::Mat known, float fallback, cv::Size size, cv::Mat& plane) {
    if (!FillFromNeighbours(grid, known)) grid.setTo(fallback);
    cv::blur(grid, grid, cv::Size(3, 3), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::Mat bytes;
    grid.convertTo(bytes, CV_8U);
    scrivo::pixel::CreateLarge(plane, size, bytes.type());
    cv::resize(bytes, plane, size, 0.0, 0.0, cv::INTER_LINEAR);
}

}  // namespace

void CalBackGround(const cv::Mat& Cr, const cv::Mat& Cb, const cv::Mat& Y, cv::Mat& bgY,
                   cv::Mat& bgCr, cv::Mat& bgCb, BlockArrays blocks, int B, PageLevels* levels) {
    (void)Cr;
    (void)Cb;
    const int BX = Y.cols / B, BY = Y.rows / B;
    if (BX < 1 || BY < 1) return;
    cv::Mat grey(BY, BX, CV_32F), cr(BY, BX, CV_32F), cb(BY, BX, CV_32F);
    cv::Mat known(BY, BX, CV_8UC1, cv::Scalar(0));
    std::vector<int32_t> greys, crs, cbs;
    for (int i = 0; i < BX * BY; ++i) {
        const int y = i / BX, x = i % BX;
        grey.at<float>(y, x) = static_cast<float>(blocks.A2[i]);
        cr.at<float>(y, x) = static_cast<float>(blocks.A3[i]);
        cb.at<float>(y, x) = static_cast<float>(blocks.A4[i]);
        if (blocks.A1[i] < kBlockPicture) {
            known.at<uint8_t>(y, x) = 255;
            greys.push_back(blocks.A2[i]);
            crs.push_back(blocks.A3[i]);
            cbs.push_back(blocks.A4[i]);
        }
    }
    PageLevels page;
    page.paper = BlockPercentile(greys, 50, static_cast<int32_t>(cv::mean(Y)[0]));
    page.L1 = BlockPercentile(crs, 50, 128);
    page.L2 = BlockPercentile(cbs, 50, 128);
    GridToPlane(grey, known.clone(), static_cast<float>(page.paper), Y.size(), bgY);
    GridToPlane(cr, known.clone(), 128.0f, Y.size(), bgCr);
    GridToPlane(cb, known, 128.0f, Y.size(), bgCb);
    if (levels != nullptr) *levels = page;
}

void GetGgFlagImage2(const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb, const cv::Mat& bgY,
                     const cv::Mat& bgCr, const cv::Mat& bgCb, cv::Mat& flag) {
    scrivo::pixel::CreateLarge(flag, Y.size(), CV_8UC1);
    for (int r = 0; r < Y.rows; ++r) {
        const uint8_t *y = Y.ptr<uint8_t>(r), *cr = Cr.ptr<uint8_t>(r), *cb = Cb.ptr<uint8_t>(r);
        const uint8_t *by = bgY.ptr<uint8_t>(r), *bcr = bgCr.ptr<uint8_t>(r);
        const uint8_t* bcb = bgCb.ptr<uint8_t>(r);
        uint8_t* f = flag.ptr<uint8_t>(r);
        for (int x = 0; x < Y.cols; ++x) {
            const bool paper = by[x] <= y[x] + 40 && std::abs(cr[x] - bcr[x]) <= 14 &&
                               std::abs(cb[x] - bcb[x]) <= 14;
            f[x] = paper ? 255 : 0;
        }
    }
}

void ComputeBackGround9(const cv::Mat& Y, const cv::Mat& flag, cv::Mat& background,
                        const cv::Mat& trusted, int level, int window) {
    background.create(Y.size(), CV_8UC1);
    if (cv::countNonZero(flag) == 0) {
        background.setTo(std::clamp(level, 0, 255));
        return;
    }
    const int W = Y.cols, H = Y.rows, reach = std::max(window, 1) / 2;
    const size_t side = static_cast<size_t>(2 * reach + 1);
    cv::Mat estimate(Y.size(), CV_32F, cv::Scalar(0.0f));
    cv::Mat known(Y.size(), CV_8UC1, cv::Scalar(0));
    std::vector<uint8_t> values;
    values.reserve(side * side);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            if (trusted.at<uint8_t>(y, x) == 0) continue;
            values.clear();
            for (int wy = std::max(y - reach, 0); wy <= std::min(y + reach, H - 1); ++wy) {
                const uint8_t* f = flag.ptr<uint8_t>(wy);
                const uint8_t* v = Y.ptr<uint8_t>(wy);
                for (int wx = std::max(x - reach, 0); wx <= std::min(x + reach, W - 1); ++wx) {
                    if (f[wx] != 0) values.push_back(v[wx]);
                }
            }
            // Paper surrounds itself: where flagged pixels are a minority the
            // flagged ones are more likely light parts of a picture.
            if (values.size() * 10 < side * side * 7) continue;
            const auto mid = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
            std::nth_element(values.begin(), mid, values.end());
            estimate.at<float>(y, x) = *mid;
            known.at<uint8_t>(y, x) = 255;
        }
    }
    if (!FillFromNeighbours(estimate, known)) estimate.setTo(static_cast<float>(level));
    cv::blur(estimate, estimate, cv::Size(3, 3), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    estimate.convertTo(background, CV_8U);
}

void MakeDivisionTable(int M, uint8_t* table) {
    for (int r = 0; r < 256; ++r) {
        uint8_t* row = table + r * 256;
        row[0] = 255;
        for (int b = 1; b < 256; ++b) row[b] = static_cast<uint8_t>(std::min(r * M / b, 255));
    }
}

int DeleteNonUniformIllumination5(cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb,
                                  const cv::Mat& bgY, const cv::Mat& bgCr, const cv::Mat& bgCb,
                                  const int32_t* A1, const int32_t* A2, int BX, int BY, int B) {
    (void)B;
    const int W = Y.cols, H = Y.rows;
    if (W < 1 || H < 1) return 0;
    const int L = std::max(W, H);
    const float s = static_cast<float>(L) / kWorkSide;
    cv::Size work(W, H);
    if (L >= kWorkSide + 1 && s > 1.0f) {
        work = W >= H ? cv::Size(kWorkSide, static_cast<int>(H / s))
                      : cv::Size(static_cast<int>(W / s), kWorkSide);
        work.width = std::max(work.width, 1);
        work.height = std::max(work.height, 1);
    }
    int64_t sum = 0, count = 0;
    for (int i = 0; i < BX * BY; ++i) {
        if (A1[i] < kBlockPicture) {
            sum += A2[i];
            ++count;
        }
    }
    const int M = static_cast<int>(sum / std::max<int64_t>(count, 1));

    cv::Mat small[6];
    const cv::Mat* planes[6] = {&Y, &Cr, &Cb, &bgY, &bgCr, &bgCb};
    for (int i = 0; i < 6; ++i) {
        cv::resize(*planes[i], small[i], work, 0.0, 0.0, cv::INTER_LINEAR);
    }
    cv::Mat flag, reduced;
    GetGgFlagImage2(small[0], small[1], small[2], small[3], small[4], small[5], flag);
    ComputeBackGround9(small[0], flag, reduced, flag, M, 7);

    std::vector<uint8_t> table(256 * 256);
    MakeDivisionTable(M, table.data());
    // The enlarged background is made one row at a time, as it is used.
    const LinearEnlarger enlarge(reduced, Y.size());
    std::vector<uint8_t> background(static_cast<size_t>(W));
    for (int r = 0; r + 1 < H; ++r) {
        enlarge.Row(r, background.data());
        uint8_t* y = Y.ptr<uint8_t>(r);
        const uint8_t* b = background.data();
        for (int x = 0; x + 1 < W; ++x) y[x] = table[(static_cast<size_t>(y[x]) << 8) | b[x]];
    }
    return 0;
}

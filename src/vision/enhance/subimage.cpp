// Block-wise tone mapping of the document route.
//
// Levels. From the luma of the page's blocks:
// - the paper histogram holds the pixels of paper blocks (or, with fewer
//   than four of those, the brighter half of the pixels of text blocks);
//   its median is the paper level and its 10th percentile the white point,
//   so nine in ten paper pixels end up white;
// - the ink level is the 3rd percentile of the pixels of text blocks (a
//   quarter of the paper level when the page has no text block).
// A page whose white point is less than 24 levels above its ink has
// nothing to map: the flattened route reports failure and the caller
// falls back to the global tables.
//
// Tables. Paper and text blocks (and the pixels right and below the last
// whole block) go through the document table: ink and darker to half of
// itself, the ink-to-white-point range linearly onto half the ink ... 250,
// and above the white point 250 ... 255. Picture blocks are only brought
// to the page's exposure (paper level to 250, linearly), keeping their
// tones.
//
// Chroma. The flattened route leaves chroma to the per-pixel step, which
// knows the local backgrounds. The evenly lit route does it here: pixels
// that end up bright (231 and above) within 12 of the paper's chroma turn
// neutral, and every other pixel's chroma is re-centred from the paper's
// chroma to neutral and saturated 1.5 times.
#include <algorithm>
#include <array>
#include <vector>

#include "vision/enhance/document.h"

namespace {

constexpr int kMinContrast = 24;

struct Histogram {
    std::array<int64_t, 256> count{};
    int64_t total = 0;

    void Add(int v) {
        ++count[v];
        ++total;
    }
    int Percentile(int percent) const {
        const int64_t target = total * percent / 100;
        int64_t sum = 0;
        for (int v = 0; v < 256; ++v) {
            sum += count[v];
            if (sum > target) return v;
        }
        return 255;
    }
};

struct ToneLevels {
    int ink = 0, paper = 0, white = 0;
    bool usable = false;
};

template <typename Visit>
void ForEachBlock(const cv::Mat& Y, int B, Visit visit) {
    const int BX = Y.cols / B, BY = Y.rows / B;
    for (int by = 0; by < BY; ++by) {
        for (int bx = 0; bx < BX; ++bx) visit(by * BX + bx, cv::Rect(bx * B, by * B, B, B));
    }
}

ToneLevels MeasureLevels(const cv::Mat& Y, const int32_t* A1, int B) {
    Histogram paper, text;
    int paperBlocks = 0;
    ForEachBlock(Y, B, [&](int i, cv::Rect r) {
        if (A1[i] == kBlockPicture) return;
        paperBlocks += A1[i] == kBlockPaper;
        Histogram& h = A1[i] == kBlockPaper ? paper : text;
        for (int y = r.y; y < r.br().y; ++y) {
            const uint8_t* p = Y.ptr<uint8_t>(y) + r.x;
            for (int x = 0; x < r.width; ++x) h.Add(p[x]);
        }
    });
    // Too few paper blocks (a dense page in large blocks): the paper is the
    // brighter half of the text blocks.
    Histogram brighterHalf;
    if (paperBlocks < 4 && text.total > 0) {
        for (int v = text.Percentile(50); v < 256; ++v) {
            brighterHalf.count[v] = text.count[v];
            brighterHalf.total += text.count[v];
        }
    }
    const Histogram& page = paperBlocks >= 4 ? paper : brighterHalf;
    ToneLevels t;
    if (page.total == 0) return t;
    t.paper = page.Percentile(50);
    t.white = page.Percentile(10);
    t.ink = text.total > 0 ? text.Percentile(3) : t.paper / 4;
    t.usable = t.white - t.ink >= kMinContrast;
    return t;
}

std::array<uint8_t, 256> DocumentTable(const ToneLevels& t) {
    std::array<uint8_t, 256> table{};
    const double inkTo = t.ink / 2.0;
    for (int v = 0; v < 256; ++v) {
        double out;
        if (v <= t.ink) {
            out = v / 2.0;
        } else if (v < t.white) {
            out = inkTo + (v - t.ink) * (250.0 - inkTo) / (t.white - t.ink);
        } else {
            out = 250.0 + (v - t.white) * 5.0 / std::max(255 - t.white, 1);
        }
        table[v] = static_cast<uint8_t>(std::clamp(out + 0.5, 0.0, 255.0));
    }
    return table;
}

std::array<uint8_t, 256> PictureTable(const ToneLevels& t) {
    std::array<uint8_t, 256> table{};
    for (int v = 0; v < 256; ++v) {
        table[v] = static_cast<uint8_t>(std::min(v * 250 / std::max(t.paper, 1), 255));
    }
    return table;
}

void MapRect(cv::Mat& Y, cv::Rect r, const std::array<uint8_t, 256>& table) {
    for (int y = r.y; y < r.br().y; ++y) {
        uint8_t* p = Y.ptr<uint8_t>(y) + r.x;
        for (int x = 0; x < r.width; ++x) p[x] = table[p[x]];
    }
}

void ToneMap(cv::Mat& Y, const int32_t* A1, int B, const ToneLevels& t, int32_t pictures) {
    const std::array<uint8_t, 256> document = DocumentTable(t);
    const std::array<uint8_t, 256> picture = PictureTable(t);
    ForEachBlock(Y, B, [&](int i, cv::Rect r) {
        MapRect(Y, r, pictures > 0 && A1[i] == kBlockPicture ? picture : document);
    });
    const int coveredW = Y.cols / B * B, coveredH = Y.rows / B * B;
    MapRect(Y, cv::Rect(coveredW, 0, Y.cols - coveredW, coveredH), document);
    MapRect(Y, cv::Rect(0, coveredH, Y.cols, Y.rows - coveredH), document);
}

// The median chroma of the paper pixels (within 10 of the paper level).
std::pair<int, int> PaperChroma(const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb,
                                const ToneLevels& t) {
    Histogram cr, cb;
    for (int y = 0; y < Y.rows; y += 2) {
        const uint8_t *py = Y.ptr<uint8_t>(y), *pr = Cr.ptr<uint8_t>(y), *pb = Cb.ptr<uint8_t>(y);
        for (int x = 0; x < Y.cols; x += 2) {
            if (std::abs(py[x] - t.paper) > 10) continue;
            cr.Add(pr[x]);
            cb.Add(pb[x]);
        }
    }
    if (cr.total == 0) return {128, 128};
    return {cr.Percentile(50), cb.Percentile(50)};
}

}  // namespace

void EnhanceSubImageHighYUB2(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, const int32_t* A1,
                             const int32_t* A2, int32_t C2, int32_t C3, int B, char* text) {
    (void)text;
    (void)A2;
    (void)C2;
    const ToneLevels t = MeasureLevels(Y, A1, B);
    if (!t.usable) return;
    const auto [paperCr, paperCb] = PaperChroma(Y, Cr, Cb, t);
    ToneMap(Y, A1, B, t, C3);
    for (int y = 0; y < Y.rows; ++y) {
        const uint8_t* py = Y.ptr<uint8_t>(y);
        uint8_t *pr = Cr.ptr<uint8_t>(y), *pb = Cb.ptr<uint8_t>(y);
        for (int x = 0; x < Y.cols; ++x) {
            const int dr = pr[x] - paperCr, db = pb[x] - paperCb;
            if (py[x] >= 231 && std::abs(dr) <= 12 && std::abs(db) <= 12) {
                pr[x] = pb[x] = 128;
            } else {
                pr[x] = static_cast<uint8_t>(std::clamp(128 + dr * 3 / 2, 0, 255));
                pb[x] = static_cast<uint8_t>(std::clamp(128 + db * 3 / 2, 0, 255));
            }
        }
    }
}

int EnhanceSubImageHighYUB9(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, const int32_t* A1,
                            const int32_t* A2, int32_t C2, int32_t C3, int32_t L1, int32_t L2,
                            int B, int32_t C1, char* text, int32_t* L3, int32_t* L4) {
    (void)Cr;
    (void)Cb;
    (void)L1;
    (void)L2;
    (void)text;
    (void)A2;
    if (C1 + C2 == 0) return 0;
    const ToneLevels t = MeasureLevels(Y, A1, B);
    if (!t.usable) return 0;
    ToneMap(Y, A1, B, t, C3);
    if (L3 != nullptr) *L3 = t.ink;
    if (L4 != nullptr) *L4 = t.paper;
    return 1;
}

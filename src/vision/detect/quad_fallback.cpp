// Fall-back searches of pass 1 for pages that touch or cross the image
// border, so that one, two or three of their sides were never seen as lines.
//
// The missing sides are the image border lines (GetImageBorderLine: the
// first or last row or column, end to end). Candidates are built from found
// lines plus border lines and must:
// - be legal, of plausible side ratios and with corner angles in
//   [62.5, 125] degrees (the four-line searches' tests);
// - cover at least 8 % of the image (the smallest page of pass 0);
// - touch the border they borrow: every found line that meets a borrowed
//   border must reach it, its nearer end lying within 15 % of the image
//   side from it (a page whose side was simply missed mid-image must not be
//   closed by the frame);
// - be supported: the found sides covered at least 60 % on average by their
//   lines, and each found line of known contrast at least 10 (the sum of the
//   three channel steps across it), so that texture and shadows do not make
//   pages;
// - stand out: the inside along the borders differs from the outside by at
//   least 24 (outer energy, summed over the channels) and by at least twice
//   the spread of the inside (inner energy), as a sheet on a table does and
//   a patch of patterned cloth does not.
// Survivors are scored with the four-line energies and the highest score
// wins (ties to the first found). With three lines the missing side may be
// any of the four; with two lines they are the two verticals (page across
// the top and bottom) or the two horizontals (across left and right); one
// line is closed by three borders.
#include <cmath>
#include <memory>
#include <vector>

#include "vision/detect/quad_internal.h"

namespace {

struct LineDeleter {
    void operator()(tem_Line* l) const { DeleteLine(l); }
};
using LinePtr = std::unique_ptr<tem_Line, LineDeleter>;

constexpr double kReachShare = 0.15;
constexpr double kMinFoundFill = 0.6;
constexpr int kMinContrast = 10;
constexpr int kMaxLinesPerSet = 40;
constexpr int32_t kMinOuterEnergy = 24;

std::vector<tem_Line*> FirstLines(const temp_LineSet* set) {
    std::vector<tem_Line*> lines;
    for (tem_Line* l = set ? set->head : nullptr; l && lines.size() < kMaxLinesPerSet; l = l->next)
        lines.push_back(l);
    return lines;
}

class FallbackSearch {
  public:
    FallbackSearch(tagNoteDetector* detector, const cv::Mat& image)
        : detector_(detector), w_(image.cols), h_(image.rows) {
        for (int b = 0; b < 4; ++b)
            border_[b].reset(GetImageBorderLine(w_, h_, static_cast<ImageBorder>(b)));
    }

    bool Ready() const {
        return w_ > 0 && h_ > 0 && border_[0] && border_[1] && border_[2] && border_[3];
    }
    tem_Line* Border(ImageBorder b) const { return border_[b].get(); }

    // Scores one candidate (top, bottom, left, right; border lines allowed).
    void Try(tem_Line* top, tem_Line* bottom, tem_Line* left, tem_Line* right) {
        tagQuadrangle q{};
        if (!FillQuadrangle(top, bottom, left, right, &q) || !JudgeQuadragleByEdgeRatio(&q)) return;
        if (!CheckQuadrangleAngle(q.left, q.right, q.top, q.bottom)) return;
        if (q.area < kMinPageAreaShare * w_ * h_) return;
        tem_Line* sides[4] = {q.left, q.right, q.top, q.bottom};
        for (tem_Line* s : sides) {
            if (IsBorder(s)) continue;
            const int diff = QvVP_GetLineDiff(s);
            if (diff != -1 && diff < kMinContrast) return;
            if (!ReachesBorrowedBorders(q, s)) return;
        }
        QvVP_SimilarityOfQuad(detector_, &q);
        const double fills[4] = {q.fillLeft, q.fillRight, q.fillTop, q.fillBottom};
        double found = 0.0;
        int count = 0;
        for (int k = 0; k < 4; ++k) {
            if (IsBorder(sides[k])) continue;
            found += fills[k];
            ++count;
        }
        if (count == 0 || found / count < kMinFoundFill || !std::isfinite(q.score)) return;
        if (q.outerEnergy == kNoEnergy || q.outerEnergy < kMinOuterEnergy ||
            q.outerEnergy < 2 * q.innerEnergy)
            return;
        if (!has_best_ || q.score > best_.score) {
            best_ = q;
            has_best_ = true;
        }
    }

    int Result(tem_Point corners[4]) const {
        if (!has_best_ || !corners) return 0;
        for (int k = 0; k < 4; ++k) corners[k] = best_.corners[k];
        return 1;
    }

  private:
    bool IsBorder(const tem_Line* l) const {
        for (const LinePtr& b : border_)
            if (b.get() == l) return true;
        return false;
    }

    // A found side next to a borrowed border must run up to that border.
    bool ReachesBorrowedBorders(const tagQuadrangle& q, const tem_Line* s) const {
        tem_Point e1, e2;
        GetLineEndPoint(s, &e1, &e2);
        const bool vertical = s == q.left || s == q.right;
        const tem_Line* neighbours[2] = {vertical ? q.top : q.left, vertical ? q.bottom : q.right};
        for (const tem_Line* n : neighbours) {
            if (!IsBorder(n)) continue;
            double gap;
            if (n == Border(kBorderTop))
                gap = std::fmin(e1.y, e2.y);
            else if (n == Border(kBorderBottom))
                gap = h_ - 1 - std::fmax(e1.y, e2.y);
            else if (n == Border(kBorderLeft))
                gap = std::fmin(e1.x, e2.x);
            else
                gap = w_ - 1 - std::fmax(e1.x, e2.x);
            const double side = n == Border(kBorderTop) || n == Border(kBorderBottom) ? h_ : w_;
            if (gap > kReachShare * side) return false;
        }
        return true;
    }

    tagNoteDetector* detector_;
    int32_t w_, h_;
    LinePtr border_[4];
    tagQuadrangle best_{};
    bool has_best_ = false;
};

bool HorizontalPairUsable(const tem_Line* hi, const tem_Line* hj, int32_t w, int32_t h) {
    tem_Point cross;
    if (GetIntersectionPoint(hi, hj, &cross) && cross.x > 0 && cross.x < w && cross.y >= 0 &&
        cross.y < h)
        return false;
    return Line2LineDistanceX2(hi, hj) >= 0.15 * h;
}

}  // namespace

tem_Line* GetImageBorderLine(int32_t width, int32_t height, ImageBorder which) {
    if (width <= 0 || height <= 0) return nullptr;
    const int32_t r = width - 1, b = height - 1;
    tem_Point p{0, 0}, q{0, 0};
    switch (which) {
        case kBorderTop:
            q = {r, 0};
            break;
        case kBorderBottom:
            p = {0, b};
            q = {r, b};
            break;
        case kBorderLeft:
            q = {0, b};
            break;
        case kBorderRight:
            p = {r, 0};
            q = {r, b};
            break;
    }
    tem_Line* line = MakeLineFromEndPoints(p, q);
    if (line) line->orientation = which == kBorderLeft || which == kBorderRight ? 1 : 0;
    return line;
}

int FindSquareAreaWith3Edge(tagNoteDetector* detector, const cv::Mat& workImage,
                            temp_LineSet* horizontal, temp_LineSet* vertical, tem_Point corners[4],
                            unsigned char* flags) {
    (void)flags;
    FallbackSearch search(detector, workImage);
    if (!search.Ready()) return 0;
    const std::vector<tem_Line*> hs = FirstLines(horizontal), vs = FirstLines(vertical);
    const int32_t w = workImage.cols, h = workImage.rows;
    for (size_t i = 0; i < vs.size(); ++i) {
        for (size_t j = i + 1; j < vs.size(); ++j) {
            if (!VerticalPairUsable(vs[i], vs[j], w, h)) continue;
            for (tem_Line* line : hs) {
                search.Try(line, search.Border(kBorderBottom), vs[i], vs[j]);
                search.Try(search.Border(kBorderTop), line, vs[i], vs[j]);
            }
        }
    }
    for (size_t i = 0; i < hs.size(); ++i) {
        for (size_t j = i + 1; j < hs.size(); ++j) {
            if (!HorizontalPairUsable(hs[i], hs[j], w, h)) continue;
            for (tem_Line* line : vs) {
                search.Try(hs[i], hs[j], line, search.Border(kBorderRight));
                search.Try(hs[i], hs[j], search.Border(kBorderLeft), line);
            }
        }
    }
    return search.Result(corners);
}

int FindSquareAreaWith2VerticalLine(tagNoteDetector* detector, const cv::Mat& workImage,
                                    temp_LineSet* horizontal, temp_LineSet* vertical,
                                    tem_Point corners[4], unsigned char* flags) {
    (void)flags;
    (void)horizontal;
    FallbackSearch search(detector, workImage);
    if (!search.Ready()) return 0;
    const std::vector<tem_Line*> vs = FirstLines(vertical);
    for (size_t i = 0; i < vs.size(); ++i) {
        for (size_t j = i + 1; j < vs.size(); ++j) {
            if (!VerticalPairUsable(vs[i], vs[j], workImage.cols, workImage.rows)) continue;
            search.Try(search.Border(kBorderTop), search.Border(kBorderBottom), vs[i], vs[j]);
        }
    }
    return search.Result(corners);
}

int FindSquareAreaWith2ParallelLine(tagNoteDetector* detector, const cv::Mat& workImage,
                                    temp_LineSet* horizontal, temp_LineSet* vertical,
                                    tem_Point corners[4], unsigned char* flags) {
    (void)flags;
    (void)vertical;
    FallbackSearch search(detector, workImage);
    if (!search.Ready()) return 0;
    const std::vector<tem_Line*> hs = FirstLines(horizontal);
    for (size_t i = 0; i < hs.size(); ++i) {
        for (size_t j = i + 1; j < hs.size(); ++j) {
            if (!HorizontalPairUsable(hs[i], hs[j], workImage.cols, workImage.rows)) continue;
            search.Try(hs[i], hs[j], search.Border(kBorderLeft), search.Border(kBorderRight));
        }
    }
    return search.Result(corners);
}

int FindSquareAreaWith1Line(tagNoteDetector* detector, const cv::Mat& workImage,
                            temp_LineSet* horizontal, temp_LineSet* vertical,
                            tem_Point corners[4]) {
    FallbackSearch search(detector, workImage);
    if (!search.Ready()) return 0;
    tem_Line* top = search.Border(kBorderTop);
    tem_Line* bottom = search.Border(kBorderBottom);
    tem_Line* left = search.Border(kBorderLeft);
    tem_Line* right = search.Border(kBorderRight);
    for (tem_Line* line : FirstLines(horizontal)) {
        search.Try(line, bottom, left, right);
        search.Try(top, line, left, right);
    }
    for (tem_Line* line : FirstLines(vertical)) {
        search.Try(top, bottom, line, right);
        search.Try(top, bottom, left, line);
    }
    return search.Result(corners);
}

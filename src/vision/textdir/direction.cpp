// The text-direction decision on a page.
//
//   1. The page is brought to the working size and its text blocks found
//      (text_block_finder.cpp). Fewer than kMinBlocks blocks: no text to go
//      by, the answer is "cannot tell" with no turn.
//   2. The ink of the blocks gives the lines' axis (line_evidence.cpp). A
//      log run-length ratio within +-kAxisThreshold means no direction
//      stands out (a picture, a scatter of marks): "cannot tell".
//   3. The mask is turned a quarter clockwise when the lines run down, so
//      that they run across, levelled when they slant a little
//      (line_slant.cpp), and the up/down evidence measured. Its sign
//      picks between the two remaining turns; it counts as told
//      (TextConfidence::kFull) when at least kMinPieces stretches of line
//      carried evidence and the mean stands kSureZ standard errors clear of
//      zero. Otherwise the sign is still the better guess and is taken,
//      with TextConfidence::kAxis: a page whose lines run down is better
//      turned so that they run across, and one whose lines run across is
//      left alone or flipped by the weak evidence rather than kept blindly.
//
// The modes narrow what may be chosen: kTextTurnKeep measures nothing and
// keeps the page; kTextTurnFlipOnly takes the page to be upright or upside
// down and answers "cannot tell" when its lines clearly run down; any other
// value than the three modes is refused ("cannot tell").
//
// Every threshold is a ratio or a statistic, not a pixel count, except the
// block count; they were set on generated pages of documents, letters,
// receipts and index cards and on photographs of them.
#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

#include "vision/textdir/textdir.h"

namespace {

constexpr int32_t kMinBlocks = 8;
constexpr int32_t kMinWorkingSide = 32;
constexpr double kAxisThreshold = 0.3;
constexpr double kBridgePerTextSize = 0.5;
constexpr int32_t kMinPieces = 4;
constexpr double kSureZ = 2.0;

}  // namespace

TextDirection DecideTextDirection(const cv::Mat& page, int32_t mode) {
    TextDirection d;
    if (mode != kTextTurnFlipOnly && mode != kTextTurnAny) return d;
    const cv::Mat grey = MakeTextWorkingImage(page);
    if (grey.empty() || std::min(grey.cols, grey.rows) < kMinWorkingSide) return d;
    const std::vector<VpRect> blocks = FindTextBlocks(grey);
    d.blocks = static_cast<int32_t>(blocks.size());
    if (d.blocks < kMinBlocks) return d;

    const cv::Mat ink = MakeTextInkMask(grey, blocks);
    const int32_t gap = std::max(
        2, static_cast<int32_t>(std::lround(kBridgePerTextSize * TypicalTextSize(blocks))));
    d.axisScore = MeasureLineAxis(ink, gap);
    if (std::abs(d.axisScore) < kAxisThreshold) return d;
    const bool down = d.axisScore < 0.0;
    if (down && mode == kTextTurnFlipOnly) return d;

    cv::Mat across;
    if (down) {
        cv::rotate(ink, across, cv::ROTATE_90_CLOCKWISE);
    } else {
        across = ink;
    }
    d.slant = EstimateLineSlant(across);
    const UpDownEvidence e = MeasureUpDown(LevelLines(across, d.slant), gap);
    d.upScore = e.z;
    d.lines = e.pieces;
    const bool upright = e.mean >= 0.0;
    d.turn = down ? (upright ? 1 : 3) : (upright ? 0 : 2);
    d.confidence = (e.pieces >= kMinPieces && std::abs(e.z) >= kSureZ) ? TextConfidence::kFull
                                                                       : TextConfidence::kAxis;
    return d;
}

// Text direction: finds the blocks of text on a page, tells whether its
// lines run across the page or down it and which way up it is, and turns
// that into a rectification that delivers the page upright.
//
// A turn is counted in clockwise quarter turns, 0..3: the turn that, applied
// to the page as it was given, makes its text upright.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "scrivo/engine.h"
#include "vision/enhance/text_blocks.h"

// How much of the direction was told.
enum class TextConfidence {
    kNone,  // no text lines found, or no axis stands out: nothing turned
    kAxis,  // the lines' axis is clear; which way up is the better guess only
    kFull,  // the axis and which way up are both clear
};

// What the decision may choose (the direction hint of the rectify functions).
enum TextTurnMode : int32_t {
    kTextTurnKeep = 0,      // no turn: the page stays as given, nothing is measured
    kTextTurnFlipOnly = 1,  // the page is taken to be upright or upside down: 0 or 2
    kTextTurnAny = 2,       // any of the four turns
};

struct TextDirection {
    int32_t turn = 0;  // clockwise quarter turns that make the text upright
    TextConfidence confidence = TextConfidence::kNone;
    double axisScore = 0.0;  // > 0: lines run across the page (see line_evidence.cpp)
    double upScore = 0.0;    // > 0: upright once the lines run across (see line_evidence.cpp)
    double slant = 0.0;      // degrees the lines were levelled by (see line_slant.cpp)
    int32_t blocks = 0;      // text blocks found
    int32_t lines = 0;       // line pieces that carried up/down evidence
};

// The page as the decision looks at it: grey, its longer side brought to
// kTextWorkingSide (enlarged at most twice). `scale` is working / page.
constexpr int32_t kTextWorkingSide = 1600;
cv::Mat MakeTextWorkingImage(const cv::Mat& page, double* scale = nullptr);

// Text blocks of a grey working image: bounding boxes of edge clusters that
// pass the enhancement's text-block tests (JudgeByRectSize,
// JudgeByEdgeContrast with both contrast tests).
std::vector<VpRect> FindTextBlocks(const cv::Mat& grey);
// The ink of the blocks (255) on a cleared mask of the image's size: each
// block is binarised on its own by Otsu's method, and the tone that does
// not touch its border is the ink, so light print on a dark band counts too.
cv::Mat MakeTextInkMask(const cv::Mat& grey, const std::vector<VpRect>& blocks);
// Typical text size in pixels: the median of the blocks' shorter sides
// (0 without blocks).
double TypicalTextSize(const std::vector<VpRect>& blocks);

// Log ratio of the ink's run lengths along rows and along columns, gaps up to
// `gap` pixels bridged: positive when the text lines run across.
double MeasureLineAxis(const cv::Mat& ink, int32_t gap);

// Slant of lines running across, in degrees within +-8: positive when they
// fall to the right, so that turning the mask that far counter-clockwise
// levels them (LevelLines; slants under 0.3 degrees are left as they are).
double EstimateLineSlant(const cv::Mat& ink);
cv::Mat LevelLines(const cv::Mat& ink, double degrees);

struct UpDownEvidence {
    double mean = 0.0;  // mean evidence of the line pieces: > 0 upright
    double z = 0.0;     // mean over its standard error
    int32_t pieces = 0;
};
// Up/down evidence of an ink mask whose lines run across.
UpDownEvidence MeasureUpDown(const cv::Mat& ink, int32_t gap);

// The decision on a page (1 or 3 channels, any size).
TextDirection DecideTextDirection(const cv::Mat& page, int32_t mode = kTextTurnAny);

// Matrix (3 x 3, CV_64F) that turns a w x h frame by `turn` clockwise
// quarter turns onto the turned frame (h x w for odd turns), corners onto
// corners.
cv::Mat TextTurnMatrix(int32_t turn, int32_t w, int32_t h);
// quadOut[i] = quad[(i + turn) % 4]: the same corners, starting from the one
// that becomes the top-left of the turned page.
void TurnQuadrangle(const tagVPPoint quad[4], int32_t turn, tagVPPoint quadOut[4]);

// The rectifications that deliver the page upright. Both write a matrix
// mapping photograph coordinates onto the upright page, its width and
// height, and the quadrangles (see rectify_direction.cpp for what they hold
// and return). `decided` receives the decision when not null.
int GetRectifyDirectionAndSize(const cv::Mat& source, cv::Mat* matrix, int32_t* width,
                               int32_t* height, tagVPPoint quadA[4], tagVPPoint quadB[4],
                               int32_t hint, TextDirection* decided = nullptr);
int GetRectifyDirectionAndSizeWithVertex(const cv::Mat& source, const tagVPPoint quad[4],
                                         tagVPPoint quadOut[4], int32_t mode, cv::Mat* matrix,
                                         int32_t* width, int32_t* height,
                                         TextDirection* decided = nullptr);

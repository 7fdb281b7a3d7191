// Page detection internals: the detector state, edge preparation, line
// extraction and clean-up, and the quadrangle searches and scoring.
//
// All coordinates are pixels of the work image (the photograph reduced so
// that its longer side is at most 2048) unless a function says otherwise.
// Line sets and lines are the records of geometry.h; the images are 8-bit
// OpenCV matrices (colour in BGR order).
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/detect/geometry.h"

// ---------------------------------------------------------------------------
// Detector state (one per detection call).
// ---------------------------------------------------------------------------

struct tagNoteDetector {
    const cv::Mat* source = nullptr;  // the work image, not owned
    int32_t width = 0;
    int32_t height = 0;
    float scale = 0.0f;  // reduction factor of the current pass
    cv::Mat gray;        // reduced grey image of the current pass
    int32_t grayWidth = 0;
    int32_t grayHeight = 0;
    float halfScale = 0.0f;  // 16 when `half` was halved, else 1 (a marker only)
    cv::Mat half;            // colour copy of the reduced image, halved when both sides > 32
    int32_t halfWidth = 0;
    int32_t halfHeight = 0;
    cv::Mat cb, cr, y;       // YCrCb planes of the reduced image
    cv::Mat cbEdge, crEdge;  // cleaned chroma Canny edges
    // When set, the four-line searches add the corners of every legal
    // candidate they scored, so that a later stage can weigh them too.
    std::vector<std::array<tem_Point, 4>>* candidates = nullptr;
};

void InitiNoteDetector(tagNoteDetector* detector);
void ReleaseNoteDetector(tagNoteDetector* detector);

// Canny threshold pairs of the two passes and the minimum page area share.
constexpr int kPassCannyHigh[2] = {100, 60};
constexpr int kPassCannyLow[2] = {40, 20};
constexpr double kMinPageAreaShare = 0.08;

// The driver's last step on a page found by a search: an illegal quadrangle
// gives the whole image, 0 and edge count 0; a legal one whose top-right
// corner has x = 0 gives the whole image with 1; otherwise the found corners
// and 1.
int SettleQuadrangle(const tem_Point found[4], int32_t width, int32_t height, tem_Point corners[4],
                     int* edgeCount);
// GetQuotationSheetEdge that also reports the pass (0 or 1) whose search
// found the page, or -1, and (when `candidates` is set) hands over every
// legal candidate its four-line searches scored.
int DetectPageWithPass(const cv::Mat& image, unsigned char* flags, tem_Point corners[4],
                       int* edgeCount, int* passOut,
                       std::vector<std::array<tem_Point, 4>>* candidates = nullptr);

// ---------------------------------------------------------------------------
// Reduction and edge preparation.
// ---------------------------------------------------------------------------

// Builds the reduced images of one pass (gray, half, y/cr/cb) and returns the
// grey image; writes the reduction factor to *scaleOut.
cv::Mat GetResizedGrayImage(tagNoteDetector* detector, const cv::Mat& image, float* scaleOut,
                            int pass);
int QvVP_SplitYCrCb(tagNoteDetector* detector, const cv::Mat& reducedColour);
void QvVP_GetCbCrCannyEdge(tagNoteDetector* detector);
void QvVP_GetCannyCb(tagNoteDetector* detector);
void QvVP_GetCannyCr(tagNoteDetector* detector);
// Adaptive thresholds from 16-bit signed derivatives of a chroma plane.
void QvVP_GetCannyTH_Cb(const cv::Mat& dx, const cv::Mat& dy, int* high, int* low);
void QvVP_GetCannyTH_Cr(const cv::Mat& dx, const cv::Mat& dy, int* high, int* low);
// Canny on an 8-bit single-channel image (Sobel aperture 3 derivatives).
void QvVP_Canny(const cv::Mat& src, cv::Mat& dst, double low, double high);
// Canny non-maximum suppression and hysteresis on supplied CV_16S derivatives.
void QvVP_InternalCanny(const cv::Mat& src, cv::Mat& dst, double low, double high, int aperture,
                        const cv::Mat& dx, const cv::Mat& dy);
void DeleteSmallCC(cv::Mat& edges, int size);
void DeleteSmallCC2(cv::Mat& edges, int minSize);
void DeleteSmallCC3(const cv::Mat& before, cv::Mat& edges, int maxSize);
void CombineTowChannelEdge(cv::Mat& edges, const cv::Mat& channelEdges);
void ComputeCombineMask(const cv::Mat& edges, cv::Mat& mask);  // CV_8U, 1 or 0
void BinaryImageWithThreshold(const cv::Mat& src, cv::Mat& dst, int threshold);

// ---------------------------------------------------------------------------
// Line extraction.
// ---------------------------------------------------------------------------

struct HoughSegment {
    int32_t x1, y1, x2, y2;
};

// Progressive probabilistic Hough transform on a binary 8-bit edge map
// (non-zero = edge). rho in pixels, theta in radians.
std::vector<HoughSegment> QvVP_HoughLines(const cv::Mat& edges, double rho, double theta,
                                          int threshold, int minLineLength, int maxLineGap);

// Edge preparation followed by the Hough transform and the line clean-up;
// fills the two sets (work-image coordinates).
void GetImageQuationLine(tagNoteDetector* detector, const cv::Mat& workImage, const cv::Mat& grey,
                         float scale, unsigned char* flags, temp_LineSet* horizontal,
                         temp_LineSet* vertical, int high, int low, int pass);
// `fullEdges`: the dilated edge map at work-image size, binary 0/255.
void GetLineFromHoughList2(const cv::Mat& fullEdges, const std::vector<HoughSegment>& segments,
                           float scale, temp_LineSet* horizontal, temp_LineSet* vertical, int pass);

// A detector line through two end points (CalLine coefficients, a point set
// of exactly these two points); null when memory is short.
tem_Line* MakeLineFromEndPoints(tem_Point first, tem_Point second);

// ---------------------------------------------------------------------------
// Line filtering and merging.
// ---------------------------------------------------------------------------

void DeleteShortLine(const cv::Mat& edges, temp_LineSet* set, double minLength);
void CombineSimiliarLine4(const cv::Mat& edges, temp_LineSet* set, const temp_LineSet* otherSet,
                          int width, int height);
// 0 keep apart, 1 merge, 2 l1 inside l2 and markedly shorter, 3 the reverse.
int IfTwoLineCombineTogether4(const cv::Mat& edges, const tem_Line* l1, const tem_Line* l2,
                              const temp_LineSet* set, const temp_LineSet* otherSet,
                              double angleTolerance, double distanceTolerance, double gapTolerance);
bool Is2LineCanBeCombineByAngleAndDist(const tem_Line* l1, const tem_Line* l2,
                                       double angleTolerance, double distanceTolerance);
int TestTwoPointOnSameEdge(const cv::Mat& edges, tem_Point p, tem_Point q);
void ExtendLineSetOnEdge(const cv::Mat& edges, temp_LineSet* set);
void ExtendLineOnEdge(const cv::Mat& edges, tem_Line* line);
void CombineSimiliarLine5(const cv::Mat& edges, temp_LineSet* set, const temp_LineSet* otherSet,
                          int width, int height);
// Reduces every line to two ordered end points and sets orientation,
// length, angle, filter counters and side statistics (QvVP_CalculateAver8).
void QvVP_AdjustAllLine(const tagNoteDetector* detector, temp_LineSet* horizontal,
                        temp_LineSet* vertical);

// ---------------------------------------------------------------------------
// Side statistics (read from the detector's half image).
// ---------------------------------------------------------------------------

void QvVP_CalculateAver16(const tagNoteDetector* detector, tem_Line* line);
void QvVP_CalculateAver8(const tagNoteDetector* detector, tem_Line* line);

// ---------------------------------------------------------------------------
// Quadrangle scoring and search.
// ---------------------------------------------------------------------------

int GetSequenceVertxt(const tem_Line* l0, const tem_Line* l1, const tem_Line* l2,
                      const tem_Line* l3, tem_Point corners[4]);
// Fills corners, border lines, area and the legal flag; returns the flag.
int FillQuadrangle(tem_Line* l0, tem_Line* l1, tem_Line* l2, tem_Line* l3, tagQuadrangle* quad);
int QvVP_SimilarityOfQuad(const tagNoteDetector* detector, tagQuadrangle* quad);
int CheckQuadrangleAngle(const tem_Line* vi, const tem_Line* vj, const tem_Line* top,
                         const tem_Line* bottom);
int CheckQuadrangleEdgeRatio(const tem_Line* vi, const tem_Line* vj, const tem_Line* top,
                             const tem_Line* bottom);
int QvVP_GetLineDiff(const tem_Line* line);
int QvVP_GetThresholdOfDiff(const tem_Line* l1, const tem_Line* l2);

// Four-line searches of pass 0 and pass 1, and the fall-backs of pass 1.
// Each returns non-zero and fills corners (top-left, bottom-left,
// bottom-right, top-right) when it finds a page.
int FindSquareArea6(tagNoteDetector* detector, const cv::Mat& workImage, temp_LineSet* horizontal,
                    temp_LineSet* vertical, tem_Point corners[4], unsigned char* flags);
int FindSquareArea7(tagNoteDetector* detector, const cv::Mat& workImage, temp_LineSet* horizontal,
                    temp_LineSet* vertical, tem_Point corners[4], unsigned char* flags);
int FindSquareAreaWith3Edge(tagNoteDetector* detector, const cv::Mat& workImage,
                            temp_LineSet* horizontal, temp_LineSet* vertical, tem_Point corners[4],
                            unsigned char* flags);
int FindSquareAreaWith2VerticalLine(tagNoteDetector* detector, const cv::Mat& workImage,
                                    temp_LineSet* horizontal, temp_LineSet* vertical,
                                    tem_Point corners[4], unsigned char* flags);
int FindSquareAreaWith2ParallelLine(tagNoteDetector* detector, const cv::Mat& workImage,
                                    temp_LineSet* horizontal, temp_LineSet* vertical,
                                    tem_Point corners[4], unsigned char* flags);
int FindSquareAreaWith1Line(tagNoteDetector* detector, const cv::Mat& workImage,
                            temp_LineSet* horizontal, temp_LineSet* vertical, tem_Point corners[4]);

// Quadrangle scoring and search internals shared by the search files and
// their tests: the side sampler, the six energies and the helpers of the
// four-line and fall-back searches.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/detect/detector_internal.h"
#include "vision/detect/geometry.h"

// Marks an energy that could not be computed.
constexpr int32_t kNoEnergy = 0xFFFFFF;

// Vertex types written by SetQuardrangleVertexType.
enum : int32_t { kVertexInside = 0, kVertexOnBorder = 1, kVertexOutside = 2 };

// ---------------------------------------------------------------------------
// Side statistics.
// ---------------------------------------------------------------------------

// Running sums of one line side.
struct SideAccumulator {
    int64_t sum[3];
    int32_t count;
};

// Adds the half-image pixels at sample - offset (side A) and sample + offset
// (side B); a pixel outside the image is skipped for its side.
void QvVP_GetAverGrey(const cv::Mat& half, int32_t x, int32_t y, int32_t ox, int32_t oy,
                      SideAccumulator* sideA, SideAccumulator* sideB);

// ---------------------------------------------------------------------------
// Scoring.
// ---------------------------------------------------------------------------

int QvVP_CreateFullQaudLine(const tagNoteDetector* detector, tagQuadrangle* quad);
void QvVP_DeleteFullQaudLine(tagQuadrangle* quad);
int32_t QvVP_GetInnerEnergy(tagQuadrangle* quad);
int32_t QvVP_GetOuterEnergy(tagQuadrangle* quad);
int32_t QvVP_GetColorChangeEnergy(tagQuadrangle* quad);
double QvVP_GetEdgeSimilarEnergy(tagQuadrangle* quad);
int32_t QvVP_GetEdgeShapeEnergy(tagQuadrangle* quad);
double QvVP_GetEdgeFillEnergy2(tagQuadrangle* quad, VpSize size);

// ---------------------------------------------------------------------------
// Search helpers (quad_helpers.cpp).
// ---------------------------------------------------------------------------

// Whether two vertical lines may be a page's left and right sides: they do
// not cross inside the image and lie at least 0.2 W apart.
bool VerticalPairUsable(const tem_Line* vi, const tem_Line* vj, int32_t width, int32_t height);
// Mean distance of the end points of each line to the other line.
double Line2LineDistanceX2(const tem_Line* l1, const tem_Line* l2);
// Overlap of the two segments along l1's main axis, measured along l1.
double CoLength4(const tem_Line* l1, const tem_Line* l2);

// Everything the candidate tests of one search need to know.
struct QuadSearchContext {
    const tagNoteDetector* detector;
    int32_t width;
    int32_t height;
    std::vector<tagQuadrangle>* candidates;
    size_t capacity;  // 4 * horizontal count * vertical count
};

// Steps 9 to 12 of the candidate test for one (vi, vj, top, bottom); appends
// the candidate and returns 1 when it is kept.
int TryAddQuadCandidate(QuadSearchContext* ctx, tem_Line* vi, tem_Line* vj, tem_Line* top,
                        tem_Line* bottom);
// Adds candidates for the pair whose corners are "full angles" (both lines
// end near the corner) at three or four corners; returns how many it added.
int FindThreeFullAngleQuardrangle(QuadSearchContext* ctx, const temp_LineSet* horizontal,
                                  tem_Line* vi, tem_Line* vj);
// Picks the top and bottom lines for a vertical pair; 0 when none fits.
int FindNearestHorEdge5_3(const temp_LineSet* horizontal, const temp_LineSet* vertical, int t,
                          int32_t width, int32_t height, const tem_Line* vi, const tem_Line* vj,
                          tem_Line** top, tem_Line** bottom);
// Whether one of candidates [from, end) uses exactly these four lines.
int FindSameQuardrangleWithEdge(const std::vector<tagQuadrangle>& candidates, size_t from,
                                const tem_Line* vi, const tem_Line* vj, const tem_Line* top,
                                const tem_Line* bottom);
int JudgeQuadragleByEdgeRatio(const tagQuadrangle* quad);
void QvVP_GetCorrectQuad(tagQuadrangle* candidates, int n);
void SetQuardrangleVertexType(tagQuadrangle* quad, int32_t width, int32_t height);
void DeleteQuadrangleByLine5(tagQuadrangle* q1, tagQuadrangle* q2, int32_t width, int32_t height,
                             int mode);
int Quadrangle2InQuadrangle1(VpSize size, const tagQuadrangle* q1, const tagQuadrangle* q2);
int Combine2Quadrangle2(const cv::Mat& workImage, const tagQuadrangle* q1, const tagQuadrangle* q2,
                        tagQuadrangle* out);
int CheckEffectQuadrangleWithLineEndPoint(const tagQuadrangle* quad, int32_t width, int32_t height);
// Number of border slots (left, right, top, bottom) holding the same line.
int SharedBorderLines(const tagQuadrangle* q1, const tagQuadrangle* q2);

// ---------------------------------------------------------------------------
// Fall-back searches (quad_fallback.cpp).
// ---------------------------------------------------------------------------

enum ImageBorder : int { kBorderTop = 0, kBorderBottom = 1, kBorderLeft = 2, kBorderRight = 3 };
// A new line along one border of a width x height image (caller deletes it).
tem_Line* GetImageBorderLine(int32_t width, int32_t height, ImageBorder which);

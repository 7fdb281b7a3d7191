// Geometry records and primitives of page detection and rectification.
//
// Lines are kept in the form a*x + b*y + c = 0 with b = -1 (y = a*x + c);
// a vertical line gets the slope 10000 so that every line has that form.
// Intersections truncate toward zero, the side test has a one-pixel
// tolerance, lines are parallel when their slopes differ by at most 0.0001,
// and angles use pi = 3.1415926: thresholds downstream compare truncated
// degrees, so these conventions are part of the results.
#pragma once

#include <array>
#include <cstdint>

#include <opencv2/core/types.hpp>

constexpr double kGeometryPi = 3.1415926;
constexpr double kVerticalSlope = 10000.0;
constexpr int32_t kAppendPosition = 100000;  // ADDLine2LineSet: append

struct tem_Point {
    int32_t x;
    int32_t y;
};

struct VpSize {
    int32_t width;
    int32_t height;
};

struct tem_PointSet {
    tem_Point* points;  // owned
    int32_t count;
};

// Mean channel values of the pixels on one side of a line (or differences).
struct tem_SideStats {
    int32_t valid;
    int32_t value[3];
};

struct tem_Line {
    double a;
    double b;
    double c;
    tem_PointSet* points;  // owned; two points (the segment's ends) for detector lines
    tem_Line* next;        // next line in its set
    int32_t length;        // truncated pixel length
    int32_t angle;         // whole degrees, 90 for a vertical segment
    int32_t orientation;   // 0 horizontal set, 1 vertical set
    tem_SideStats sideA;   // side of smaller coordinate (above / left)
    tem_SideStats sideB;   // the other side
    tem_SideStats sideDiff;
    int32_t filterCount[2];  // counters of the line filters
};

struct temp_LineSet {
    tem_Line* head;  // owned, singly linked
    int32_t count;
};

// One page candidate of the quadrangle searches. Value-initialised to zero;
// the searches add their own working fields after the scoring fields.
struct tagQuadrangle {
    int32_t area = 0;          // QuadrangleArea, truncated
    int32_t innerEnergy = 0;   // 0xFFFFFF when not computable
    int32_t outerEnergy = 0;   // 0xFFFFFF when not computable
    int32_t colourEnergy = 0;  // 3 * energy + 1 once the edge similarity has run
    int32_t shapeEnergy = 0;   // mean corner deviation from 90 degrees
    int32_t foundLength = 0;   // covered length of the four sides, truncated
    int32_t perimeter = 0;     // sum of the four side lengths, truncated
    double fill = 0.0;         // foundLength / perimeter, at most 1
    double score = 0.0;
    tem_Line* left = nullptr;  // border lines, not owned
    tem_Line* right = nullptr;
    tem_Line* top = nullptr;
    tem_Line* bottom = nullptr;
    tem_Point corners[4] = {};     // top-left, bottom-left, bottom-right, top-right
    tem_Line* fullLeft = nullptr;  // border copies cut to the corners, owned while scoring
    tem_Line* fullRight = nullptr;
    tem_Line* fullTop = nullptr;
    tem_Line* fullBottom = nullptr;
    int32_t legal = 0;
    double fillLeft = 0.0;  // covered length / side length, per side
    double fillRight = 0.0;
    double fillTop = 0.0;
    double fillBottom = 0.0;
    double lenTop = 0.0;     // |P0P3|
    double lenBottom = 0.0;  // |P1P2|
    double lenLeft = 0.0;    // |P0P1|
    double lenRight = 0.0;   // |P3P2|
    // Working fields of the searches.
    int32_t vertexType[4] = {};  // per corner: 0 inside, 1 on the image border, 2 outside
    int32_t outsideCorners = 0;  // corners of type 2
    int32_t frameSides = 0;      // border lines lying along the image frame
};

// A line counts as horizontal when its slope is at most 1 in magnitude.
inline bool IsHorizontalLine(const tem_Line& line) {
    return line.a <= 1.0 && line.a >= -1.0;
}

// Construction and lists. Create* return null when memory is short. Records
// and point arrays live on the C heap (calloc/free); build point sets with
// SetPointSetPoints. Null arguments are ignored (or give null / 0).
tem_Line* CreateLine();
tem_PointSet* CreatPointSet();
temp_LineSet* CreatLineSet();
// Sets the point set to a copy of the given points (replacing any old ones).
bool SetPointSetPoints(tem_PointSet* set, const tem_Point* points, int32_t count);
void DeletePointSet(tem_PointSet* set);
void ADDLine2LineSet(temp_LineSet* set, tem_Line* line, int32_t position);
tem_Line* GetLine(const temp_LineSet* set, int32_t index);
void DeleteLine(tem_Line* line);
void DeleteLineFromSet(temp_LineSet* set, tem_Line* line);
void DeleteLineSet(temp_LineSet* set);

// Geometry.
void CalLine(tem_Point p1, tem_Point p2, double coefficients[3]);
int GetIntersectionPoint(const tem_Line* l1, const tem_Line* l2, tem_Point* out);
int PointRelationshipWithLine(const tem_Line* line, int32_t x, int32_t y);
double Dot2LineDistance(const tem_Line* line, tem_Point p);
double PointDistance(tem_Point p, tem_Point q);
void GetLineEndPoint(const tem_Line* line, tem_Point* first, tem_Point* second);
double LineLength(const tem_Line* line);
double TriangleArea(tem_Point p0, tem_Point p1, tem_Point p2);
double QuadrangleArea(const tem_Point corners[4]);
double AngleLine2Line(const tem_Line* l1, const tem_Line* l2);
double AngleBetween2Line(const tem_Line* l1, const tem_Line* l2);
// The area rule of quadrangle legality. With the triangles A1 = (p0,p1,p2),
// A2 = (p0,p3,p2), A3 = (p0,p1,p3), A4 = (p2,p1,p3) by Heron's formula and M
// the largest, the rule fails when |A1 + A2 - A3 - A4| > tolerance (the two
// diagonal splits disagree: not convex) or when |M - A1 - A2| or
// |M - A3 - A4| is under the tolerance (one triangle is the whole:
// degenerate). The tolerance is in square pixels; 1 when the rule holds.
// A crossed parallelogram passes it: its four triangles are all equal.
int QuadrangleAreaRule(const tem_Point corners[4], double tolerance);
// True when every turn of the closed path p0 p1 p2 p3 goes the same way,
// none of them straight.
bool IsStrictlyConvexQuad(const std::array<cv::Point2d, 4>& corners);
// The detector's legality tests: the area rule with 20 square pixels.
int JudgeLeaglueQuadrangle2(const tem_Point corners[4]);
int JudgeLeaglueQuadrangle3(const tem_Point corners[4]);

// Length of the part of `line` that lies between its crossings with `cross1`
// and `cross2`, within its own segment (its end points) and inside an image
// of the given size; 0 when these do not overlap or a crossing is missing.
double GetLengthBetween2LineWithSize(const tem_Line* line, const tem_Line* cross1,
                                     const tem_Line* cross2, VpSize size);

// Scenes for the quadrangle scoring and search tests: a drawn page on a
// table, a detector built by hand around it, and line sets made from end
// points.
#pragma once

#include <memory>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "vision/detect/detector_internal.h"
#include "vision/detect/quad_internal.h"

namespace quad_test {

inline tem_Line* MakeLine(tem_Point p, tem_Point q) {
    return MakeLineFromEndPoints(p, q);
}

struct SetDeleter {
    void operator()(temp_LineSet* s) const { DeleteLineSet(s); }
};
using SetPtr = std::unique_ptr<temp_LineSet, SetDeleter>;

// Point at fraction f of the way from p to q.
inline tem_Point Lerp(tem_Point p, tem_Point q, double f) {
    return {static_cast<int32_t>(p.x + (q.x - p.x) * f),
            static_cast<int32_t>(p.y + (q.y - p.y) * f)};
}

// A white page (corners tl, bl, br, tr) on a dark table, with its detector.
struct Scene {
    cv::Mat image;
    tagNoteDetector detector;
    SetPtr horizontal{CreatLineSet()};
    SetPtr vertical{CreatLineSet()};

    Scene(int w, int h, const std::vector<cv::Point>& page, cv::Scalar table = {60, 50, 40},
          cv::Scalar paper = {235, 235, 235}) {
        image = cv::Mat(h, w, CV_8UC3, table);
        cv::fillConvexPoly(image, page, paper);
        detector.source = &image;
        detector.width = w;
        detector.height = h;
        cv::resize(image, detector.half, cv::Size((w + 1) / 2, (h + 1) / 2), 0, 0,
                   cv::INTER_LINEAR);
        detector.halfWidth = detector.half.cols;
        detector.halfHeight = detector.half.rows;
        detector.halfScale = 16.0f;
    }
    // The four-line searches of pass 0 (Search6) and pass 1 (Search7).
    int Search6(tem_Point c[4]) {
        return FindSquareArea6(&detector, image, horizontal.get(), vertical.get(), c, nullptr);
    }
    int Search7(tem_Point c[4]) {
        return FindSquareArea7(&detector, image, horizontal.get(), vertical.get(), c, nullptr);
    }
    // Adds the part [f0, f1] of the segment p -> q, with its side statistics.
    tem_Line* Add(bool flat, tem_Point p, tem_Point q, double f0 = 0.0, double f1 = 1.0) {
        tem_Line* line = MakeLine(Lerp(p, q, f0), Lerp(p, q, f1));
        line->orientation = flat ? 0 : 1;
        QvVP_CalculateAver8(&detector, line);
        ADDLine2LineSet(flat ? horizontal.get() : vertical.get(), line, kAppendPosition);
        return line;
    }
};

}  // namespace quad_test

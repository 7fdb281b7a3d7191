// Pictures for looking at detections: a photograph reduced to a small size
// with quadrangles drawn on it and captions in their colours, and a contact
// sheet that tiles such pictures. Colours are given in the photograph's own
// channel order (R, G, B for the engine's working copy).
#pragma once

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "eval_metric.h"

namespace scrivo_eval {

constexpr int kOverlaySide = 600;  // longer side of an overlay, in pixels

// One quadrangle to draw (none: only its caption, e.g. "not found").
struct OverlayQuad {
    const Quad* quad = nullptr;
    cv::Scalar colour;
    std::string caption;
};

// `photo` is 8-bit with three channels; the quadrangles are in its
// continuous pixel coordinates. The title and the captions go in the top
// left corner on a dark band, one line each.
inline cv::Mat DrawOverlay(const cv::Mat& photo, const std::string& title,
                           const std::vector<OverlayQuad>& quads) {
    CV_Assert(photo.type() == CV_8UC3);
    const double scale =
        std::min(1.0, static_cast<double>(kOverlaySide) / std::max(photo.cols, photo.rows));
    cv::Mat out;
    cv::resize(photo, out,
               cv::Size(std::max(1, static_cast<int>(std::lround(photo.cols * scale))),
                        std::max(1, static_cast<int>(std::lround(photo.rows * scale)))),
               0, 0, cv::INTER_AREA);
    // Each outline is thinner than the one before, so that outlines that
    // coincide all stay in sight.
    int thickness = 4;
    for (const OverlayQuad& q : quads) {
        thickness = std::max(1, thickness - 1);
        if (q.quad == nullptr) continue;
        std::vector<cv::Point> pts;
        for (const cv::Point2d& p : *q.quad) {
            // Continuous coordinates: pixel i covers [i, i + 1).
            pts.emplace_back(static_cast<int>(std::lround(p.x * scale - 0.5)),
                             static_cast<int>(std::lround(p.y * scale - 0.5)));
        }
        cv::polylines(out, pts, true, q.colour, thickness, cv::LINE_AA);
        cv::circle(out, pts[0], thickness + 2, q.colour, cv::FILLED, cv::LINE_AA);  // first corner
    }
    std::vector<std::pair<std::string, cv::Scalar>> lines = {{title, cv::Scalar(255, 255, 255)}};
    for (const OverlayQuad& q : quads) lines.emplace_back(q.caption, q.colour);
    constexpr int kLine = 18;
    int width = 0;
    for (const auto& [text, colour] : lines) {
        int base = 0;
        width =
            std::max(width, cv::getTextSize(text, cv::FONT_HERSHEY_SIMPLEX, 0.5, 1, &base).width);
    }
    cv::rectangle(out, cv::Rect(0, 0, width + 10, kLine * static_cast<int>(lines.size()) + 6),
                  cv::Scalar(0, 0, 0), cv::FILLED);
    for (size_t i = 0; i < lines.size(); ++i) {
        cv::putText(out, lines[i].first, cv::Point(5, kLine * static_cast<int>(i + 1)),
                    cv::FONT_HERSHEY_SIMPLEX, 0.5, lines[i].second, 1, cv::LINE_AA);
    }
    return out;
}

// The pictures in reading order on a grid of up to `columns` columns, each
// in a cell as large as the largest picture, on a dark grey ground.
inline cv::Mat ContactSheet(const std::vector<cv::Mat>& tiles, int columns) {
    if (tiles.empty()) return cv::Mat();
    int cellW = 1, cellH = 1;
    for (const cv::Mat& t : tiles) {
        cellW = std::max(cellW, t.cols);
        cellH = std::max(cellH, t.rows);
    }
    const int n = static_cast<int>(tiles.size());
    const int cols = std::clamp(columns, 1, n);
    const int rows = (n + cols - 1) / cols;
    constexpr int kGap = 4;
    cv::Mat sheet(rows * (cellH + kGap) + kGap, cols * (cellW + kGap) + kGap, tiles[0].type(),
                  cv::Scalar::all(48));
    for (int i = 0; i < n; ++i) {
        const int x = kGap + (i % cols) * (cellW + kGap), y = kGap + (i / cols) * (cellH + kGap);
        tiles[i].copyTo(sheet(cv::Rect(x, y, tiles[i].cols, tiles[i].rows)));
    }
    return sheet;
}

}  // namespace scrivo_eval

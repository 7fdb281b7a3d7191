// Binary PNM images as the evaluation tools exchange them with make_pages.py
// and Tesseract: P5 (one byte a pixel) and P6 (three bytes a pixel, passed
// on in the order the file holds them), maximum value 255. Headers may
// carry comments; exactly one white-space byte separates the header from
// the raster, whose first byte may itself look like white space.
#pragma once

#include <filesystem>
#include <fstream>
#include <istream>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

namespace scrivo_eval {

namespace detail {

inline int ReadPnmNumber(std::istream& in) {
    for (;;) {
        const int c = in.peek();
        if (c == '#') {
            in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            in.get();
        } else {
            break;
        }
    }
    long v = -1;
    if (!(in >> v) || v < 1 || v > (1 << 16)) throw std::runtime_error("bad PNM header");
    return static_cast<int>(v);
}

}  // namespace detail

// CV_8UC1 for P5, CV_8UC3 for P6; throws with a readable message.
inline cv::Mat ReadPnm(std::istream& in) {
    char magic[2] = {};
    in.read(magic, 2);
    if (!in || magic[0] != 'P' || (magic[1] != '5' && magic[1] != '6'))
        throw std::runtime_error("not a binary PGM or PPM");
    const int w = detail::ReadPnmNumber(in);
    const int h = detail::ReadPnmNumber(in);
    if (detail::ReadPnmNumber(in) != 255) throw std::runtime_error("not 8 bits a sample");
    in.get();
    cv::Mat img(h, w, magic[1] == '5' ? CV_8UC1 : CV_8UC3);
    const auto rowBytes = static_cast<std::streamsize>(img.cols * img.channels());
    for (int y = 0; y < h && in; ++y) in.read(reinterpret_cast<char*>(img.ptr(y)), rowBytes);
    if (!in) throw std::runtime_error("raster cut short");
    return img;
}

inline cv::Mat ReadPnm(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path.string());
    try {
        return ReadPnm(in);
    } catch (const std::exception& e) {
        throw std::runtime_error(path.string() + ": " + e.what());
    }
}

// An 8-bit image of one or three channels.
inline void WritePnm(std::ostream& out, const cv::Mat& img) {
    CV_Assert(img.depth() == CV_8U && (img.channels() == 1 || img.channels() == 3));
    out << (img.channels() == 1 ? "P5" : "P6") << '\n' << img.cols << ' ' << img.rows << "\n255\n";
    const auto rowBytes = static_cast<std::streamsize>(img.cols * img.channels());
    for (int y = 0; y < img.rows; ++y)
        out.write(reinterpret_cast<const char*>(img.ptr(y)), rowBytes);
}

inline bool WritePnm(const std::filesystem::path& path, const cv::Mat& img) {
    std::ofstream out(path, std::ios::binary);
    WritePnm(out, img);
    out.close();
    return static_cast<bool>(out);
}

}  // namespace scrivo_eval

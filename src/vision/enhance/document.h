// The steps of the full document enhancement (method 3) after the page
// judgement: layout analysis, background estimation, illumination removal,
// block-wise tone mapping and the per-pixel colour step.
//
// Block arrays. The layout analysis cuts the page into blocks of B x B
// pixels (BX = W / B across, BY = H / B down, row by row) and fills four
// arrays of BX x BY entries:
//   A1 the block's class: 0 paper, 1 text or marks on paper, 2 picture
//      (below 2: the block shows the page's paper);
//   A2 the block's paper grey (the mean of its brighter half);
//   A3, A4 the block's paper Cr and Cb (the mean over its paper pixels).
// Its counters are C1 paper blocks, C2 text blocks, C3 picture blocks.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

// The value at `percent` of a list of block values (nearest rank from
// below); `fallback` for an empty list.
inline int32_t BlockPercentile(std::vector<int32_t> v, int percent, int32_t fallback) {
    if (v.empty()) return fallback;
    const size_t k = std::min(v.size() * static_cast<size_t>(percent) / 100, v.size() - 1);
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(k), v.end());
    return v[k];
}

constexpr int32_t kBlockPaper = 0;
constexpr int32_t kBlockText = 1;
constexpr int32_t kBlockPicture = 2;

struct BlockArrays {
    int32_t* A1;
    int32_t* A2;
    int32_t* A3;
    int32_t* A4;
};

struct LayoutCounters {
    int32_t C1 = 0;  // paper blocks
    int32_t C2 = 0;  // text blocks
    int32_t C3 = 0;  // picture blocks
};

// Classifies the blocks, may change the page type (a page that is mostly
// picture is not a document; an undecided page that is mostly paper with
// text is one), and sets `uneven` when the paper's light varies across
// the page enough to need flattening.
void PageLayoutAnalysis13(const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb, int* type,
                          BlockArrays blocks, int B, char* text, LayoutCounters* counters,
                          uint8_t* uneven);

// Page levels handed from the background estimation to later steps.
struct PageLevels {
    int32_t L1 = 128;   // the paper's Cr
    int32_t L2 = 128;   // the paper's Cb
    int32_t paper = 0;  // the paper's grey (median block level)
};

// Full-size background planes of Y, Cr and Cb (the paper's level under
// every pixel, smooth across text and pictures) from the block arrays.
void CalBackGround(const cv::Mat& Cr, const cv::Mat& Cb, const cv::Mat& Y, cv::Mat& bgY,
                   cv::Mat& bgCr, cv::Mat& bgCb, BlockArrays blocks, int B, PageLevels* levels);

// The paper flag of the reduced planes: 255 where a pixel is at most 40
// below its background grey and within 14 of its background chroma.
void GetGgFlagImage2(const cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb, const cv::Mat& bgY,
                     const cv::Mat& bgCr, const cv::Mat& bgCb, cv::Mat& flag);

// Background of a reduced luma plane from its paper flags; see the file.
void ComputeBackGround9(const cv::Mat& Y, const cv::Mat& flag, cv::Mat& background,
                        const cv::Mat& trusted, int level, int window);

// Divides Y by its background, bringing the paper to the page level M
// (the mean paper grey of the page blocks). Returns 0.
int DeleteNonUniformIllumination5(cv::Mat& Y, const cv::Mat& Cr, const cv::Mat& Cb,
                                  const cv::Mat& bgY, const cv::Mat& bgCr, const cv::Mat& bgCb,
                                  const int32_t* A1, const int32_t* A2, int BX, int BY, int B);

// The division table: row r (pixel), column b (background) holds
// min(r M / b, 255); column 0 holds 255.
void MakeDivisionTable(int M, uint8_t* table);

// Block-wise tone mapping of an evenly lit page (no flattening): paper to
// white, ink darker, pictures only brightened; paper chroma neutral,
// other colours saturated.
void EnhanceSubImageHighYUB2(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, const int32_t* A1,
                             const int32_t* A2, int32_t C2, int32_t C3, int B, char* text);

// Block-wise tone mapping of a flattened page. Returns 0 when the page has
// no paper or too little contrast to map (the caller then falls back);
// otherwise 1 with the ink level L3 and the paper level L4.
int EnhanceSubImageHighYUB9(cv::Mat& Y, cv::Mat& Cr, cv::Mat& Cb, const int32_t* A1,
                            const int32_t* A2, int32_t C2, int32_t C3, int32_t L1, int32_t L2,
                            int B, int32_t C1, char* text, int32_t* L3, int32_t* L4);

// The per-pixel colour step and its two helpers.
void CalIndex9(int32_t* table, int32_t L3, int32_t L4);
void GetBlackFlag(const cv::Mat& Y, cv::Mat& flag);
void EnhanceColorByPixel9(cv::Mat& Y, const cv::Mat& kept, cv::Mat& Cr, cv::Mat& Cb,
                          const cv::Mat& bgCr, const cv::Mat& bgCb, int32_t L3, int32_t L4,
                          int32_t L1, int32_t L2);
// The same with the black-flag image made in `flag` (reused when it already
// has Y's size and type: large fresh buffers are slow to first touch).
void EnhanceColorByPixelWithBuffer(cv::Mat& Y, const cv::Mat& kept, cv::Mat& Cr, cv::Mat& Cb,
                                   const cv::Mat& bgCr, const cv::Mat& bgCb, int32_t L3, int32_t L4,
                                   int32_t L1, int32_t L2, cv::Mat& flag);

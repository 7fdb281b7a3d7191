// Judging what kind of page an image shows, from its luma and chroma.
//
// Page-type codes: 1 light page with dark content, 2 dark background with
// light content, 3 neither (picture, mixed or undecided), 4 (only from the
// edge judgement) no contrast between edges and background.
#pragma once

#include <opencv2/core.hpp>

constexpr int kPageLight = 1;
constexpr int kPageDark = 2;
constexpr int kPageOther = 3;
constexpr int kPageFlat = 4;

// From the luma histogram's mean, spread and tails (and, for a bright
// page of middling spread, whether it holds text blocks).
int JudgeImageTypeByY(const cv::Mat& Y);

// Keeps `type` only when the page is nearly colourless; 3 otherwise.
int JudgeImageTypeYUB2(const cv::Mat& Cr, const cv::Mat& Cb, int type);

// From the grey under short edge contours against the background grey;
// writes both greys (see GetImageEdgeAveGrey). The last two pointers are
// accepted and left untouched.
int JudgeImageTypeByEdge(const cv::Mat& Y, float* background, float* edge, float* unused1,
                         float* unused2);

// The mean grey of the histogram's dominant part (background) and the mean
// grey under the points of short, busy edge contours (edge; the background
// when there are too few). `tag` is not read.
void GetImageEdgeAveGrey(const cv::Mat& grey, float* background, float* edge, const char* tag);

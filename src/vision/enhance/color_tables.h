// Lookup tables of the live enhancement routes and the fixed-step sharpening.
#pragma once

#include <array>
#include <cstdint>

#include <opencv2/core.hpp>

// Fractions of all pixels of an 8-bit one-channel plane at each grey level
// (all zero for an empty plane).
std::array<double, 256> NormalisedHistogram(const cv::Mat& plane);
// The same in pieces: counts added up over several planes (an 8-bit
// one-channel plane; others add nothing), then divided by their total.
void CountLevels(const cv::Mat& plane, std::array<uint64_t, 256>& counts);
std::array<double, 256> Normalise(const std::array<uint64_t, 256>& counts, uint64_t total);

// The first level, walking from `from` by `step` (+1 up, -1 down), at which
// the fractions summed so far exceed `share`; 0 when the walk ends first.
int TailLevel(const std::array<double, 256>& p, int from, int step, double share);

// The global luma stretch: level lo (where the darkest 5 % end, counted
// from a start level that depends on the mean) maps to 0.8 lo, level hi
// (where the brightest 1 % begin, ignoring 254 and 255) towards 255, the
// slope capped at 3.8 (2.0 when the page's mid level is above 44). Writes
// the mid level (hi + lo) / 2 into *mid.
void CalcColorTableGCELow4(const cv::Mat& Y, unsigned char* table, float* mid);
// The same from the plane's normalised histogram.
void StretchTableFromHistogram(const std::array<double, 256>& p, unsigned char* table, float* mid);

// Three-piece chroma table that steepens the middle (more saturation);
// `plane` is not read.
void GetCrTableLow(const cv::Mat& plane, unsigned char* table, float mid);

// Pushes every pixel that differs from its 5 x 5 box mean by more than 10
// ten levels further away from it, in place. `amount` is not used.
void UnsharpMaskSingleChannel6(cv::Mat& Y, float amount);
// The same with the box mean made in `blurred` (reused when it already has
// Y's size and type).
void UnsharpMaskWithBuffer(cv::Mat& Y, float amount, cv::Mat& blurred);

// The page model: a sum of boosted one-feature steps over a candidate's
// features (DescribeCandidate), each feature allowed to move the score one
// way only. It was fitted so that the candidates of a photograph, and the
// empty answer with the score 0, compete in a softmax; the best candidate
// wins, and it is taken as a page when its score is above kPageScoreFloor.
// The steps live in page_model_trees.h, written by
// tools/fit_page_evidence.py.
#pragma once

#include <cstdint>

#include "vision/detect/page_find.h"

struct TreeNode {
    int16_t feature;  // -1: a leaf
    float threshold;  // feature <= threshold goes left
    int16_t left;
    int16_t right;
    float value;  // a leaf's contribution
};

// DescribeCandidate's feature holding the area share.
constexpr int kAreaFeature = 18;

// The candidate's score: above 0, it is more likely a page than not.
float RankCandidate(const CandidateFeatures& f);

// The winner is a page above this score. It lies under 0 because a missed
// page costs the user more than a page reported on an empty table: on the
// generated photographs it was chosen on, it misses no page in 150 and
// reports a page on about a quarter of the empty scenes (posters, notebooks
// and white tiles among them, often page-like things themselves).
constexpr float kPageScoreFloor = -2.5f;

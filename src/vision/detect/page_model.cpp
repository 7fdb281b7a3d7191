// Evaluation of the page model: each tree (here a single split) is walked
// from its root, left while the feature is at most the node's threshold,
// and the leaves' values are summed onto the base. Features and thresholds are
// single-precision numbers compared exactly, so every platform takes the
// same path.
#include "vision/detect/page_model.h"

#include "vision/detect/page_model_trees.h"

namespace {

template <size_t NodeCount, size_t TreeCount>
float Forest(const TreeNode (&nodes)[NodeCount], const int (&roots)[TreeCount], float base,
             const CandidateFeatures& f) {
    float sum = base;
    for (int root : roots) {
        int i = root;
        while (nodes[i].feature >= 0)
            i = f[nodes[i].feature] <= nodes[i].threshold ? nodes[i].left : nodes[i].right;
        sum += nodes[i].value;
    }
    return sum;
}

}  // namespace

float RankCandidate(const CandidateFeatures& f) {
    // The area counts in proportion, not by steps (see the fitting tool).
    return Forest(kRankNodes, kRankRoots, kRankBase, f) + kRankAreaWeight * f[kAreaFeature];
}

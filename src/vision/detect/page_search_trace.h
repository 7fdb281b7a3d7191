// What the verified page search saw on the way to its answer: every
// candidate with its evidence, the straight edges, and the choice. The
// evaluation tools and the tests read it; the engine passes no trace.
#pragma once

#include <vector>

#include "vision/detect/detector.h"
#include "vision/detect/page_find.h"

struct PageSearchTrace {
    std::vector<PageCandidate> candidates;  // evidence-image pixels
    std::vector<PageEvidence> evidence;     // per candidate (zero when not convex)
    std::vector<EvidenceLine> lines;
    std::vector<EvidenceLine> considered;  // every line the choice of `lines` was made from
    double evidenceScale = 1.0;            // photograph pixels per evidence pixel
    int chosen = -1;                       // index into candidates, -1 when no page
    double odds = 0.0;                     // the page model's log odds that the winner is a page
    // Milliseconds per stage: reduction, fixed detector, evidence image,
    // paper region, lines, line candidates, evidence, refinement.
    double ms[8] = {};
};

PageSearchAnswer SearchPageTraced(const cv::Mat& photo, bool alwaysResize, unsigned char* flags,
                                  bool fixedStepsOnly, PageSearchTrace* trace);

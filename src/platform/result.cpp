// Texts for the shared result codes, so that callers (and the command-line
// tool) can report a failure in words rather than as a bare number.
#include "scrivo/platform.h"

extern "C" const char* MResultMessage(MRESULT code) {
    switch (code) {
        case MOK:
            return "success";
        case MERR_UNKNOWN:
            return "general failure";
        case MERR_INVALID_PARAM:
            return "invalid argument";
        case MERR_UNSUPPORTED:
            return "unsupported format, mode or value";
        case MERR_NO_MEMORY:
            return "out of memory";
        case MERR_SEEK_FAILED:
            return "stream seek failed";
        case MERR_STREAM_SHORT:
            return "stream too short";
        case MERR_WRITE_FAILED:
            return "stream write failed";
        default:
            return "unknown result code";
    }
}

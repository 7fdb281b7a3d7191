/*
 * The capture session record and the pieces the session files share.
 *
 * The record holds what the host methods keep between calls: the borrowed
 * component manager, the photograph's EXIF block (m_pExifData, a heap block
 * from MMemAlloc(0, n) because MeReplaceThumbnailInExif reallocates it in
 * place), its length, the byte length of the photograph's own thumbnail,
 * the size from the last size query, the JPEG quality of the pages and the
 * engines it made and has not released (a step on any other engine is
 * refused before the engine is touched, so a released or foreign handle is
 * never followed). The destructor frees the EXIF block and releases those
 * engines, so every exit path of its owner gives them back.
 */
#ifndef SCRIVO_SESSION_SESSION_INTERNAL_H
#define SCRIVO_SESSION_SESSION_INTERNAL_H

#include <cstdint>
#include <vector>

#include "scrivo/bitmap.h"
#include "scrivo/codec.h"
#include "scrivo/engine.h"
#include "scrivo/exif.h"
#include "scrivo/platform.h"
#include "scrivo/session.h"

struct QvSession {
    MHAMCM m_hAMCM = nullptr;
    uint8_t* m_pExifData = nullptr;
    uint32_t m_dwExifDataLen = 0;
    int32_t lThumbLength = 0;
    int32_t m_lRectifiedWidth = 0;
    int32_t m_lRectifiedHeight = 0;
    int32_t jpegQuality = 0;        // 0: the framework's default save
    bool thumbnailMayGrow = false;  // the EXIF block may grow for a full thumbnail
    std::vector<VPHandle> engines;  // made here, not yet released

    QvSession() = default;
    QvSession(const QvSession&) = delete;
    QvSession& operator=(const QvSession&) = delete;
    ~QvSession() {
        for (VPHandle e : engines) VPReleaseDocuviaClient(&e);
        DropExif();
    }

    bool Owns(VPHandle engine) const {
        for (VPHandle e : engines)
            if (e == engine) return engine != nullptr;
        return false;
    }

    void DropExif() {
        if (m_pExifData) MeFreeExifData(m_pExifData);
        m_pExifData = nullptr;
        m_dwExifDataLen = 0;
        lThumbLength = 0;
    }
};

namespace scrivo::session {

/* Closes a stream on every exit path. */
struct StreamCloser {
    MHStream s = nullptr;
    StreamCloser() = default;
    explicit StreamCloser(MHStream stream) : s(stream) {}
    StreamCloser(const StreamCloser&) = delete;
    StreamCloser& operator=(const StreamCloser&) = delete;
    ~StreamCloser() { Reset(nullptr); }
    void Reset(MHStream stream) {
        if (s) MStreamClose(s);
        s = stream;
    }
};

/* Milliseconds since t0 as the timing lines print them. */
inline int32_t Since(uint32_t t0) {
    return static_cast<int32_t>(MGetCurTimeStamp() - t0);
}

/* A zeroed block of width x height x 4 bytes for a 4-channel record (a page
 * or its thumbnail), from the large-image memory (pixel/large_image.h) and
 * freed with it; data() is null when the size is negative or memory runs
 * out. */
class PageBlock {
  public:
    PageBlock(int32_t width, int32_t height);
    ~PageBlock();
    PageBlock(const PageBlock&) = delete;
    PageBlock& operator=(const PageBlock&) = delete;
    uint8_t* data() const { return data_; }

  private:
    uint8_t* data_ = nullptr;
};

/* Decodes the photograph in `stream` straight into a new engine's working
 * image (photo_decode.cpp) and gives its size; the decoder's result, with
 * *engine null on failure. */
MRESULT DecodeIntoEngine(MHAMCM manager, MHStream stream, VPHandle* engine, int32_t* width,
                         int32_t* height);

/* Encodes w x h R,G,B,A pixels as JPEG into an empty growable stream, adds
 * the kept EXIF block with a new thumbnail when there is one (logging
 * "<step> RepalceExifInfoThumbnail res = %d"), and copies the stream into a heap block
 * (*data, freed with QvSession_FreeData). Returns 1 when bytes were
 * delivered, 0 otherwise. */
int32_t EncodePage(QvSession* session, uint8_t* pixels, int32_t width, int32_t height,
                   const char* step, uint8_t** data, int32_t* length);

/* Encodes a bitmap as JPEG at `quality` (0: the framework's default save). */
MRESULT SaveJpeg(MHAMCM manager, MHStream stream, const MBITMAP* bitmap, int32_t quality);

/* What an engine holds, read from the engine itself so that the session's
 * checks agree with what the engine will do whatever was called on it.
 * Each is false (sizes untouched) when the engine holds no such image. */
bool PhotographSize(VPHandle engine, int32_t* width, int32_t* height);
/* False once QvSession_ReleasePhotograph freed the photograph: the steps
 * that need it answer 1 before the engine is asked (its page search would
 * otherwise take the rectified page for a new photograph). */
inline bool HoldsPhotograph(VPHandle engine) {
    int32_t w = 0, h = 0;
    return PhotographSize(engine, &w, &h);
}
/* The page that enhancement starts from: the rectified one. */
bool RectifiedPageSize(VPHandle engine, int32_t* width, int32_t* height);
bool EnhancedPageSize(VPHandle engine, int32_t* width, int32_t* height);

/* The whole W x H photograph as a quadrangle: (0,0), (0,H), (W,H), (W,0). */
bool IsWholePhotograph(const tagVPPoint quad[4], int32_t width, int32_t height);

/* Why the engine refused a quadrangle of its photograph: QV_SESSION_TOO_SMALL
 * for corners in order (turning one way at every corner), QV_SESSION_FAILED
 * for corners that bound no page at all. */
int32_t RefusedCorners(VPHandle engine, const tagVPPoint quad[4]);

/* Turns or mirrors the engine's photograph from the way it is stored to the
 * way EXIF Orientation `orientation` (1..8) says a viewer shows it; other
 * values leave it as it is. False when memory ran out. */
bool ShowAsViewed(VPHandle engine, int32_t orientation);

/* Copies the engine's photograph into a 4-channel record of its size. */
bool CopyPhotograph(VPHandle engine, tagVPImage* record);
/* Copies the engine's rectified or enhanced page into a 4-channel record of
 * its size. */
bool CopyRectifiedPage(VPHandle engine, tagVPImage* record);
bool CopyEnhancedPage(VPHandle engine, tagVPImage* record);

}  // namespace scrivo::session

/* Makes a thumbnail of the page (longer side 160), puts it into the kept
 * EXIF block in place of the photograph's one (a smaller one, or none, when
 * the block may not grow enough), and writes the block into the page's JPEG
 * in `stream`. Returns the result of the insertion. */
MRESULT RepalceExifInfoThumbnail(QvSession* session, MHStream stream, const MBITMAP* page);

#endif

/*
 * Thumbnail replacement: the page's JPEG gets the photograph's EXIF block
 * with a thumbnail that shows the page.
 *
 * The thumbnail's longer side is 160 pixels and the other side is even,
 * 2 x ((short x 80) / long) in integer division (1000 x 1400 gives
 * 114 x 160), but at least 2 so that a sliver of a page still gets a
 * thumbnail. It is scaled down with ConvertCS (box filter) and encoded with
 * the framework's default save.
 *
 * On a phone the block never grows beyond the photograph's: a thumbnail
 * longer than the photograph's own (lThumbLength) is made again with
 * smaller sides and lower qualities, a few tries, and the first that fits
 * replaces the old one. Where none fits, the thumbnail is removed from the
 * block (IFD1 unlinked): a thumbnail of zero bytes would be an invalid JPEG
 * that readers reject, and the old one would show the photograph instead of
 * the page. A session told that the block may grow (a desktop) puts the
 * full thumbnail in whatever its length.
 *
 * Replacement moves only the thumbnail inside the block, so every other IFD
 * survives whatever the order the camera wrote them in. A block that can be
 * neither rewritten nor rid of its thumbnail (a layout the EXIF module
 * refuses) goes into the page unchanged, old thumbnail included, rather
 * than being dropped; a log line says so. The block is then written into
 * the page's JPEG stream, which also sets its pixel-size fields to the
 * page's frame size.
 *
 * The result is the insertion's; the caller only logs it and delivers the
 * page's bytes in any case.
 */
#include <iterator>
#include <new>
#include <vector>

#include "session/session_internal.h"

using scrivo::session::Since;
using scrivo::session::StreamCloser;

namespace {

// Longer side and JPEG quality (0: the framework's default) of each try.
struct Try {
    int32_t longSide;
    int32_t quality;
};
constexpr Try kTries[] = {{160, 0}, {160, 60}, {160, 40}, {120, 40}, {96, 30}, {64, 25}};

MRESULT SetExifInfo(QvSession* s, MHStream stream) {
    MLogPrint(MLOG_DEBUG, "SetExifInfo in <----");
    const MRESULT res = MExif_AddExifToJpegFile(stream, s->m_pExifData, s->m_dwExifDataLen);
    if (res != 0)
        MLogPrint(MLOG_DEBUG, "SetExifInfo MExif_AddExifToJpegFile fail!!!");
    else
        MLogPrint(MLOG_DEBUG, "SetExifInfo out ---->");
    return res;
}

// Scales the page to a thumbnail whose longer side is `t.longSide` (the
// other even, at least 2) and encodes it into *bytes; the save's result.
MRESULT MakeThumbnail(QvSession* s, const MBITMAP* page, Try t, std::vector<uint8_t>* bytes) {
    const int64_t W = page->width, H = page->height, half = t.longSide / 2;
    int32_t tw = t.longSide, th = t.longSide;
    if (W <= H)
        tw = static_cast<int32_t>(2 * ((W * half) / H));
    else
        th = static_cast<int32_t>(2 * ((H * half) / W));
    if (tw < 2) tw = 2;
    if (th < 2) th = 2;
    const scrivo::session::PageBlock pixels(tw, th);
    MBITMAP thumb{};
    thumb.pixelFormat = MPAF_RGBA8888;
    thumb.width = tw;
    thumb.height = th;
    thumb.pitch[0] = tw * 4;
    thumb.plane[0] = pixels.data();

    const uint32_t t0 = MGetCurTimeStamp();
    const MRESULT convRes = ConvertCS(&thumb, page, 0, 1, 2);
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail ConvertCS time = %d ms", Since(t0));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail ConvertCS res = %d", static_cast<int>(convRes));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail lWidth = %d, lHeight = %d", tw, th);

    StreamCloser stream(MStreamOpenFromMemoryBlock(nullptr, 0));
    MRESULT res = MERR_NO_MEMORY;
    int32_t n = 0;
    if (stream.s) {
        res = scrivo::session::SaveJpeg(s->m_hAMCM, stream.s, &thumb, t.quality);
        n = MStreamGetSize(stream.s);
    }
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail MdBitmapSave res = %d", static_cast<int>(res));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail m_ThumbStreamLength = %d", n);
    if (res != 0) return res;
    if (n <= 0) return MERR_UNKNOWN;
    try {
        bytes->resize(static_cast<size_t>(n));
    } catch (const std::bad_alloc&) {
        return MERR_NO_MEMORY;
    }
    if (MStreamSeek(stream.s, MSTREAM_SEEK_BEGIN, 0) != 0 ||
        MStreamRead(stream.s, bytes->data(), n) != n)
        return MERR_STREAM_SHORT;
    return MOK;
}

}  // namespace

MRESULT RepalceExifInfoThumbnail(QvSession* s, MHStream stream, const MBITMAP* page) {
    if (!s || !stream || !page || page->width <= 0 || page->height <= 0) return MERR_INVALID_PARAM;
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail in <----");
    // The room the thumbnail may take: the photograph's own on a phone. A
    // photograph without one leaves nothing to shrink towards.
    const bool grow = s->thumbnailMayGrow;
    const uint64_t room = grow ? UINT64_MAX : static_cast<uint64_t>(s->lThumbLength);
    const size_t tries = grow || room == 0 ? 1 : std::size(kTries);
    std::vector<uint8_t> bytes;
    bool fits = false;
    for (size_t i = 0; i < tries && !fits; ++i) {
        if (MakeThumbnail(s, page, kTries[i], &bytes) != MOK) break;
        fits = bytes.size() <= room;
    }

    MRESULT res = MERR_UNSUPPORTED;
    if (fits) {
        res = MeReplaceThumbnailInExif(&s->m_pExifData, &s->m_dwExifDataLen, bytes.data(),
                                       static_cast<uint32_t>(bytes.size()));
        MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail MeReplaceThumbnailInExif res = %d",
                  static_cast<int>(res));
    }
    if (res != MOK) {
        res = MeRemoveThumbnailFromExif(&s->m_pExifData, &s->m_dwExifDataLen);
        MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail MeReplaceThumbnailInExif(Erase) res = %d",
                  static_cast<int>(res));
    }
    if (res != MOK)
        MLogPrint(MLOG_DEBUG,
                  "RepalceExifInfoThumbnail EXIF block kept unchanged, with the photograph's "
                  "thumbnail");

    res = SetExifInfo(s, stream);
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail SetExifInfo res = %d", static_cast<int>(res));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail out ---->");
    return res;
}

/*
 * Thumbnail replacement: the page's JPEG gets the photograph's EXIF block
 * with a thumbnail that shows the page.
 *
 * The thumbnail's longer side is 160 pixels and the other side is even,
 * 2 x ((short x 80) / long) in integer division (1000 x 1400 gives
 * 114 x 160), but at least 2 so that a sliver of a page still gets a
 * thumbnail. It is scaled down with ConvertCS (box filter) and encoded with
 * the framework's default save. The saved block is never enlarged: a
 * thumbnail longer than the photograph's own (lThumbLength) is not squeezed
 * in; the old one is overwritten with as many zero bytes instead, so the
 * block keeps its length (also when the thumbnail could not be made) and
 * no reader is left with the old photograph's picture. The block is then
 * written into the page's JPEG stream, which also sets its pixel-size
 * fields to the page's frame size.
 *
 * The result is the insertion's; the caller only logs it and delivers the
 * page's bytes in any case.
 */
#include <new>
#include <vector>

#include "session/session_internal.h"

using scrivo::session::Since;
using scrivo::session::StreamCloser;

namespace {

MRESULT SetExifInfo(QvSession* s, MHStream stream) {
    MLogPrint(MLOG_DEBUG, "SetExifInfo in <----");
    const MRESULT res = MExif_AddExifToJpegFile(stream, s->m_pExifData, s->m_dwExifDataLen);
    if (res != 0)
        MLogPrint(MLOG_DEBUG, "SetExifInfo MExif_AddExifToJpegFile fail!!!");
    else
        MLogPrint(MLOG_DEBUG, "SetExifInfo out ---->");
    return res;
}

}  // namespace

MRESULT RepalceExifInfoThumbnail(QvSession* s, MHStream stream, const MBITMAP* page) {
    if (!s || !stream || !page || page->width <= 0 || page->height <= 0) return MERR_INVALID_PARAM;
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail in <----");
    const int64_t W = page->width, H = page->height;
    int32_t tw = 160, th = 160;
    if (W <= H)
        tw = static_cast<int32_t>(2 * ((W * 80) / H));
    else
        th = static_cast<int32_t>(2 * ((H * 80) / W));
    if (tw < 2) tw = 2;
    if (th < 2) th = 2;
    std::vector<uint8_t> pixels;
    scrivo::session::AllocPixels(tw, th, &pixels);
    MBITMAP thumb{};
    thumb.pixelFormat = MPAF_RGBA8888;
    thumb.width = tw;
    thumb.height = th;
    thumb.pitch[0] = tw * 4;
    thumb.plane[0] = pixels.empty() ? nullptr : pixels.data();

    const uint32_t t0 = MGetCurTimeStamp();
    const MRESULT convRes = ConvertCS(&thumb, page, 0, 1, 2);
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail ConvertCS time = %d ms", Since(t0));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail ConvertCS res = %d", static_cast<int>(convRes));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail lWidth = %d, lHeight = %d", tw, th);

    StreamCloser thumbStream;
    MRESULT saveRes = MERR_NO_MEMORY;
    int32_t n = 0;
    thumbStream.Reset(MStreamOpenFromMemoryBlock(nullptr, 0));
    if (thumbStream.s) {
        saveRes = scrivo::session::SaveJpeg(s->m_hAMCM, thumbStream.s, &thumb, 0);
        n = MStreamGetSize(thumbStream.s);
    }
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail MdBitmapSave res = %d",
              static_cast<int>(saveRes));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail m_ThumbStreamLength = %d", n);
    if (n < 0) n = 0;

    std::vector<uint8_t> bytes;
    MRESULT replaceRes = MERR_NO_MEMORY;
    if (saveRes == 0 && n <= s->lThumbLength) {
        try {
            bytes.resize(static_cast<size_t>(n));
        } catch (...) {
            bytes.clear();
        }
        if (bytes.size() == static_cast<size_t>(n) &&
            (n == 0 || (MStreamSeek(thumbStream.s, MSTREAM_SEEK_BEGIN, 0) == 0 &&
                        MStreamRead(thumbStream.s, bytes.data(), n) == n)))
            replaceRes = MeReplaceThumbnailInExif(&s->m_pExifData, &s->m_dwExifDataLen,
                                                  bytes.data(), static_cast<uint32_t>(n));
        else if (bytes.size() == static_cast<size_t>(n))
            replaceRes = MERR_STREAM_SHORT;
        MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail MeReplaceThumbnailInExif res = %d",
                  static_cast<int>(replaceRes));
    } else {
        try {
            bytes.assign(static_cast<size_t>(s->lThumbLength), 0);
            replaceRes =
                MeReplaceThumbnailInExif(&s->m_pExifData, &s->m_dwExifDataLen, bytes.data(),
                                         static_cast<uint32_t>(s->lThumbLength));
        } catch (...) {
        }
        MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail MeReplaceThumbnailInExif(Erase) res = %d",
                  static_cast<int>(replaceRes));
    }

    const MRESULT res = SetExifInfo(s, stream);
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail SetExifInfo res = %d", static_cast<int>(res));
    MLogPrint(MLOG_DEBUG, "RepalceExifInfoThumbnail out ---->");
    return res;
}

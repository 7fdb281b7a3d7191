/*
 * Scrivo EXIF: reading a photograph's EXIF block, taking out and replacing
 * its thumbnail, patching its image-size fields, writing it into another
 * JPEG in place, and finding the end of JPEG data in front of an appended
 * extension block.
 *
 * An EXIF block is the raw bytes of one JPEG APP1 segment from its 0xFF 0xE1
 * marker on ("Exif", two zero bytes, a TIFF structure), possibly preceded by
 * other marker segments, which are skipped. Blocks and thumbnails handed out
 * or taken back by these functions live on the process heap: allocate them
 * with MMemAlloc(0, n) and free them with MeFreeExifData / MeFreeThumbnailData.
 *
 * Results: 0 success (also when there is nothing to do), 2 invalid argument,
 * 3 malformed or unsupported data, 4 out of memory, 4101 seek failed, 4102
 * read failed (stream too short), 4103 write failed. Functions that work on
 * a stream put its position back where it was on every failure.
 */
#ifndef SCRIVO_EXIF_H
#define SCRIVO_EXIF_H

#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The EXIF reader object. */
typedef struct MExifObject* MHExif;

/* Makes an empty reader; handle is the memory manager (0: the heap). */
SCRIVO_API MRESULT MExif_Create(MHandle handle, MHExif* exif);
SCRIVO_API MRESULT MExif_Destroy(MHExif exif);

/* Reads the first "Exif" APP1 segment of the JPEG in the stream (from the
 * stream's start, whatever its position; the position is kept). A JPEG
 * without one succeeds and leaves the reader empty; data that does not start
 * with SOI, or whose segments run past the end, give 3 or 4102. */
SCRIVO_API MRESULT MExif_InitFromStream(MHExif exif, MHStream stream);

/* Hands out the raw block (null and 0 when the JPEG had none). The bytes stay
 * the reader's and are valid until MExif_UnLockExifData, a new
 * MExif_InitFromStream or MExif_Destroy. Locking twice gives 1. */
SCRIVO_API MRESULT MExif_LockExifData(MHExif exif, uint8_t** data, uint32_t* length);
SCRIVO_API MRESULT MExif_UnLockExifData(MHExif exif);

/* Frees a block allocated with MMemAlloc(0, n) (see above). */
SCRIVO_API void MeFreeExifData(uint8_t* block);

/* Copies out the IFD1 JPEG thumbnail of the block. A block without EXIF,
 * IFD1 or thumbnail gives 0 with *thumbnail null and *thumbnailLength 0. */
SCRIVO_API MRESULT MeGetThumbnailData(const uint8_t* block, uint32_t length, uint8_t** thumbnail,
                                      uint32_t* thumbnailLength);
SCRIVO_API void MeFreeThumbnailData(uint8_t* thumbnail);

/* Replaces the IFD1 thumbnail with thumbnailLength bytes (a length of 0
 * erases it, its entries kept with length 0). Only the thumbnail moves, so
 * every other IFD and value keeps its offset whatever their order: a
 * thumbnail behind everything else is cut off with whatever unreferenced
 * bytes followed it and the new one appended; one in front of other fields
 * is overwritten in place when the new one fits there (the block keeps its
 * length), else the new one goes behind the segment's end. *block is
 * reallocated (the old one freed) on success; on failure it is unchanged:
 * 3 for a layout whose tables, values or thumbnail cannot be told apart
 * inside the segment, or when the APP1 segment would pass 65535 bytes. */
SCRIVO_API MRESULT MeReplaceThumbnailInExif(uint8_t** block, uint32_t* length,
                                            const uint8_t* thumbnail, uint32_t thumbnailLength);

/* Removes the thumbnail: IFD0's link to IFD1 becomes 0, and IFD1 with its
 * thumbnail is cut off when it lies behind everything else (otherwise its
 * bytes stay unreferenced, the thumbnail zeroed). Nothing to do (0) without
 * IFD1. *block is reallocated as by MeReplaceThumbnailInExif, which it
 * shares its refusals with. */
SCRIVO_API MRESULT MeRemoveThumbnailFromExif(uint8_t** block, uint32_t* length);

/* Writes the pixel size into the block's image-size fields, in the block's
 * byte order: PixelXDimension (0xA002) and PixelYDimension (0xA003) of the
 * EXIF sub-IFD (found through IFD0's tag 0x8769), and ImageWidth (0x0100) and
 * ImageLength (0x0101) when IFD0 carries them. A SHORT field whose new value
 * does not fit 16 bits becomes a LONG (count 1, so the value stays inline).
 * Fields of other types or counts are left alone. */
SCRIVO_API MRESULT MeReplaceImageSize(uint8_t* block, uint32_t length, uint32_t width,
                                      uint32_t height);

/* Orientation (1..8) of IFD0's tag 0x0112; 1 when the block has none. 2 for a bad block.
 * A value outside 1..8, or a field that is not one SHORT or LONG, reads as 1
 * (result 0); a null pointer, or a block whose TIFF header or IFD0 cannot be
 * read, gives 2 with *orientation 1. A block with no APP1 segment has none. */
SCRIVO_API MRESULT MeGetOrientation(const uint8_t* block, uint32_t length, int32_t* orientation);
/* Sets IFD0's Orientation in place to `orientation` (1..8) when the tag is there (nothing to do
 * otherwise: 0). The entry is left as one SHORT. An orientation outside 1..8,
 * a null block or a bad block (as above) gives 2 and nothing is written. */
SCRIVO_API MRESULT MeSetOrientation(uint8_t* block, uint32_t length, int32_t orientation);

/* Puts the block into the JPEG in a read-write stream, in place: it replaces
 * the old EXIF segment and the application/comment segments after it (or,
 * without one, all of them after SOI), with the frame's size written into
 * the block first (so the block is modified). The file is never shortened:
 * a shorter block is padded with 0xFF bytes inside its APP1 segment. */
SCRIVO_API MRESULT MeAddExifToJpegFile(MHStream stream, uint8_t* block, uint32_t length);
/* The reader-level form of MeAddExifToJpegFile (the caller logs failures). */
SCRIVO_API MRESULT MExif_AddExifToJpegFile(MHStream stream, uint8_t* block, uint32_t length);

/* Size of the extension block's footer, and its tag. */
#define MEXIF_ZQTM_FOOTER_SIZE 20
#define MEXIF_ZQTM_TAG "ZQTM"

/* Finds where the JPEG data of the stream ends. With a valid 20-byte "ZQTM"
 * footer at the stream's end (tag, 16-bit little-endian 16, a 32-bit
 * little-endian block length that leaves some bytes in front)
 * *jpegEnd is the block's start and the result 0; otherwise *jpegEnd is the
 * stream size and the result 3. With 0 or 3 the stream is left at its start
 * for the JPEG reader; 2, 4101 and 4102 keep its position. */
SCRIVO_API MRESULT MeGetJpegDataEnd(MHStream stream, int32_t* jpegEnd);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_EXIF_H */

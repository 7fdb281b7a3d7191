/*
 * Scrivo in one call: a photograph's JPEG bytes in, the page's JPEG bytes
 * out (found or given corners, straightened, optionally turned upright by
 * the direction of its text, enhanced, with the photograph's EXIF block and
 * a new thumbnail).
 *
 *   scrivo_scan_options options;
 *   scrivo_scan_result page;
 *   scrivo_status status;
 *   scrivo_scan_options_init(&options);
 *   options.enhancement = SCRIVO_ENHANCE_GREY;
 *   status = scrivo_scan(jpeg, jpeg_length, &options, &page);
 *   if (status != SCRIVO_OK) {
 *       fprintf(stderr, "scan: %s\n", scrivo_strerror(status));
 *   } else {
 *       fwrite(page.jpeg, 1, page.jpeg_length, out);
 *       scrivo_scan_result_free(&page);
 *   }
 *
 * Ownership: scrivo_scan reads the caller's bytes and options during the
 * call only and keeps nothing. On SCRIVO_OK result->jpeg is a block the
 * caller owns and gives back with scrivo_scan_result_free (never free());
 * on any other status result->jpeg is null and jpeg_length 0, and freeing
 * such a result is harmless, as is freeing one twice. scrivo_strerror's
 * texts are static: never freed.
 *
 * Corners and sizes, in and out, are pixels of the photograph as a viewer
 * shows it: its EXIF Orientation (tag 0x0112) applied. The page is written
 * upright in its pixels and its EXIF block says Orientation 1.
 *
 * Every call has its own codec and engine, so calls may run at the same
 * time on different threads. Nothing here throws, and a null pointer or an
 * option out of range is answered with a status, never followed.
 */
#ifndef SCRIVO_SCAN_H
#define SCRIVO_SCAN_H

#include <stddef.h>
#include <stdint.h>

#include "scrivo/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    SCRIVO_OK = 0,
    SCRIVO_ERR_NULL_POINTER = 1, /* jpeg, options or result is null */
    SCRIVO_ERR_BAD_OPTION = 2,   /* an option outside its documented values */
    SCRIVO_ERR_NOT_JPEG = 3,     /* the bytes are not a JPEG photograph that decodes */
    SCRIVO_ERR_BAD_CORNERS = 4,  /* given corners not a convex quadrangle in order, inside */
    SCRIVO_ERR_RECTIFY = 5,      /* the page could not be straightened (e.g. too small) */
    SCRIVO_ERR_ENHANCE = 6,      /* the enhancement produced no page */
    SCRIVO_ERR_ENCODE = 7,       /* the page could not be encoded as JPEG */
    SCRIVO_ERR_NO_MEMORY = 8,    /* out of memory (or the codec could not be set up) */
    SCRIVO_ERR_INTERNAL = 9,     /* a failure the library did not expect */
    SCRIVO_ERR_TOO_SMALL = 10    /* the corners (or a photograph that small) give a page
                                    under 8 x 8 pixels (VP_SMALLEST_PAGE) */
} scrivo_status;

/* How the page is rendered. */
enum {
    SCRIVO_ENHANCE_NONE = 1,     /* the straightened page as photographed */
    SCRIVO_ENHANCE_COLOR = 2,    /* colour, hues kept */
    SCRIVO_ENHANCE_DOCUMENT = 3, /* full clean-up, flattened lighting */
    SCRIVO_ENHANCE_GREY = 4,
    SCRIVO_ENHANCE_ECONOMIC = 5 /* ink-saving: dark content on white */
};

/* Pixels of the photograph as viewed, y downwards. */
typedef struct {
    int32_t x;
    int32_t y;
} scrivo_point;

typedef struct {
    int32_t enhancement;     /* SCRIVO_ENHANCE_*; default SCRIVO_ENHANCE_DOCUMENT */
    int32_t jpeg_quality;    /* 1..100, or 0 (default) for the library's own */
    int32_t corners_given;   /* 0 (default): find the page; 1: use `corners` */
    scrivo_point corners[4]; /* top-left, bottom-left, bottom-right, top-right,
                                each within the photograph (0..width, 0..height) */
    int32_t auto_rotate;     /* 1: turn the page upright by its text; 0 (default) */
} scrivo_scan_options;

typedef struct {
    uint8_t* jpeg; /* the page: free with scrivo_scan_result_free */
    size_t jpeg_length;
    int32_t width; /* of the page */
    int32_t height;
    scrivo_point corners[4]; /* the corners used: found, given, or the whole
                                photograph when no page was found */
    int32_t page_found;      /* 1 when the page search found a page */
    int32_t turn;            /* auto_rotate: 0, 90, 180 or 270 degrees clockwise;
                                -1 when not asked or the direction could not be told */
} scrivo_scan_result;

/* The defaults named above (a null pointer is ignored). */
SCRIVO_API void scrivo_scan_options_init(scrivo_scan_options* options);

/* Scans the photograph. Without given corners, a photograph in which no
 * page is found is scanned whole (page_found 0); that is not a failure.
 * On failure `result` (when not null) holds no bytes; its other fields say
 * how far the scan got. */
SCRIVO_API scrivo_status scrivo_scan(const uint8_t* jpeg, size_t jpeg_length,
                                     const scrivo_scan_options* options,
                                     scrivo_scan_result* result);

/* Frees the page's bytes and clears the record (null is accepted). */
SCRIVO_API void scrivo_scan_result_free(scrivo_scan_result* result);

/* A one-line English description of a status; unknown values get one too. */
SCRIVO_API const char* scrivo_strerror(scrivo_status status);

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_SCAN_H */

/*
 * A C99 caller written from the public headers alone, as a new user would
 * write it, linked to the shared library. It makes the mistakes a first
 * attempt makes (enhancing without rectifying, a bitmap of the wrong size,
 * an unknown method, a released engine) and checks that each gets its
 * code and no page, then scans the same photograph in one call.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "scrivo/scan.h"
#include "scrivo/session.h"

#define W 160
#define H 120
#define MARK 0x5A

static int failures = 0;

static void expect(int ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

typedef struct {
    uint32_t width, height;
    uint8_t* pixels;
} Bitmap;

static int32_t get_info(void* context, void* bitmap, QvBitmapInfo* info) {
    const Bitmap* b = (const Bitmap*)bitmap;
    (void)context;
    info->width = b->width;
    info->height = b->height;
    info->stride = b->width * 4;
    info->format = QV_BITMAP_FORMAT_RGBA_8888;
    return 0;
}

static int32_t lock_pixels(void* context, void* bitmap, void** pixels) {
    (void)context;
    *pixels = ((Bitmap*)bitmap)->pixels;
    return 0;
}

static int untouched(const Bitmap* b) {
    size_t i, n = (size_t)b->width * b->height * 4;
    for (i = 0; i < n; ++i)
        if (b->pixels[i] != MARK) return 0;
    return 1;
}

/* A light page on a darker table, as JPEG bytes (free with MMemFree). */
static uint8_t* photograph(MHAMCM manager, int32_t* length) {
    static uint8_t rgba[W * H * 4];
    MBITMAP bitmap;
    void* data = NULL;
    int x, y;
    for (y = 0; y < H; ++y)
        for (x = 0; x < W; ++x) {
            const int page = x > 30 && x < 130 && y > 15 && y < 105;
            uint8_t* p = &rgba[(y * W + x) * 4];
            p[0] = p[1] = p[2] = (uint8_t)(page ? 225 : 60 + x / 4);
            p[3] = 255;
        }
    memset(&bitmap, 0, sizeof bitmap);
    bitmap.pixelFormat = MPAF_RGBA8888;
    bitmap.width = W;
    bitmap.height = H;
    bitmap.pitch[0] = W * 4;
    bitmap.plane[0] = rgba;
    if (MCodec_EncodeData(manager, &bitmap, 90, &data, length) != 0) return NULL;
    return (uint8_t*)data;
}

static void session_misuse(QvSession* session, const uint8_t* jpeg, int32_t length) {
    tagVPPoint whole[4] = {{0, 0}, {0, H}, {W, H}, {W, 0}};
    int32_t width = 0, height = 0, size = 0;
    uint8_t* data = NULL;
    Bitmap page, wrong;
    QvBitmapAccess to_page, to_wrong;
    VPHandle engine = QvSession_CreateEngine(session, jpeg, length);
    expect(engine != NULL, "engine created");
    if (engine == NULL) return;
    expect(QvSession_GetRectifiedImageSize(session, engine, whole, 4, &width, &height) ==
               QV_SESSION_OK,
           "size query");
    page.width = (uint32_t)width;
    page.height = (uint32_t)height;
    page.pixels = malloc((size_t)width * height * 4);
    wrong.width = (uint32_t)width + 1;
    wrong.height = (uint32_t)height;
    wrong.pixels = malloc(((size_t)width + 1) * height * 4);
    if (page.pixels == NULL || wrong.pixels == NULL) {
        expect(0, "memory for the bitmaps");
        free(page.pixels);
        free(wrong.pixels);
        return;
    }
    memset(page.pixels, MARK, (size_t)width * height * 4);
    memset(wrong.pixels, MARK, ((size_t)width + 1) * height * 4);
    to_page.bitmap = &page;
    to_page.context = NULL;
    to_page.getInfo = get_info;
    to_page.lockPixels = lock_pixels;
    to_wrong = to_page;
    to_wrong.bitmap = &wrong;

    /* The rectification step skipped. */
    expect(QvSession_GetEnhancedImage(session, engine, VP_ENHANCE_DOCUMENT, &to_page) ==
               QV_SESSION_NOT_RECTIFIED,
           "enhanced bitmap before rectification: not rectified");
    expect(untouched(&page), "no page written without a rectification");
    expect(QvSession_GetEnhancedImageData(session, engine, VP_ENHANCE_GREY, &data, &size) ==
               QV_SESSION_NOT_RECTIFIED,
           "enhanced bytes before rectification: not rectified");
    expect(data == NULL && size == 0, "no bytes without a rectification");

    expect(
        QvSession_GetRectifiedImage(session, engine, whole, 4, &to_wrong) == QV_SESSION_WRONG_SIZE,
        "bitmap one column too wide: wrong size");
    expect(untouched(&wrong), "nothing written into the wrong bitmap");
    expect(QvSession_GetRectifiedImage(session, engine, whole, 4, &to_page) == QV_SESSION_OK,
           "rectification in order");
    expect(!untouched(&page), "the page was written");
    expect(QvSession_GetEnhancedImage(session, engine, 0, &to_page) == QV_SESSION_UNKNOWN_METHOD,
           "method 0: unknown method");
    expect(QvSession_GetEnhancedImageData(session, engine, VP_ENHANCE_GREY, &data, &size) ==
               QV_SESSION_OK,
           "enhanced bytes in order");
    expect(data != NULL && size > 2 && data[0] == 0xFF && data[1] == 0xD8, "a JPEG page");
    QvSession_FreeData(data);

    expect(QvSession_ReleaseEngine(session, engine) == QV_SESSION_OK, "release");
    expect(QvSession_ReleaseEngine(session, engine) == QV_SESSION_UNKNOWN_ENGINE,
           "second release: unknown engine");
    expect(QvSession_GetRectifiedImageSize(session, engine, whole, 4, &width, &height) ==
               QV_SESSION_UNKNOWN_ENGINE,
           "released engine: unknown engine");
    free(page.pixels);
    free(wrong.pixels);
}

static void one_call(const uint8_t* jpeg, int32_t length) {
    scrivo_scan_options options;
    scrivo_scan_result result;
    scrivo_scan_options_init(&options);
    expect(scrivo_scan(jpeg, (size_t)length, &options, NULL) == SCRIVO_ERR_NULL_POINTER,
           "scan without a result: null pointer");
    options.enhancement = 42;
    expect(scrivo_scan(jpeg, (size_t)length, &options, &result) == SCRIVO_ERR_BAD_OPTION,
           "enhancement 42: bad option");
    expect(result.jpeg == NULL, "no bytes for a bad option");
    expect(strlen(scrivo_strerror(SCRIVO_ERR_BAD_OPTION)) > 0, "a message for the status");
    options.enhancement = SCRIVO_ENHANCE_ECONOMIC;
    expect(scrivo_scan(jpeg, (size_t)length, &options, &result) == SCRIVO_OK, "scan");
    expect(result.jpeg != NULL && result.width > 0 && result.height > 0, "a page from the scan");
    scrivo_scan_result_free(&result);
}

int main(void) {
    MHAMCM manager = NULL;
    QvSession* session;
    int32_t length = 0;
    uint8_t* jpeg;
    if (AMCM_Create(NULL, &manager) != 0 || MdRegisterJpegComponents(manager) != 0) {
        fprintf(stderr, "FAILED: codec components\n");
        return 1;
    }
    jpeg = photograph(manager, &length);
    session = QvSession_Create(manager);
    expect(jpeg != NULL && session != NULL, "photograph and session");
    if (jpeg != NULL && session != NULL) {
        session_misuse(session, jpeg, length);
        one_call(jpeg, length);
    }
    QvSession_Destroy(session);
    MMemFree(NULL, jpeg);
    AMCM_Destroy(manager);
    if (failures == 0) printf("all checks passed\n");
    return failures == 0 ? 0 : 1;
}

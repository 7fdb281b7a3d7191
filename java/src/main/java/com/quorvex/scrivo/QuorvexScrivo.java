/*
 * The host class of the native image engine: ten native methods that take a
 * photograph's JPEG bytes through one capture (create, find the page's
 * corners, size, rectify, enhance, release). The natives are registered by
 * the library's load hook, so their names and signatures here must match its
 * table exactly.
 *
 * Loading: the system property "scrivo.library.path", when set, names the
 * library file to load (tests point it at a build tree); otherwise the
 * library "scrivo" is looked up on java.library.path.
 *
 * Engine handles are small positive ints; 0 means that no engine was made.
 * Points are android.graphics.Point objects in the order top-left,
 * bottom-left, bottom-right, top-right; bitmaps are android.graphics.Bitmap
 * objects in the RGBA_8888 configuration, with rows of width x 4 bytes.
 *
 * The steps come in this order: create, find the corners (or take the
 * user's), size, rectify (bitmap or bytes), enhance (any number of times),
 * release. The int methods answer with the RESULT_* codes below and, on any
 * code but RESULT_OK, write nothing (no point, no size, no pixel); a step
 * out of order gets its own code rather than a blank page. The bytes
 * methods answer null for every failure their int counterparts report.
 * After native_Uninit every handle made before it is unknown.
 */
package com.quorvex.scrivo;

public final class QuorvexScrivo {
    /** The library's file, when not found by name on java.library.path. */
    public static final String LIBRARY_PATH_PROPERTY = "scrivo.library.path";

    /** Enhancement methods of native_GetEnhancedImage(Data). */
    public static final int ENHANCE_NONE = 1;
    public static final int ENHANCE_COLOR = 2;
    public static final int ENHANCE_DOCUMENT = 3;
    public static final int ENHANCE_GREY = 4;
    public static final int ENHANCE_ECONOMIC = 5;

    /** Done. */
    public static final int RESULT_OK = 0;
    /** No page found, corners that bound no page, or no page produced. */
    public static final int RESULT_FAILED = 1;
    /**
     * Not four points (a null array or elements that are not points included), no RectifiedSize,
     * or a bitmap that cannot take the page (not RGBA_8888, recycled, rows not width x 4).
     */
    public static final int RESULT_BAD_ARGUMENT = 2;
    /** No bitmap. */
    public static final int RESULT_NO_BITMAP = 4;
    /** The handle is 0, released, from before native_Uninit, or never handed out. */
    public static final int RESULT_UNKNOWN_ENGINE = 5;
    /** An enhancement before any rectification: there is no page yet. */
    public static final int RESULT_NOT_RECTIFIED = 6;
    /** The enhanced bytes need a size query for the rectified page's corners first. */
    public static final int RESULT_NOT_SIZED = 7;
    /** The bitmap's width and height are not the page's. */
    public static final int RESULT_WRONG_SIZE = 8;
    /** A method other than the ENHANCE_* values. */
    public static final int RESULT_UNKNOWN_METHOD = 9;
    /** Corners in order that bound a page smaller than the smallest the engine makes (8 x 8). */
    public static final int RESULT_TOO_SMALL = 11;

    static {
        String path = System.getProperty(LIBRARY_PATH_PROPERTY);
        if (path != null && !path.isEmpty()) {
            System.load(path);
        } else {
            System.loadLibrary("scrivo");
        }
    }

    private QuorvexScrivo() {}

    /** The size of the rectified page, written by native_GetRectifiedImageSize. */
    public static class RectifiedSize {
        public int width;
        public int height;
    }

    public static native void native_Init();

    public static native void native_Uninit();

    /** An engine over the decoded photograph; 0 when the bytes do not decode. */
    public static native int native_CreateEngine(byte[] jpegData);

    /** Releases the engine; an unknown handle is left alone (nothing else is dropped). */
    public static native void native_ReleaseEngine(int handle);

    /**
     * Whether the photograph shows a page: RESULT_OK and its corners written, or RESULT_FAILED
     * when there is none (the points are left as they were: the whole photograph is never
     * reported as a page); RESULT_BAD_ARGUMENT, RESULT_UNKNOWN_ENGINE.
     */
    public static native int native_FindPageVertex(int handle, Object[] points);

    /**
     * The page's size for these corners: RESULT_OK (size written), RESULT_FAILED (the corners
     * bound no page), RESULT_TOO_SMALL, RESULT_BAD_ARGUMENT, RESULT_UNKNOWN_ENGINE.
     */
    public static native int native_GetRectifiedImageSize(int handle, Object[] points, Object size);

    /**
     * Rectifies into a bitmap of the page's size for these corners: RESULT_OK, RESULT_FAILED,
     * RESULT_TOO_SMALL, RESULT_BAD_ARGUMENT (also for three points), RESULT_NO_BITMAP, RESULT_UNKNOWN_ENGINE,
     * RESULT_WRONG_SIZE, or the bitmap interface's negative code.
     */
    public static native int native_GetRectifiedImage(int handle, Object[] points, Object bitmap);

    /**
     * The rectified page as JPEG bytes with the photograph's EXIF block; null for an unknown
     * handle, not four points, corners that bound no page, or a failed encoding.
     */
    public static native byte[] native_GetRectifiedImageData(int handle, Object[] points);

    /**
     * Enhances the rectified page into a bitmap of its size: RESULT_OK, RESULT_FAILED,
     * RESULT_BAD_ARGUMENT, RESULT_NO_BITMAP, RESULT_UNKNOWN_ENGINE, RESULT_NOT_RECTIFIED,
     * RESULT_WRONG_SIZE, RESULT_UNKNOWN_METHOD, or the bitmap interface's negative code.
     */
    public static native int native_GetEnhancedImage(int handle, int method, Object bitmap);

    /**
     * The enhanced page as JPEG bytes, made at the size of the last size query, which must be
     * the rectified page's; null for an unknown handle or method, before any rectification or
     * such a size query, or when the enhancement or encoding failed.
     */
    public static native byte[] native_GetEnhancedImageData(int handle, int method);
}

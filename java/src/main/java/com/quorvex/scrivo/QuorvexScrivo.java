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
 * objects in the RGBA_8888 configuration.
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

    public static native void native_ReleaseEngine(int handle);

    /** 0 found (points written), 1 not found (points unchanged), 2 not four points. */
    public static native int native_FindPageVertex(int handle, Object[] points);

    /** 0 done (size written), 1 failed, 2 not four points or no RectifiedSize. */
    public static native int native_GetRectifiedImageSize(int handle, Object[] points, Object size);

    /** 0 done (also for not four points or no bitmap), 1 failed, 2 bitmap unusable. */
    public static native int native_GetRectifiedImage(int handle, Object[] points, Object bitmap);

    /** The rectified page as JPEG bytes with the photograph's EXIF block, or null. */
    public static native byte[] native_GetRectifiedImageData(int handle, Object[] points);

    /** 0 done, 1 failed, 2 bitmap unusable, 4 no bitmap, negative: bitmap interface code. */
    public static native int native_GetEnhancedImage(int handle, int method, Object bitmap);

    /** The enhanced page as JPEG bytes (size of the last size query), or null. */
    public static native byte[] native_GetEnhancedImageData(int handle, int method);
}

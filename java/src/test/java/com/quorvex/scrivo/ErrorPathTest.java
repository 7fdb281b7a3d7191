/* The natives' answers and log lines for bad arguments, bitmaps, bytes and handles. */
package com.quorvex.scrivo;

import static com.quorvex.scrivo.QuorvexScrivo.*;
import static org.junit.jupiter.api.Assertions.*;

import android.graphics.Bitmap;
import android.graphics.Point;
import java.util.List;
import java.util.function.Supplier;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;

class ErrorPathTest {
    private static int handle;
    private static Point[] whole;
    private static RectifiedSize size;

    @BeforeAll
    static void createEngine() throws Exception {
        byte[] bytes = TestSupport.photoBytes();
        native_Init();
        handle = native_CreateEngine(bytes);
        assertTrue(handle > 0);
        java.awt.image.BufferedImage photo =
            javax.imageio.ImageIO.read(new java.io.ByteArrayInputStream(bytes));
        int w = photo.getWidth(), h = photo.getHeight();
        whole = TestSupport.quad(0, 0, 0, h, w, h, w, 0);
        size = new RectifiedSize();
        assertEquals(0, native_GetRectifiedImageSize(handle, whole, size));
    }

    @AfterAll
    static void releaseEngine() {
        native_ReleaseEngine(handle);
        native_Uninit();
    }

    /** Runs the call with the log captured and checks its answer and lines. */
    private static <T> void expect(T answer, List<String> lines, Supplier<T> call) {
        LogCapture.start();
        T actual = call.get();
        LogCapture.stop();
        assertEquals(answer, actual);
        TestSupport.assertLines(lines, LogCapture.collected());
    }

    @Test
    void pointArraysOtherThanFourPoints() {
        Point[] three = TestSupport.quad(0, 0, 0, 10, 10, 10);
        Bitmap bitmap = Bitmap.createBitmap(size.width, size.height, Bitmap.Config.ARGB_8888);
        expect(
            2, List.of("JNI_FindPageVertex in <----"), () -> native_FindPageVertex(handle, three));
        expect(2, List.of("JNI_GetRectifiedImageSize in <----"),
            () -> native_GetRectifiedImageSize(handle, three, new RectifiedSize()));
        expect(RESULT_BAD_ARGUMENT, List.of("JNI_GetRectifiedImage in <----"),
            () -> native_GetRectifiedImage(handle, three, bitmap));
        expect(null, List.of("JNI_GetRectifiedImage in <----"),
            () -> native_GetRectifiedImageData(handle, three));
        // Unreadable arrays of four get the same answers as a wrong count.
        expect(
            2, List.of("JNI_FindPageVertex in <----"), () -> native_FindPageVertex(handle, null));
        Object[] notPoints = {whole[0], "a", whole[2], whole[3]};
        expect(2, List.of("JNI_FindPageVertex in <----"),
            () -> native_FindPageVertex(handle, notPoints));
        expect(2, List.of("JNI_GetRectifiedImageSize in <----"),
            () -> native_GetRectifiedImageSize(handle, whole, new Object()));
    }

    @Test
    void bitmapsThatCannotTakeThePage() {
        String rect = "JNI_GetRectifiedImage", enh = "JNI_GetEnhancedImage";
        expect(RESULT_NO_BITMAP, List.of(rect + " in <----", rect + " [Ln631] bitmap=MNull"),
            () -> native_GetRectifiedImage(handle, whole, null));
        expect(4, List.of(enh + " in <----", enh + " [Ln785] bitmap=MNull"),
            () -> native_GetEnhancedImage(handle, ENHANCE_NONE, null));
        Bitmap rgb565 = Bitmap.createBitmap(size.width, size.height, Bitmap.Config.RGB_565);
        for (String step : List.of(rect, enh)) {
            List<String> lines = List.of(step + " in <----", step + " format=4",
                step + " info.format != ANDROID_BITMAP_FORMAT_RGBA_8888");
            expect(2, lines,
                ()
                    -> step.equals(rect) ? native_GetRectifiedImage(handle, whole, rgb565)
                                         : native_GetEnhancedImage(handle, ENHANCE_NONE, rgb565));
        }
        Bitmap recycled = Bitmap.createBitmap(size.width, size.height, Bitmap.Config.ARGB_8888);
        recycled.recycle();
        expect(2,
            List.of(
                rect + " in <----", rect + " format=1", rect + " AndroidBitmap_lockPixels  Error"),
            () -> native_GetRectifiedImage(handle, whole, recycled));
        expect(-1,
            List.of(enh + " in <----", "AndroidBitmap_getInfo: not an android.graphics.Bitmap",
                enh + " AndroidBitmap_getInfo Error: -1"),
            () -> native_GetEnhancedImage(handle, ENHANCE_NONE, "not a bitmap"));
    }

    @Test
    void stepsOutOfOrderGiveTheirCodesAndNoPage() throws Exception {
        int fresh = native_CreateEngine(TestSupport.photoBytes());
        assertTrue(fresh > 0);
        try {
            RectifiedSize page = new RectifiedSize();
            assertEquals(RESULT_OK, native_GetRectifiedImageSize(fresh, whole, page));
            int w = page.width, h = page.height;
            Bitmap enhanced = Bitmap.createBitmap(w, h, Bitmap.Config.ARGB_8888);
            // The rectification skipped: a code, not a black page.
            assertEquals(
                RESULT_NOT_RECTIFIED, native_GetEnhancedImage(fresh, ENHANCE_GREY, enhanced));
            assertNull(native_GetEnhancedImageData(fresh, ENHANCE_GREY));
            assertEquals(0, enhanced.getPixel(w / 2, h / 2));
            Bitmap small = Bitmap.createBitmap(w - 1, h, Bitmap.Config.ARGB_8888);
            assertEquals(RESULT_WRONG_SIZE, native_GetRectifiedImage(fresh, whole, small));
            Bitmap rectified = Bitmap.createBitmap(w, h, Bitmap.Config.ARGB_8888);
            assertEquals(RESULT_OK, native_GetRectifiedImage(fresh, whole, rectified));
            assertEquals(RESULT_UNKNOWN_METHOD, native_GetEnhancedImage(fresh, 7, enhanced));
            assertNull(native_GetEnhancedImageData(fresh, 0));
            assertEquals(RESULT_OK, native_GetEnhancedImage(fresh, ENHANCE_NONE, enhanced));
            assertEquals(rectified.getPixel(w / 2, h / 2), enhanced.getPixel(w / 2, h / 2));
        } finally {
            native_ReleaseEngine(fresh);
        }
    }

    @Test
    void bytesThatAreNotAPhotograph() {
        byte[] text = "certainly not a JPEG photograph".getBytes();
        expect(0,
            List.of("JNI_CreateEngine in <----",
                "JNI_CreateEngine jpegData length = " + text.length,
                "QvNote performance native decode cost %d",
                "JNI_CreateEngine DecodeJPEG fail res = %d", "JNI_CreateEngine out ---->"),
            () -> native_CreateEngine(text));
        expect(0,
            List.of("JNI_CreateEngine in <----", "JNI_CreateEngine jpegData length = 0",
                "JNI_CreateEngine MStreamOpenFromMemoryBlock fail"),
            () -> native_CreateEngine(null));
    }

    @Test
    void unknownAndReleasedHandles() throws Exception {
        int second = native_CreateEngine(TestSupport.photoBytes());
        assertTrue(second > 0 && second != handle);
        native_ReleaseEngine(second);
        for (int stale : new int[] {second, 0, -7, 123456}) {
            assertEquals(RESULT_UNKNOWN_ENGINE,
                native_FindPageVertex(stale, TestSupport.quad(0, 0, 0, 0, 0, 0, 0, 0)));
            assertEquals(RESULT_UNKNOWN_ENGINE,
                native_GetRectifiedImageSize(stale, whole, new RectifiedSize()));
            assertNull(native_GetRectifiedImageData(stale, whole));
            native_ReleaseEngine(stale); // harmless
        }
        int third = native_CreateEngine(TestSupport.photoBytes());
        assertTrue(third > 0 && third != second, "a released id came back at once");
        native_ReleaseEngine(third);
        // The first engine is still usable (its EXIF block went with the releases).
        assertEquals(0, native_GetRectifiedImageSize(handle, whole, new RectifiedSize()));
    }
}

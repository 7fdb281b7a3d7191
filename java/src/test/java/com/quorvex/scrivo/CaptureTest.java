/* One whole capture through the host class, with the natives' log lines. */
package com.quorvex.scrivo;

import static com.quorvex.scrivo.QuorvexScrivo.*;
import static org.junit.jupiter.api.Assertions.*;

import android.graphics.Bitmap;
import android.graphics.Point;
import java.awt.image.BufferedImage;
import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Test;

class CaptureTest {
    private static BufferedImage decode(byte[] jpeg) throws IOException {
        BufferedImage image = ImageIO.read(new ByteArrayInputStream(jpeg));
        assertNotNull(image, "not a decodable JPEG");
        return image;
    }

    /** Length of the first APP1 (EXIF) segment, or 0. */
    private static int exifSegmentLength(byte[] jpeg) {
        int i = 2;
        while (i + 4 <= jpeg.length && (jpeg[i] & 0xff) == 0xff) {
            int marker = jpeg[i + 1] & 0xff;
            int length = ((jpeg[i + 2] & 0xff) << 8) | (jpeg[i + 3] & 0xff);
            if (marker == 0xe1) return length;
            if (marker == 0xda) break;
            i += 2 + length;
        }
        return 0;
    }

    private static void assertPageJpeg(byte[] jpeg, int width, int height, int photoExifLength)
        throws IOException {
        assertNotNull(jpeg);
        assertEquals(0xff, jpeg[0] & 0xff);
        assertEquals(0xd8, jpeg[1] & 0xff);
        assertTrue(TestSupport.contains(jpeg, "Exif\0\0"), "no EXIF block");
        int length = exifSegmentLength(jpeg);
        assertTrue(length > 0 && length <= photoExifLength, "EXIF block grew: " + length);
        BufferedImage page = decode(jpeg);
        assertEquals(width, page.getWidth());
        assertEquals(height, page.getHeight());
    }

    private static List<String> thumbnailLines(String step, int width, int height) {
        int tw = width <= height ? 2 * ((width * 80) / height) : 160;
        int th = width <= height ? 160 : 2 * ((height * 80) / width);
        return List.of("RepalceExifInfoThumbnail in <----",
            "RepalceExifInfoThumbnail ConvertCS time = %d ms",
            "RepalceExifInfoThumbnail ConvertCS res = 0",
            "RepalceExifInfoThumbnail lWidth = " + tw + ", lHeight = " + th,
            "RepalceExifInfoThumbnail MdBitmapSave res = 0",
            "RepalceExifInfoThumbnail m_ThumbStreamLength = %d",
            "re:RepalceExifInfoThumbnail MeReplaceThumbnailInExif(\\(Erase\\))? res = 0",
            "SetExifInfo in <----", "SetExifInfo out ---->",
            "RepalceExifInfoThumbnail SetExifInfo res = 0", "RepalceExifInfoThumbnail out ---->",
            step + " RepalceExifInfoThumbnail res = 0");
    }

    @Test
    void wholeCaptureFromPhotographToPageBytes() throws IOException {
        byte[] bytes = TestSupport.photoBytes();
        BufferedImage photo = decode(bytes);
        int pw = photo.getWidth(), ph = photo.getHeight();
        int photoExif = exifSegmentLength(bytes);
        org.junit.jupiter.api.Assumptions.assumeTrue(photoExif > 0, "photograph without EXIF");

        TestSupport.loadLibrary(); // its load hook's lines are not part of what is compared
        LogCapture.start();
        native_Init();
        TestSupport.assertLines(
            List.of("JNI_Init in <----", "JNI_Init ---->"), LogCapture.collected());

        LogCapture.start();
        int handle = native_CreateEngine(bytes);
        assertTrue(handle > 0);
        Point[] points = TestSupport.quad(0, 0, 0, 0, 0, 0, 0, 0);
        int found = native_FindPageVertex(handle, points);
        assertTrue(found == 0 || found == 1, "find: " + found);
        if (found == 1) {
            for (Point p : points) assertEquals(0, p.x + p.y, "points changed although not found");
            points = TestSupport.quad(0, 0, 0, ph, pw, ph, pw, 0);
        }
        RectifiedSize size = new RectifiedSize();
        assertEquals(0, native_GetRectifiedImageSize(handle, points, size));
        int w = size.width, h = size.height;
        assertTrue(w > 0 && h > 0);

        Bitmap bitmap = Bitmap.createBitmap(w, h, Bitmap.Config.ARGB_8888);
        assertEquals(0, native_GetRectifiedImage(handle, points, bitmap));
        long diff = 0, samples = 0;
        for (int y = 0; y < h; y += 37) {
            for (int x = 0; x < w; x += 41) {
                int page = bitmap.getPixel(x, y);
                assertEquals(0xff, page >>> 24, "alpha at " + x + "," + y);
                if (found == 1) { // the whole photograph: the page is the photograph, resampled
                    int src = photo.getRGB(x * pw / w, y * ph / h);
                    for (int shift = 0; shift < 24; shift += 8) {
                        diff += Math.abs(((page >> shift) & 0xff) - ((src >> shift) & 0xff));
                    }
                    samples += 3;
                }
            }
        }
        if (samples > 0)
            assertTrue(diff / (double) samples < 8.0, "mean difference " + diff / (double) samples);

        assertPageJpeg(native_GetRectifiedImageData(handle, points), w, h, photoExif);
        assertPageJpeg(native_GetEnhancedImageData(handle, ENHANCE_NONE), w, h, photoExif);
        Bitmap enhanced = Bitmap.createBitmap(w, h, Bitmap.Config.ARGB_8888);
        assertEquals(0, native_GetEnhancedImage(handle, ENHANCE_NONE, enhanced));
        for (int y = 0; y < h; y += 53) {
            for (int x = 0; x < w; x += 59)
                assertEquals(bitmap.getPixel(x, y), enhanced.getPixel(x, y));
        }
        native_ReleaseEngine(handle);

        List<String> expected = new ArrayList<>(List.of("JNI_CreateEngine in <----",
            "JNI_CreateEngine jpegData length = " + bytes.length,
            "QvNote performance native decode cost %d",
            "JNI_CreateEngine srcBmp width:" + pw + ",height:" + ph, "GetExifInfo in <----",
            "GetExifInfo m_dwExifDataLen = %d", "GetExifInfo MeGetThumbnailData res = 0",
            "GetExifInfo MdExifGetFieldData lThumbLength = %d", "GetExifInfo out ---->",
            "JNI_CreateEngine GetExifInfo res = 0",
            "QvNote performance native VPCreateDocuviaClient cost %d", "JNI_CreateEngine out ---->",
            "JNI_FindPageVertex in <----", "QvNote performance native VPFindPageVertex cost %d"));
        if (found == 0) expected.add("JNI_FindPageVertex out ---->");
        expected.addAll(List.of("JNI_GetRectifiedImageSize in <----",
            "QvNote performance native VPGetRectifiedImageSize cost %d",
            "JNI_GetRectifiedImageSize out ---->", "JNI_GetRectifiedImage in <----",
            "JNI_GetRectifiedImage format=1",
            "QvNote performance native VPRectifyVertexArea cost %d",
            "JNI_GetRectifiedImage out ---->", "JNI_GetRectifiedImage in <----",
            "QvNote performance native VPRectifyVertexArea cost %d"));
        expected.addAll(thumbnailLines("JNI_GetRectifiedImageData", w, h));
        expected.addAll(List.of(
            "QvNote performance native encode cost %d", "JNI_GetEnhancedImageData in <----"));
        expected.addAll(thumbnailLines("JNI_GetEnhancedImageData", w, h));
        expected.addAll(
            List.of("JNI_GetEnhancedImageData out ---->", "JNI_GetEnhancedImage in <----",
                "JNI_GetEnhancedImage format=1", "JNI_GetEnhancedImage out ---->",
                "QvNote performance native VPReleaseDocuviaClient cost %d",
                "ReleaseExifInfo in <----", "ReleaseExifInfo out ---->"));
        TestSupport.assertLines(expected, LogCapture.collected());

        LogCapture.start();
        native_Uninit();
        TestSupport.assertLines(List.of("JNI_Uninit in <----", "UninitCallback <---",
                                    "UninitCallback --->", "JNI_Uninit out ---->"),
            LogCapture.collected());
        LogCapture.stop();
    }

    @Test
    void engineKeptAcrossUninitIsUnknownFromThenOn() throws IOException {
        byte[] bytes = TestSupport.photoBytes();
        Point[] points = TestSupport.quad(1, 2, 3, 4, 5, 6, 7, 8);
        native_Init();
        int kept = native_CreateEngine(bytes);
        assertTrue(kept > 0);
        native_Uninit(); // releases it with the session
        assertEquals(RESULT_UNKNOWN_ENGINE, native_FindPageVertex(kept, points));
        native_Init();
        assertEquals(RESULT_UNKNOWN_ENGINE, native_FindPageVertex(kept, points));
        assertNull(native_GetRectifiedImageData(kept, points));
        native_ReleaseEngine(kept); // harmless
        assertEquals(1, points[0].x);
        int fresh = native_CreateEngine(bytes);
        assertTrue(fresh > 0 && fresh != kept);
        // The old id must not reach the new engine, wherever it was allocated.
        assertEquals(RESULT_UNKNOWN_ENGINE, native_FindPageVertex(kept, points));
        native_ReleaseEngine(fresh);
        native_Uninit();
    }
}

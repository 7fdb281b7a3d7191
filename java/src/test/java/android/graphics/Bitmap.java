/*
 * Desktop stand-in for the phone's bitmap class. Its pixels live in a direct
 * ByteBuffer so that the desktop bitmap interface in the library can hand
 * their address to the engine. The private fields width, height, stride,
 * format (the bitmap interface's format code) and pixels are what the
 * library reads; keep them in step with android_desktop.cpp.
 */
package android.graphics;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

public final class Bitmap {
    /** Configurations with the bitmap interface's format code and bytes per pixel. */
    public enum Config {
        ALPHA_8(8, 1),
        RGB_565(4, 2),
        ARGB_4444(7, 2),
        ARGB_8888(1, 4);

        final int format;
        final int bytesPerPixel;

        Config(int format, int bytesPerPixel) {
            this.format = format;
            this.bytesPerPixel = bytesPerPixel;
        }
    }

    private final int width;
    private final int height;
    private final int stride;
    private final int format;
    private final Config config;
    private ByteBuffer pixels;

    private Bitmap(int width, int height, Config config) {
        this.width = width;
        this.height = height;
        this.config = config;
        this.format = config.format;
        this.stride = width * config.bytesPerPixel;
        this.pixels = ByteBuffer.allocateDirect(stride * height).order(ByteOrder.nativeOrder());
    }

    public static Bitmap createBitmap(int width, int height, Config config) {
        if (width <= 0 || height <= 0)
            throw new IllegalArgumentException("width and height must be > 0");
        return new Bitmap(width, height, config);
    }

    public int getWidth() { return width; }

    public int getHeight() { return height; }

    public Config getConfig() { return config; }

    public int getRowBytes() { return stride; }

    /** ARGB colour of an ARGB_8888 pixel (stored as bytes R, G, B, A). */
    public int getPixel(int x, int y) {
        int i = y * stride + x * 4;
        int r = pixels.get(i) & 0xff, g = pixels.get(i + 1) & 0xff;
        int b = pixels.get(i + 2) & 0xff, a = pixels.get(i + 3) & 0xff;
        return (a << 24) | (r << 16) | (g << 8) | b;
    }

    public void recycle() { pixels = null; }

    public boolean isRecycled() { return pixels == null; }
}

// The two phone interfaces the natives use besides JNI: the bitmap interface
// (information and pixel locking of an android.graphics.Bitmap) and the log.
//
// On a phone these come from the NDK's headers and libraries (jnigraphics,
// log). On a desktop the same declarations are made here, with only what the
// natives use, and android_desktop.cpp implements them over a stand-in
// android.graphics.Bitmap class, so that a JVM on a build machine can drive
// the very same native code.
#ifndef SCRIVO_BRIDGE_JNI_ANDROID_API_H
#define SCRIVO_BRIDGE_JNI_ANDROID_API_H

#include <jni.h>

#if defined(__ANDROID__)
#include <android/bitmap.h>
#include <android/log.h>
#else
#include <cstdint>

extern "C" {

enum {
    ANDROID_BITMAP_RESULT_SUCCESS = 0,
    ANDROID_BITMAP_RESULT_BAD_PARAMETER = -1,
    ANDROID_BITMAP_RESULT_JNI_EXCEPTION = -2,
    ANDROID_BITMAP_RESULT_ALLOCATION_FAILED = -3
};

enum AndroidBitmapFormat {
    ANDROID_BITMAP_FORMAT_NONE = 0,
    ANDROID_BITMAP_FORMAT_RGBA_8888 = 1,
    ANDROID_BITMAP_FORMAT_RGB_565 = 4,
    ANDROID_BITMAP_FORMAT_RGBA_4444 = 7,
    ANDROID_BITMAP_FORMAT_A_8 = 8
};

typedef struct {
    uint32_t width;
    uint32_t height;
    uint32_t stride; /* bytes per row */
    int32_t format;  /* AndroidBitmapFormat */
    uint32_t flags;
} AndroidBitmapInfo;

int AndroidBitmap_getInfo(JNIEnv* env, jobject jbitmap, AndroidBitmapInfo* info);
int AndroidBitmap_lockPixels(JNIEnv* env, jobject jbitmap, void** addrPtr);

enum { ANDROID_LOG_VERBOSE = 2, ANDROID_LOG_DEBUG = 3, ANDROID_LOG_INFO = 4 };

int __android_log_print(int prio, const char* tag, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;
}
#endif

#endif  // SCRIVO_BRIDGE_JNI_ANDROID_API_H

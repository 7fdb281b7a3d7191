// Desktop implementations of the phone's bitmap and log interfaces, so that a
// desktop JVM can load the library and drive the natives unchanged.
//
// Bitmaps: the test source set provides a stand-in android.graphics.Bitmap
// that keeps its pixels in a direct java.nio.ByteBuffer. The stand-in's
// private fields are the contract with this file:
//   int width, height   size in pixels
//   int stride          bytes per row
//   int format          the bitmap interface's format code (1 = RGBA_8888)
//   ByteBuffer pixels   direct buffer of stride x height bytes; null once
//                       the bitmap was recycled
// AndroidBitmap_getInfo answers BAD_PARAMETER for a null object or an object
// of another class, as the phone does; AndroidBitmap_lockPixels gives the
// buffer's address and answers BAD_PARAMETER for a recycled bitmap or a
// buffer that is not direct or is too small for stride x height bytes.
// Locking does not pin anything (a direct buffer does not move), so there is
// nothing to unlock, matching the natives' use.
//
// Log: __android_log_print formats the line and hands it to MLogPrint, so it
// reaches the library's log sink with the library's own tag.
#include <cstdarg>
#include <cstdio>

#include "jni/android_api.h"
#include "scrivo/platform.h"

namespace {

constexpr const char* kBitmapClass = "android/graphics/Bitmap";

// The stand-in's class when `bitmap` is one of its instances, else null.
jclass StandInClass(JNIEnv* env, jobject bitmap) {
    if (env == nullptr || bitmap == nullptr) return nullptr;
    jclass cls = env->FindClass(kBitmapClass);
    if (cls == nullptr) {
        env->ExceptionClear();
        return nullptr;
    }
    if (!env->IsInstanceOf(bitmap, cls)) {
        env->DeleteLocalRef(cls);
        return nullptr;
    }
    return cls;
}

bool IntField(JNIEnv* env, jclass cls, jobject obj, const char* name, jint* value) {
    jfieldID id = env->GetFieldID(cls, name, "I");
    if (id == nullptr) {
        env->ExceptionClear();
        return false;
    }
    *value = env->GetIntField(obj, id);
    return true;
}

}  // namespace

extern "C" {

int AndroidBitmap_getInfo(JNIEnv* env, jobject jbitmap, AndroidBitmapInfo* info) {
    if (info == nullptr) return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
    jclass cls = StandInClass(env, jbitmap);
    if (cls == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, "QUORVEX_SCRIVO",
                            "AndroidBitmap_getInfo: not an android.graphics.Bitmap");
        return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
    }
    jint width = 0, height = 0, stride = 0, format = 0;
    const bool ok = IntField(env, cls, jbitmap, "width", &width) &&
                    IntField(env, cls, jbitmap, "height", &height) &&
                    IntField(env, cls, jbitmap, "stride", &stride) &&
                    IntField(env, cls, jbitmap, "format", &format);
    env->DeleteLocalRef(cls);
    if (!ok || width < 0 || height < 0 || stride < 0) return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
    info->width = static_cast<uint32_t>(width);
    info->height = static_cast<uint32_t>(height);
    info->stride = static_cast<uint32_t>(stride);
    info->format = format;
    info->flags = 0;
    return ANDROID_BITMAP_RESULT_SUCCESS;
}

int AndroidBitmap_lockPixels(JNIEnv* env, jobject jbitmap, void** addrPtr) {
    AndroidBitmapInfo info;
    const int res = AndroidBitmap_getInfo(env, jbitmap, &info);
    if (res != ANDROID_BITMAP_RESULT_SUCCESS) return res;
    jclass cls = StandInClass(env, jbitmap);
    if (cls == nullptr) return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
    jfieldID id = env->GetFieldID(cls, "pixels", "Ljava/nio/ByteBuffer;");
    env->DeleteLocalRef(cls);
    if (id == nullptr) {
        env->ExceptionClear();
        return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
    }
    jobject buffer = env->GetObjectField(jbitmap, id);
    if (buffer == nullptr) return ANDROID_BITMAP_RESULT_BAD_PARAMETER;  // recycled
    void* address = env->GetDirectBufferAddress(buffer);
    const jlong capacity = env->GetDirectBufferCapacity(buffer);
    env->DeleteLocalRef(buffer);
    const jlong needed = static_cast<jlong>(info.stride) * static_cast<jlong>(info.height);
    if (address == nullptr || capacity < needed) return ANDROID_BITMAP_RESULT_BAD_PARAMETER;
    if (addrPtr != nullptr) *addrPtr = address;
    return ANDROID_BITMAP_RESULT_SUCCESS;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    (void)tag;  // the library's sink receives every line under its own tag
    if (fmt == nullptr) return 0;
    char line[1024];
    va_list args;
    va_start(args, fmt);
    const int n = std::vsnprintf(line, sizeof line, fmt, args);
    va_end(args);
    if (n < 0) return n;
    MLogPrint(prio, "%s", line);
    return n;
}

}  // extern "C"

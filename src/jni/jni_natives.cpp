// The eight capture natives: marshalling between host objects and the
// process-wide session (the steps themselves, their log lines and codes live
// in the session).
//
// Points: the host passes Object[]; element i is vertex i, an
// android.graphics.Point read and written through its int fields x and y.
// An array of another length goes to the session with that length, which
// answers as for any wrong count. An array of four whose elements are not
// all points (a null element, another class, or no point class cached
// because native_Init has not run) cannot be read without risking the
// runtime, so it is handed over as an empty array and gets the same answer.
// The size object is treated the same way: the size step answers 2 unless
// it is a QuorvexScrivo.RectifiedSize, whose int fields width and height it
// writes.
//
// Bitmaps reach the session through a QvBitmapAccess whose callbacks call
// AndroidBitmap_getInfo and AndroidBitmap_lockPixels with the current JNIEnv.
//
// Byte arrays: input elements are taken and given back with mode 0 (RAII, so
// every exit path releases them); output bytes become a new byte array, and
// a failure to make it (a pending OutOfMemoryError, which is cleared) yields
// null like every other failure of the data natives.
//
// Handles are registry ids (handle_registry.h); an unknown id (0, never
// handed out, or released) reaches the session as a null engine, which
// every step refuses with QV_SESSION_UNKNOWN_ENGINE (5) and which a release
// leaves alone, so a stale release cannot drop the live capture's EXIF
// block.
//
// Results: the int natives hand the session's code back as it is (see
// session.h and QuorvexScrivo.java); without a session (before native_Init,
// after native_Uninit) no engine is known. The bytes natives can only say
// "nothing": any code but 0 becomes null.
#include <cstdint>

#include "jni/android_api.h"
#include "jni/handle_registry.h"
#include "jni/jni_bridge.h"
#include "scrivo/platform.h"

namespace scrivo::jni {
namespace {

constexpr int32_t kQuad = 4;

// The elements of a host byte array for as long as this object lives.
class ByteArrayElements {
  public:
    ByteArrayElements(JNIEnv* env, jbyteArray array) : env_(env), array_(array) {
        if (array_ == nullptr) return;
        length_ = env_->GetArrayLength(array_);
        bytes_ = env_->GetByteArrayElements(array_, nullptr);
        if (bytes_ == nullptr) {
            env_->ExceptionClear();
            length_ = 0;
        }
    }
    ~ByteArrayElements() {
        if (bytes_ != nullptr) env_->ReleaseByteArrayElements(array_, bytes_, 0);
    }
    ByteArrayElements(const ByteArrayElements&) = delete;
    ByteArrayElements& operator=(const ByteArrayElements&) = delete;

    const uint8_t* data() const { return reinterpret_cast<const uint8_t*>(bytes_); }
    int32_t length() const { return length_; }

  private:
    JNIEnv* env_;
    jbyteArray array_;
    jbyte* bytes_ = nullptr;
    jint length_ = 0;
};

struct PointFields {
    jfieldID x = nullptr;
    jfieldID y = nullptr;
};

bool LookUpPointFields(JNIEnv* env, PointFields* fields) {
    if (g_clazz_point == nullptr) return false;
    fields->x = env->GetFieldID(g_clazz_point, "x", "I");
    fields->y = fields->x != nullptr ? env->GetFieldID(g_clazz_point, "y", "I") : nullptr;
    if (fields->y == nullptr) {
        env->ExceptionClear();
        return false;
    }
    return true;
}

// Whether element i of the array is a point (a null array has none).
bool AllPoints(JNIEnv* env, jobjectArray array) {
    for (jsize i = 0; i < kQuad; ++i) {
        jobject point = env->GetObjectArrayElement(array, i);
        const bool ok = point != nullptr && env->IsInstanceOf(point, g_clazz_point);
        if (point != nullptr) env->DeleteLocalRef(point);
        if (!ok) return false;
    }
    return true;
}

// Reads the host's points into quad and answers the count to give the
// session: the array's length, or 0 when four elements cannot be read.
int32_t ReadPoints(JNIEnv* env, jobjectArray array, tagVPPoint quad[kQuad]) {
    if (array == nullptr) return 0;
    const jsize length = env->GetArrayLength(array);
    if (length != kQuad) return length;
    PointFields fields;
    if (!LookUpPointFields(env, &fields) || !AllPoints(env, array)) return 0;
    for (jsize i = 0; i < kQuad; ++i) {
        jobject point = env->GetObjectArrayElement(array, i);
        quad[i].x = env->GetIntField(point, fields.x);
        quad[i].y = env->GetIntField(point, fields.y);
        env->DeleteLocalRef(point);
    }
    return kQuad;
}

void WritePoints(JNIEnv* env, jobjectArray array, const tagVPPoint quad[kQuad]) {
    PointFields fields;
    if (!LookUpPointFields(env, &fields)) return;
    for (jsize i = 0; i < kQuad; ++i) {
        jobject point = env->GetObjectArrayElement(array, i);
        if (point == nullptr) continue;
        env->SetIntField(point, fields.x, quad[i].x);
        env->SetIntField(point, fields.y, quad[i].y);
        env->DeleteLocalRef(point);
    }
}

bool IsSizeObject(JNIEnv* env, jobject size) {
    return size != nullptr && g_clazz_rectifiedSize != nullptr &&
           env->IsInstanceOf(size, g_clazz_rectifiedSize);
}

void WriteSize(JNIEnv* env, jobject size, int32_t width, int32_t height) {
    jfieldID w = env->GetFieldID(g_clazz_rectifiedSize, "width", "I");
    jfieldID h = w != nullptr ? env->GetFieldID(g_clazz_rectifiedSize, "height", "I") : nullptr;
    if (h == nullptr) {
        env->ExceptionClear();
        return;
    }
    env->SetIntField(size, w, width);
    env->SetIntField(size, h, height);
}

int32_t BitmapGetInfo(void* context, void* bitmap, QvBitmapInfo* info) {
    AndroidBitmapInfo phone{};
    const int res =
        AndroidBitmap_getInfo(static_cast<JNIEnv*>(context), static_cast<jobject>(bitmap), &phone);
    if (res < 0) return res;
    info->width = phone.width;
    info->height = phone.height;
    info->stride = phone.stride;
    info->format = static_cast<int32_t>(phone.format);
    return 0;
}

int32_t BitmapLockPixels(void* context, void* bitmap, void** pixels) {
    const int res = AndroidBitmap_lockPixels(static_cast<JNIEnv*>(context),
                                             static_cast<jobject>(bitmap), pixels);
    return res < 0 ? res : 0;
}

QvBitmapAccess BitmapAccess(JNIEnv* env, jobject bitmap) {
    return QvBitmapAccess{bitmap, env, &BitmapGetInfo, &BitmapLockPixels};
}

// A new host array holding the session's bytes, which it frees.
jbyteArray ToByteArray(JNIEnv* env, uint8_t* data, int32_t length) {
    jbyteArray array = env->NewByteArray(length);
    if (array == nullptr) {
        env->ExceptionClear();
    } else {
        env->SetByteArrayRegion(array, 0, length, reinterpret_cast<const jbyte*>(data));
    }
    QvSession_FreeData(data);
    return array;
}

}  // namespace

jint JNI_CreateEngine(JNIEnv* env, jclass, jbyteArray jpegData) {
    std::lock_guard<std::mutex> lock(NativesLock());
    VPHandle engine = nullptr;
    {
        ByteArrayElements bytes(env, jpegData);
        engine = QvSession_CreateEngine(g_session, bytes.data(), bytes.length());
    }
    if (engine == nullptr) return 0;
    const int32_t id = Engines().Add(engine);
    if (id == 0) QvSession_ReleaseEngine(g_session, engine);  // no id left to hand out
    return id;
}

void JNI_ReleaseEngine(JNIEnv*, jclass, jint handle) {
    std::lock_guard<std::mutex> lock(NativesLock());
    QvSession_ReleaseEngine(g_session, Engines().Take(handle));
}

jint JNI_FindPageVertex(JNIEnv* env, jclass, jint handle, jobjectArray points) {
    std::lock_guard<std::mutex> lock(NativesLock());
    if (g_session == nullptr) return QV_SESSION_UNKNOWN_ENGINE;
    tagVPPoint quad[kQuad] = {};
    const int32_t count = ReadPoints(env, points, quad);
    const int32_t res = QvSession_FindPageVertex(g_session, Engines().Find(handle), quad, count);
    if (res == QV_SESSION_OK) WritePoints(env, points, quad);
    return res;
}

jint JNI_GetRectifiedImageSize(JNIEnv* env, jclass, jint handle, jobjectArray points,
                               jobject size) {
    std::lock_guard<std::mutex> lock(NativesLock());
    if (g_session == nullptr) return QV_SESSION_UNKNOWN_ENGINE;
    tagVPPoint quad[kQuad] = {};
    const int32_t count = IsSizeObject(env, size) ? ReadPoints(env, points, quad) : 0;
    int32_t width = 0, height = 0;
    const int32_t res = QvSession_GetRectifiedImageSize(g_session, Engines().Find(handle), quad,
                                                        count, &width, &height);
    if (res == QV_SESSION_OK) WriteSize(env, size, width, height);
    return res;
}

jint JNI_GetRectifiedImage(JNIEnv* env, jclass, jint handle, jobjectArray points, jobject bitmap) {
    std::lock_guard<std::mutex> lock(NativesLock());
    if (g_session == nullptr) return QV_SESSION_UNKNOWN_ENGINE;
    tagVPPoint quad[kQuad] = {};
    const int32_t count = ReadPoints(env, points, quad);
    const QvBitmapAccess access = BitmapAccess(env, bitmap);
    return QvSession_GetRectifiedImage(g_session, Engines().Find(handle), quad, count, &access);
}

jbyteArray JNI_GetRectifiedImageData(JNIEnv* env, jclass, jint handle, jobjectArray points) {
    std::lock_guard<std::mutex> lock(NativesLock());
    tagVPPoint quad[kQuad] = {};
    const int32_t count = ReadPoints(env, points, quad);
    uint8_t* data = nullptr;
    int32_t length = 0;
    if (QvSession_GetRectifiedImageData(g_session, Engines().Find(handle), quad, count, &data,
                                        &length) != QV_SESSION_OK) {
        return nullptr;
    }
    return ToByteArray(env, data, length);
}

jint JNI_GetEnhancedImage(JNIEnv* env, jclass, jint handle, jint method, jobject bitmap) {
    std::lock_guard<std::mutex> lock(NativesLock());
    if (g_session == nullptr) return QV_SESSION_UNKNOWN_ENGINE;
    const QvBitmapAccess access = BitmapAccess(env, bitmap);
    return QvSession_GetEnhancedImage(g_session, Engines().Find(handle), method, &access);
}

jbyteArray JNI_GetEnhancedImageData(JNIEnv* env, jclass, jint handle, jint method) {
    std::lock_guard<std::mutex> lock(NativesLock());
    uint8_t* data = nullptr;
    int32_t length = 0;
    if (QvSession_GetEnhancedImageData(g_session, Engines().Find(handle), method, &data, &length) !=
        QV_SESSION_OK) {
        return nullptr;
    }
    return ToByteArray(env, data, length);
}

}  // namespace scrivo::jni

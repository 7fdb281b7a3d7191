// The natives of com/quorvex/scrivo/QuorvexScrivo and the process-wide state
// they share.
//
// JNI_Init (jni_init.cpp) creates the component manager m_hAMCM, registers
// the JPEG components and makes the one QvSession the natives use; it also
// caches the host classes. JNI_Uninit tears all of it down. The capture
// natives (jni_natives.cpp) only marshal host objects and call the session.
//
// All natives, JNI_Init and JNI_Uninit included, run under NativesLock(): the
// host is meant to call them one at a time, and the lock turns a host that
// does not into one that waits instead of sharing the session's EXIF state
// and engines between threads.
#ifndef SCRIVO_BRIDGE_JNI_JNI_BRIDGE_H
#define SCRIVO_BRIDGE_JNI_JNI_BRIDGE_H

#include <jni.h>

#include <mutex>

#include "scrivo/codec.h"
#include "scrivo/session.h"

namespace scrivo::jni {

void JNI_Init(JNIEnv* env, jclass host);
void JNI_Uninit(JNIEnv* env, jclass host);
jint JNI_CreateEngine(JNIEnv* env, jclass host, jbyteArray jpegData);
void JNI_ReleaseEngine(JNIEnv* env, jclass host, jint handle);
jint JNI_FindPageVertex(JNIEnv* env, jclass host, jint handle, jobjectArray points);
jint JNI_GetRectifiedImageSize(JNIEnv* env, jclass host, jint handle, jobjectArray points,
                               jobject size);
jint JNI_GetRectifiedImage(JNIEnv* env, jclass host, jint handle, jobjectArray points,
                           jobject bitmap);
jbyteArray JNI_GetRectifiedImageData(JNIEnv* env, jclass host, jint handle, jobjectArray points);
jint JNI_GetEnhancedImage(JNIEnv* env, jclass host, jint handle, jint method, jobject bitmap);
jbyteArray JNI_GetEnhancedImageData(JNIEnv* env, jclass host, jint handle, jint method);

// Set by JNI_Init, cleared by JNI_Uninit.
extern MHAMCM m_hAMCM;
extern QvSession* g_session;

// Global references to the host classes (null until JNI_Init found them).
extern jclass g_clazz_point;
extern jclass g_clazz_mrect;
extern jclass g_clazz_integer;
extern jclass g_clazz_long;
extern jclass g_clazz_float;
extern jclass g_clazz_arraylist;
extern jclass g_clazz_rectifiedSize;
extern jmethodID g_mid_rect_constructor;
extern jmethodID g_mid_integer_constructor;
extern jmethodID g_mid_faceresult_constructor;  // kept for the host's layout; unused

std::mutex& NativesLock();

}  // namespace scrivo::jni

#endif  // SCRIVO_BRIDGE_JNI_JNI_BRIDGE_H

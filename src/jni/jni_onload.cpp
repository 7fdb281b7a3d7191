// The load hook: when the host runtime loads the library it registers the
// ten natives of com/quorvex/scrivo/QuorvexScrivo, in the order of the table
// below. Registration by table (rather than by exported Java_ names) keeps
// every symbol but JNI_OnLoad hidden. A missing host class or a signature
// that does not match the class makes the hook answer -1, so the host
// refuses the library instead of failing later at the first call.
#include <jni.h>

#include "jni/jni_bridge.h"
#include "scrivo/platform.h"

namespace scrivo::jni {
namespace {

constexpr const char* kHostClass = "com/quorvex/scrivo/QuorvexScrivo";

template <typename F>
void* Native(F* function) {
    return reinterpret_cast<void*>(function);
}

int Register_Utils_Functions(JNIEnv* env) {
    MLogPrint(MLOG_DEBUG, "Register_Utils_Functions <----");
    const JNINativeMethod methods[] = {
        {const_cast<char*>("native_Init"), const_cast<char*>("()V"), Native(&JNI_Init)},
        {const_cast<char*>("native_Uninit"), const_cast<char*>("()V"), Native(&JNI_Uninit)},
        {const_cast<char*>("native_CreateEngine"), const_cast<char*>("([B)I"),
         Native(&JNI_CreateEngine)},
        {const_cast<char*>("native_ReleaseEngine"), const_cast<char*>("(I)V"),
         Native(&JNI_ReleaseEngine)},
        {const_cast<char*>("native_FindPageVertex"), const_cast<char*>("(I[Ljava/lang/Object;)I"),
         Native(&JNI_FindPageVertex)},
        {const_cast<char*>("native_GetRectifiedImageSize"),
         const_cast<char*>("(I[Ljava/lang/Object;Ljava/lang/Object;)I"),
         Native(&JNI_GetRectifiedImageSize)},
        {const_cast<char*>("native_GetRectifiedImage"),
         const_cast<char*>("(I[Ljava/lang/Object;Ljava/lang/Object;)I"),
         Native(&JNI_GetRectifiedImage)},
        {const_cast<char*>("native_GetRectifiedImageData"),
         const_cast<char*>("(I[Ljava/lang/Object;)[B"), Native(&JNI_GetRectifiedImageData)},
        {const_cast<char*>("native_GetEnhancedImage"), const_cast<char*>("(IILjava/lang/Object;)I"),
         Native(&JNI_GetEnhancedImage)},
        {const_cast<char*>("native_GetEnhancedImageData"), const_cast<char*>("(II)[B"),
         Native(&JNI_GetEnhancedImageData)},
    };
    jclass host = env->FindClass(kHostClass);
    if (host == nullptr) {
        env->ExceptionClear();
        return -1;
    }
    const jint res =
        env->RegisterNatives(host, methods, static_cast<jint>(sizeof methods / sizeof methods[0]));
    env->DeleteLocalRef(host);
    if (res != JNI_OK) {
        env->ExceptionClear();
        return -1;
    }
    MLogPrint(MLOG_DEBUG, "Register_Utils_Functions ---->");
    return 0;
}

}  // namespace
}  // namespace scrivo::jni

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* reserved) {
    (void)reserved;
    MLogPrint(MLOG_DEBUG, "JNI_OnLoad <---");
    JNIEnv* env = nullptr;
    if (vm == nullptr || vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_4) != JNI_OK ||
        env == nullptr) {
        MLogPrint(MLOG_DEBUG, "JNI_VERSION_1_4 is not JNI_OK");
        return -1;
    }
    if (scrivo::jni::Register_Utils_Functions(env) != 0) {
        MLogPrint(MLOG_DEBUG, "Register_Utils_Functions return -1");
        return -1;
    }
    MLogPrint(MLOG_DEBUG, "JNI_OnLoad --->");
    return JNI_VERSION_1_4;
}

// Test-only natives of com.quorvex.scrivo.LogCapture: collect the library's
// log lines so that Java tests can compare them.
//
// start() clears the collection and installs a sink through MLogSetSink;
// stop() removes it; lines() answers what was collected since start(), in
// order. The collection is guarded by a mutex because the library may log
// from worker threads. This library links libscrivo, so the sink lands in the
// same library instance that the host class loaded.
#include <jni.h>

#include <mutex>
#include <string>
#include <vector>

#include "scrivo/platform.h"

namespace {

std::mutex g_mutex;
std::vector<std::string> g_lines;

void Collect(int priority, const char* tag, const char* line, void* user) {
    (void)priority;
    (void)tag;
    (void)user;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.emplace_back(line != nullptr ? line : "");
}

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_com_quorvex_scrivo_LogCapture_start(JNIEnv*, jclass) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_lines.clear();
    }
    MLogSetSink(&Collect, nullptr);
}

JNIEXPORT void JNICALL Java_com_quorvex_scrivo_LogCapture_stop(JNIEnv*, jclass) {
    MLogSetSink(nullptr, nullptr);
}

JNIEXPORT jobjectArray JNICALL Java_com_quorvex_scrivo_LogCapture_lines(JNIEnv* env, jclass) {
    std::vector<std::string> lines;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        lines = g_lines;
    }
    jclass stringClass = env->FindClass("java/lang/String");
    if (stringClass == nullptr) return nullptr;
    jobjectArray array =
        env->NewObjectArray(static_cast<jsize>(lines.size()), stringClass, nullptr);
    if (array == nullptr) return nullptr;
    for (size_t i = 0; i < lines.size(); ++i) {
        jstring s = env->NewStringUTF(lines[i].c_str());
        if (s == nullptr) return nullptr;
        env->SetObjectArrayElement(array, static_cast<jsize>(i), s);
        env->DeleteLocalRef(s);
    }
    return array;
}

}  // extern "C"

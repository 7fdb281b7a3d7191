// native_Init and native_Uninit: the process-wide state of the natives.
//
// JNI_Init creates the codec framework's component manager, registers the
// JPEG decoder and encoder (the pair twice: decoder, encoder, decoder,
// encoder; the component manager keeps both entries and lookups list each
// ID once, so the repetition is harmless and is kept as the host's start-up
// has always done it), creates the session the capture natives use, and
// caches the host classes as global references. The class lookups form a
// chain: the first one that fails ends it, logs its line (the long and float
// lookups report with the integer line, the last two silently) and leaves the
// later classes unset; the pending ClassNotFound error is cleared so that
// native_Init itself returns normally.
//
// Calling native_Init again without native_Uninit first tears the previous
// state down silently, so the old manager, session and global references are
// not leaked. JNI_Uninit destroys the session before the manager it borrows,
// then drops the global references. Engines belong to the session that made
// them: destroying it releases the ones the host has not, and their handles
// are forgotten, so a handle kept across native_Uninit answers "unknown
// engine" (5) from then on instead of reaching freed memory.
#include "jni/handle_registry.h"
#include "jni/jni_bridge.h"
#include "scrivo/platform.h"

namespace scrivo::jni {

MHAMCM m_hAMCM = nullptr;
QvSession* g_session = nullptr;

jclass g_clazz_point = nullptr;
jclass g_clazz_mrect = nullptr;
jclass g_clazz_integer = nullptr;
jclass g_clazz_long = nullptr;
jclass g_clazz_float = nullptr;
jclass g_clazz_arraylist = nullptr;
jclass g_clazz_rectifiedSize = nullptr;
jmethodID g_mid_rect_constructor = nullptr;
jmethodID g_mid_integer_constructor = nullptr;
jmethodID g_mid_faceresult_constructor = nullptr;

std::mutex& NativesLock() {
    static std::mutex lock;
    return lock;
}

namespace {

struct ClassLookup {
    jclass* slot;
    const char* name;
    const char* failure;  // null: a failed lookup logs nothing
};

const ClassLookup kClassLookups[] = {
    {&g_clazz_point, "android/graphics/Point", "FindClass POINT_CLASS_NAME failed\n"},
    {&g_clazz_mrect, "android/graphics/Rect", "FindClass RECT_CLASS_NAME failed\n"},
    {&g_clazz_integer, "java/lang/Integer", "FindClass INTEGER_CLASS_NAME failed\n"},
    {&g_clazz_long, "java/lang/Long", "FindClass INTEGER_CLASS_NAME failed\n"},
    {&g_clazz_float, "java/lang/Float", "FindClass INTEGER_CLASS_NAME failed\n"},
    {&g_clazz_arraylist, "java/util/ArrayList", nullptr},
    {&g_clazz_rectifiedSize, "com/quorvex/scrivo/QuorvexScrivo$RectifiedSize", nullptr},
};

jclass GlobalClass(JNIEnv* env, const char* name) {
    jclass local = env->FindClass(name);
    if (local == nullptr) {
        env->ExceptionClear();
        return nullptr;
    }
    auto global = static_cast<jclass>(env->NewGlobalRef(local));
    env->DeleteLocalRef(local);
    return global;
}

jmethodID Constructor(JNIEnv* env, jclass cls, const char* signature) {
    jmethodID id = env->GetMethodID(cls, "<init>", signature);
    if (id == nullptr) env->ExceptionClear();
    return id;
}

void DropClasses(JNIEnv* env) {
    for (const ClassLookup& lookup : kClassLookups) {
        if (*lookup.slot != nullptr) env->DeleteGlobalRef(*lookup.slot);
        *lookup.slot = nullptr;
    }
    g_mid_rect_constructor = nullptr;
    g_mid_integer_constructor = nullptr;
    g_mid_faceresult_constructor = nullptr;
}

// The session releases the engines it made; their ids go with them, so a
// host that keeps one gets "unknown engine" rather than a freed engine.
void DropSession() {
    Engines().TakeAll();
    QvSession_Destroy(g_session);
    g_session = nullptr;
}

void DropSessionAndManager() {
    DropSession();
    if (m_hAMCM != nullptr) AMCM_Destroy(m_hAMCM);
    m_hAMCM = nullptr;
}

void RegisterJpegPair() {
    AMCM_RegisterEx(m_hAMCM, MD_COMPONENT_JPEG_DECODER, MD_COMPONENT_DECODER, 2, 3,
                    MDecoder_AJL2Create);
    AMCM_RegisterEx(m_hAMCM, MD_COMPONENT_JPEG_ENCODER, MD_COMPONENT_ENCODER, 2, 3,
                    MEncoder_AJL2Create);
}

}  // namespace

void JNI_Init(JNIEnv* env, jclass host) {
    (void)host;
    std::lock_guard<std::mutex> lock(NativesLock());
    MLogPrint(MLOG_DEBUG, "JNI_Init in <----");
    DropSessionAndManager();
    DropClasses(env);

    m_hAMCM = nullptr;
    if (AMCM_Create(nullptr, &m_hAMCM) != 0) {
        m_hAMCM = nullptr;
        return;
    }
    RegisterJpegPair();
    RegisterJpegPair();
    g_session = QvSession_Create(m_hAMCM);

    bool allFound = true;
    for (const ClassLookup& lookup : kClassLookups) {
        *lookup.slot = GlobalClass(env, lookup.name);
        if (*lookup.slot == nullptr) {
            if (lookup.failure != nullptr) MLogPrint(MLOG_DEBUG, "%s", lookup.failure);
            allFound = false;
            break;
        }
    }
    if (allFound) {
        g_mid_rect_constructor = Constructor(env, g_clazz_mrect, "(IIII)V");
        g_mid_integer_constructor = Constructor(env, g_clazz_integer, "(I)V");
    }
    MLogPrint(MLOG_DEBUG, "JNI_Init ---->");
}

void JNI_Uninit(JNIEnv* env, jclass host) {
    (void)host;
    std::lock_guard<std::mutex> lock(NativesLock());
    MLogPrint(MLOG_DEBUG, "JNI_Uninit in <----");
    DropSession();
    MLogPrint(MLOG_DEBUG, "UninitCallback <---\n");
    if (m_hAMCM != nullptr) AMCM_Destroy(m_hAMCM);
    m_hAMCM = nullptr;
    MLogPrint(MLOG_DEBUG, "UninitCallback --->\n");
    DropClasses(env);
    MLogPrint(MLOG_DEBUG, "JNI_Uninit out ---->");
}

}  // namespace scrivo::jni

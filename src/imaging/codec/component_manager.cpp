/*
 * Component manager: a registry of codec component creators.
 *
 * Entries (ID, type bits, file types, priority, creator) are kept in
 * registration order in a std::vector; lookups sort candidates by priority
 * (stable, so equal priorities keep registration order) and list every ID
 * once, so registering a pair twice does no harm. Global data is a small
 * key/value map; AMCM_Create stores the memory manager under 0x80000001 and
 * 0 under 0x92000001. The manager is read-only after registration, so
 * sessions on several threads may share it.
 */
#include <algorithm>
#include <map>
#include <new>
#include <vector>

#include "imaging/codec/codec_internal.h"
#include "scrivo/codec.h"

struct AMCM_Manager {
    struct Entry {
        uint32_t id;
        uint32_t type;
        uint32_t fileType;
        uint32_t priority;
        MCODEC_CREATOR creator;
    };
    std::vector<Entry> entries;
    std::map<uint32_t, void*> globals;
};

extern "C" MRESULT AMCM_Create(MHandle memHandle, MHAMCM* manager) {
    if (!manager) return 2;
    *manager = nullptr;
    auto* m = new (std::nothrow) AMCM_Manager;
    if (!m) return 4;
    try {
        m->globals[AMCM_KEY_MEMORY_MANAGER] = memHandle;
        m->globals[AMCM_KEY_SECOND_SETTING] = nullptr;
    } catch (...) {
        delete m;
        return 4;
    }
    *manager = m;
    return 0;
}

extern "C" MRESULT AMCM_RegisterEx(MHAMCM m, uint32_t id, uint32_t type, uint32_t fileType,
                                   uint32_t priority, MCODEC_CREATOR creator) {
    if (!m || !creator || id == 0) return 2;
    try {
        m->entries.push_back({id, type, fileType, priority, creator});
    } catch (...) {
        return 4;
    }
    return 0;
}

extern "C" MRESULT AMCM_Destroy(MHAMCM m) {
    if (!m) return 2;
    delete m;
    return 0;
}

extern "C" MRESULT AMCM_GetGlobalData(MHAMCM m, uint32_t key, void** value) {
    if (!m || !value) return 2;
    auto it = m->globals.find(key);
    if (it == m->globals.end()) return 3;
    *value = it->second;
    return 0;
}

extern "C" MRESULT AMCM_SetGlobalData(MHAMCM m, uint32_t key, void* value) {
    if (!m) return 2;
    try {
        m->globals[key] = value;
    } catch (...) {
        return 4;
    }
    return 0;
}

extern "C" MRESULT AMCM_CreateComponent(MHAMCM m, uint32_t id, MCODEC_COMPONENT** component) {
    if (!m || !component) return 2;
    *component = nullptr;
    void* mem = nullptr;
    AMCM_GetGlobalData(m, AMCM_KEY_MEMORY_MANAGER, &mem);
    for (const auto& e : m->entries)
        if (e.id == id) return MdUtilsConvertResult(e.creator(mem, component), 0);
    return 3;
}

extern "C" MRESULT MdUtilsFindCodecComponents(MHAMCM m, uint32_t fileType, uint32_t typeMask,
                                              uint32_t* ids, int32_t capacity, int32_t* count) {
    if (!m || !ids || !count || capacity < 0) return 2;
    *count = 0;
    std::vector<const AMCM_Manager::Entry*> found;
    try {
        for (const auto& e : m->entries)
            if ((e.fileType & fileType) != 0 && (e.type & typeMask) == typeMask)
                found.push_back(&e);
    } catch (...) {
        return 4;
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto* a, const auto* b) { return a->priority < b->priority; });
    for (const auto* e : found) {
        if (*count >= capacity) break;
        if (std::find(ids, ids + *count, e->id) != ids + *count) continue;
        ids[(*count)++] = e->id;
    }
    return 0;
}

MRESULT scrivo::codec::CandidateComponents(MHAMCM manager, uint32_t componentId, uint32_t fileType,
                                           uint32_t kind, uint32_t ids[kMaxCandidates],
                                           int32_t* count) {
    *count = 0;
    if (componentId != 0) {
        ids[0] = componentId;
        *count = 1;
        return 0;
    }
    const MRESULT r =
        MdUtilsFindCodecComponents(manager, fileType, kind, ids, kMaxCandidates, count);
    if (r != 0) return r;
    return *count == 0 ? 3 : 0;
}

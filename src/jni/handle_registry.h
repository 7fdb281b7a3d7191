// Engine handles as the host sees them: small positive ints.
//
// The host class passes engines as a Java int, which cannot hold a pointer in
// a 64-bit process, so the natives hand out registry ids instead. 0 is never
// an id: it stays the "failure" answer of native_CreateEngine, and looking up
// 0 or any id not handed out answers null.
//
// Ids are reused only after their engine was taken out, and then as late as
// possible: new ids are handed out until the registry holds kCapacity ids,
// and only then are released ids reused, oldest release first. A host that
// keeps using a released id therefore gets "unknown" for a long time rather
// than someone else's engine.
//
// Every operation is guarded by one mutex. The registry does not own the
// engines; keeping an engine alive while a caller uses what Find returned is
// the caller's business (the natives run one at a time under their own lock).
#ifndef SCRIVO_BRIDGE_JNI_HANDLE_REGISTRY_H
#define SCRIVO_BRIDGE_JNI_HANDLE_REGISTRY_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "scrivo/engine.h"

namespace scrivo::jni {

class HandleRegistry {
  public:
    static constexpr int32_t kCapacity = 4096;

    explicit HandleRegistry(int32_t capacity = kCapacity) : capacity_(capacity) {}

    // A new id for the engine; 0 for a null engine or a full registry.
    int32_t Add(VPHandle engine);
    // The engine behind the id, or null.
    VPHandle Find(int32_t id) const;
    // Removes the id and answers its engine (null when unknown).
    VPHandle Take(int32_t id);
    // Removes every id (their engines go with the session that made them).
    void TakeAll();

  private:
    mutable std::mutex mutex_;
    std::vector<VPHandle> slots_;  // slots_[id - 1]; null marks a free slot
    std::deque<int32_t> released_;
    int32_t capacity_;
};

// The registry of the process-wide natives.
HandleRegistry& Engines();

}  // namespace scrivo::jni

#endif  // SCRIVO_BRIDGE_JNI_HANDLE_REGISTRY_H

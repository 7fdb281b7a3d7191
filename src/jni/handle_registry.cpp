// Small-integer engine handles for the host (see handle_registry.h for the
// reuse policy). Slot i holds id i + 1; a released id goes to the back of a
// queue and comes back from its front only once the slots are all in use.
#include "jni/handle_registry.h"

namespace scrivo::jni {

int32_t HandleRegistry::Add(VPHandle engine) {
    if (engine == nullptr) return 0;
    std::lock_guard<std::mutex> lock(mutex_);
    if (static_cast<int32_t>(slots_.size()) < capacity_) {
        slots_.push_back(engine);
        return static_cast<int32_t>(slots_.size());
    }
    if (released_.empty()) return 0;
    const int32_t id = released_.front();
    released_.pop_front();
    slots_[static_cast<size_t>(id - 1)] = engine;
    return id;
}

VPHandle HandleRegistry::Find(int32_t id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (id <= 0 || id > static_cast<int32_t>(slots_.size())) return nullptr;
    return slots_[static_cast<size_t>(id - 1)];
}

VPHandle HandleRegistry::Take(int32_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (id <= 0 || id > static_cast<int32_t>(slots_.size())) return nullptr;
    VPHandle engine = slots_[static_cast<size_t>(id - 1)];
    if (engine == nullptr) return nullptr;
    slots_[static_cast<size_t>(id - 1)] = nullptr;
    released_.push_back(id);
    return engine;
}

void HandleRegistry::TakeAll() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (size_t i = 0; i < slots_.size(); ++i) {
        if (slots_[i] == nullptr) continue;
        slots_[i] = nullptr;
        released_.push_back(static_cast<int32_t>(i + 1));
    }
}

HandleRegistry& Engines() {
    static HandleRegistry registry;
    return registry;
}

}  // namespace scrivo::jni

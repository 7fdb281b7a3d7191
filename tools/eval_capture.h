// What the measuring tools share to run photographs the way a capture does:
// the codec components and a capture session over them, and file reading.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <vector>

#include "scrivo/codec.h"
#include "scrivo/session.h"

namespace scrivo_eval {

inline bool ReadFileBytes(const std::filesystem::path& path, std::vector<uint8_t>& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// One per thread: the components and a session; ready() tells whether both
// could be made.
class CaptureSession {
  public:
    CaptureSession() {
        if (AMCM_Create(nullptr, &manager_) != MOK) {
            manager_ = nullptr;
            return;
        }
        if (MdRegisterJpegComponents(manager_) == MOK) session_ = QvSession_Create(manager_);
    }
    ~CaptureSession() {
        QvSession_Destroy(session_);
        if (manager_ != nullptr) AMCM_Destroy(manager_);
    }
    CaptureSession(const CaptureSession&) = delete;
    CaptureSession& operator=(const CaptureSession&) = delete;

    bool ready() const { return session_ != nullptr; }

  protected:
    MHAMCM manager_ = nullptr;
    QvSession* session_ = nullptr;
};

// Makes the tool's capture (a CaptureSession) in `capture` when photographs
// are wanted; false, with the reason on standard error, when the components
// cannot be set up.
template <typename Capture>
bool OpenCapture(bool wanted, std::optional<Capture>& capture, const char* tool) {
    if (!wanted) return true;
    capture.emplace();
    if (capture->ready()) return true;
    std::fprintf(stderr, "%s: cannot set up the codec components\n", tool);
    return false;
}

}  // namespace scrivo_eval

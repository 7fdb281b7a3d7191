// What the measuring tools share to run photographs the way a capture does:
// the codec components and a capture session over them, and file reading.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
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

}  // namespace scrivo_eval

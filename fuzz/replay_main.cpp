// Replays seed files through a fuzz target's entry function without
// libFuzzer, so that ordinary and sanitized builds check every seed:
//   <target>_replay DIR_OR_FILE...
// Files of a folder run in name order. A folder without files fails, so a
// seed folder that went missing is noticed.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

namespace {

bool Replay(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return false;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    // An exact-size heap block (a valid address even when empty), as
    // libFuzzer gives, so that the sanitizers catch any overread.
    auto copy = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    LLVMFuzzerTestOneInput(copy.get(), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s DIR_OR_FILE...\n", argv[0]);
        return 2;
    }
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        std::vector<fs::path> files;
        if (fs::is_directory(argv[i], ec)) {
            for (const auto& e : fs::directory_iterator(argv[i], ec))
                if (e.is_regular_file()) files.push_back(e.path());
            std::sort(files.begin(), files.end());
            if (files.empty()) {
                std::fprintf(stderr, "no seed files in %s\n", argv[i]);
                return 1;
            }
        } else {
            files.emplace_back(argv[i]);
        }
        for (const auto& f : files) {
            if (!Replay(f)) return 1;
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return 0;
}

// Output targets.
//
// What a target is decides how it is written:
//  - "-": standard output, written directly (the result lines then go to
//    standard error, see main.cpp).
//  - an existing device, FIFO or socket (after following links): opened
//    and written directly, never created, truncated or replaced. Replacing
//    was the old behaviour for every target, and as root `-o /dev/stdout`
//    turned the device link into a plain file.
//  - a symbolic link to a regular file (or to a name not there yet): the
//    link is followed and its final target written, so the link stays. A
//    broken link whose target's folder is missing is refused.
//  - a regular file or a new name: the bytes go to "<target>.<pid>.part"
//    next to the final target, are synced to disk, and only then renamed
//    over it, and the folder is synced so the rename itself survives a
//    crash. A full disk or a killed process never leaves a truncated page
//    under the final name; SIGINT and SIGTERM remove the temporary (it is
//    registered before it is created, see signals.cpp).
#include "output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "signals.h"

namespace fs = std::filesystem;

namespace scrivo_cli {

namespace {

std::string Reason(int error) {
    return std::string("cannot write: ") + std::strerror(error);
}

// Closes a descriptor on every exit path.
struct Fd {
    int fd = -1;
    explicit Fd(int f) : fd(f) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() {
        if (fd >= 0) close(fd);
    }
};

bool WriteAll(int fd, const uint8_t* data, size_t size, int& error) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            error = n < 0 ? errno : EIO;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

// An existing target that is not a regular file or folder (following links).
bool IsSpecialTarget(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
}

// The file a regular-file target finally names: links followed (the last
// component too), so the rename replaces the target and not the link.
std::string FinalTarget(const std::string& path) {
    std::string current = path;
    for (int hops = 0; hops < 40; ++hops) {
        std::error_code ec;
        if (!fs::is_symlink(fs::symlink_status(current, ec))) return current;
        const fs::path link = fs::read_symlink(current, ec);
        if (ec) return current;
        current =
            link.is_absolute() ? link.string() : (fs::path(current).parent_path() / link).string();
    }
    return current;  // a loop: the open reports it
}

bool WriteDirectly(const std::string& path, const uint8_t* data, size_t size, std::string& error) {
    Fd out(path == kStandardOutput ? dup(1) : open(path.c_str(), O_WRONLY | O_CLOEXEC));
    int saved = errno;
    if (out.fd < 0 || !WriteAll(out.fd, data, size, saved)) {
        error = Reason(saved);
        return false;
    }
    return true;
}

void SyncFolderOf(const std::string& path) {
    const fs::path parent = fs::path(path).parent_path();
    Fd dir(open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.fd >= 0) fsync(dir.fd);
}

// "<target>.<pid>.part", beside the target so that the rename stays on
// one file system.
std::string PartNameFor(const std::string& target) {
    return target + "." + std::to_string(static_cast<long>(getpid())) + ".part";
}

void RemoveTemporary(const std::string& temporary) {
    unlink(temporary.c_str());
    ForgetTemporary(temporary);
}

}  // namespace

bool EnsureParentFolder(const std::string& path, std::string* error) {
    const fs::path parent = fs::path(FinalTarget(path)).parent_path();
    std::error_code ec;
    if (parent.empty() || fs::is_directory(parent, ec)) return true;
    fs::create_directories(parent, ec);
    if (ec && error != nullptr)
        *error = "cannot create the folder " + parent.string() + ": " + ec.message();
    return !ec;
}

std::string TemporaryNameFor(const std::string& path) {
    std::string temporary;
    if (path == kStandardOutput || IsSpecialTarget(path)) {
        static std::atomic<unsigned> counter{0};
        temporary = (fs::temp_directory_path() / ("scrivo." + std::to_string(getpid()) + "." +
                                                  std::to_string(counter++) + ".part"))
                        .string();
    } else {
        temporary = PartNameFor(FinalTarget(path));
    }
    RegisterTemporary(temporary);
    return temporary;
}

bool CommitTemporary(const std::string& temporary, const std::string& path, std::string& error) {
    Fd in(open(temporary.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.fd < 0) {
        error = Reason(errno);
        RemoveTemporary(temporary);
        return false;
    }
    if (path == kStandardOutput || IsSpecialTarget(path)) {
        // Copy into the device or FIFO; the temporary was only a staging file.
        std::string bytes;
        char buffer[65536];
        ssize_t n;
        while ((n = read(in.fd, buffer, sizeof buffer)) > 0) bytes.append(buffer, n);
        const bool ok =
            n == 0 && WriteDirectly(path, reinterpret_cast<const uint8_t*>(bytes.data()),
                                    bytes.size(), error);
        if (n < 0) error = Reason(errno);
        RemoveTemporary(temporary);
        return ok;
    }
    const std::string target = FinalTarget(path);
    if (fsync(in.fd) != 0 || rename(temporary.c_str(), target.c_str()) != 0) {
        error = Reason(errno);
        RemoveTemporary(temporary);
        return false;
    }
    ForgetTemporary(temporary);
    SyncFolderOf(target);
    return true;
}

bool WriteOutput(const std::string& path, const uint8_t* data, size_t size, std::string& error) {
    if (path == kStandardOutput || IsSpecialTarget(path))
        return WriteDirectly(path, data, size, error);
    const std::string target = FinalTarget(path);
    if (!EnsureParentFolder(target, &error)) return false;
    const std::string temporary = PartNameFor(target);
    RegisterTemporary(temporary);
    Fd out(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    int saved = errno;
    bool ok = out.fd >= 0 && WriteAll(out.fd, data, size, saved);
    if (ok && fsync(out.fd) != 0) ok = false, saved = errno;
    if (out.fd >= 0 && close(std::exchange(out.fd, -1)) != 0 && ok) ok = false, saved = errno;
    if (ok && rename(temporary.c_str(), target.c_str()) != 0) ok = false, saved = errno;
    if (ok) {
        ForgetTemporary(temporary);
        SyncFolderOf(target);
        return true;
    }
    error = Reason(saved);
    RemoveTemporary(temporary);
    return false;
}

}  // namespace scrivo_cli

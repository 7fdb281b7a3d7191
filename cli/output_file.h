// Writing a result (page or overlay) so that a failed or interrupted write
// never leaves a half-written file under the final name, and so that a
// target that is not a plain file is treated as what it is.
#ifndef SCRIVO_CLI_OUTPUT_FILE_H
#define SCRIVO_CLI_OUTPUT_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace scrivo_cli {

// The output name that means standard output.
inline constexpr const char* kStandardOutput = "-";

// Writes the bytes to `path`: "-" is standard output; a device or FIFO is
// written to directly; a regular file (or a new name) through a synced
// temporary renamed over it; a symbolic link is followed, so its target
// gets the bytes and the link stays. On failure sets `error` to the reason.
bool WriteOutput(const std::string& path, const uint8_t* data, size_t size, std::string& error);

// Creates the folder an output goes into when it does not exist yet; false
// with the reason, when asked for ("cannot create the folder X: Read-only
// file system").
bool EnsureParentFolder(const std::string& path, std::string* error = nullptr);

// For writers that make the file themselves (the overlay is saved by the
// codec framework): the temporary to write, registered for removal on an
// interrupt, then committed to `path` as WriteOutput would.
std::string TemporaryNameFor(const std::string& path);
bool CommitTemporary(const std::string& temporary, const std::string& path, std::string& error);

}  // namespace scrivo_cli

#endif

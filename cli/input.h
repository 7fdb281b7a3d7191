// Files in and out of the tool: reading a photograph, telling what is wrong
// with bytes that are not a usable JPEG, and writing a result so that a
// failed or interrupted write never leaves a half-written page behind.
#ifndef SCRIVO_CLI_INPUT_H
#define SCRIVO_CLI_INPUT_H

#include <cstdint>
#include <string>
#include <vector>

namespace scrivo_cli {

// Reads a whole file. On failure returns false and sets `error` to the
// reason ("cannot read: ...", "file too large").
bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error);

// What the marker structure of a JPEG says about it, without decoding.
struct JpegShape {
    std::string problem;  // empty when the structure is complete
    int32_t width = 0;    // from the frame header
    int32_t height = 0;
};
// "empty file", "not a JPEG", "truncated", or "no image size in the JPEG
// headers"; otherwise the size of the frame.
JpegShape InspectJpeg(const std::vector<uint8_t>& bytes);

// Writes the bytes to `path` through a temporary file next to it that is
// renamed over the target only when everything was written.
bool WriteFileAtomically(const std::string& path, const uint8_t* data, size_t size,
                         std::string& error);
// Creates the folder an output goes into when it does not exist yet.
void EnsureParentFolder(const std::string& path);
// The temporary name WriteFileAtomically uses, for writers that make the
// file themselves (the overlay is saved by the codec framework).
std::string TemporaryNameFor(const std::string& path);
bool CommitTemporary(const std::string& temporary, const std::string& path, std::string& error);

}  // namespace scrivo_cli

#endif

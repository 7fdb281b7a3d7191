// Memory for the large images of a capture (the photograph, the page, its
// planes), which the system may back with huge pages.
//
// A page fault maps one 4 KiB page at a time; the first write to a fresh
// 36 MB photograph takes about nine thousand of them, which on some
// systems (virtual machines in particular) costs more than decoding the
// photograph. Blocks of kLargeBlockBytes and more are therefore aligned to
// 2 MiB and offered to the kernel for transparent huge pages
// (madvise MADV_HUGEPAGE), where one fault maps 2 MiB. Where the system has
// no such pages the advice is ignored and nothing else changes. Smaller
// blocks come from the ordinary heap. Only the memory's backing differs:
// never a pixel value.
#pragma once

#include <cstddef>

#include <opencv2/core.hpp>

namespace scrivo::pixel {

constexpr size_t kLargeBlockBytes = size_t{4} << 20;

// A block of `bytes` (aligned and advised as above when large); null when
// memory runs out. FreeLargeBlock takes null too.
void* AllocLargeBlock(size_t bytes);
void FreeLargeBlock(void* block);

// An OpenCV allocator over AllocLargeBlock. Images made with it free their
// memory through it wherever their last reference goes.
cv::MatAllocator* LargeImageAllocator();

// cv::Mat::create with the large-image allocator: an image that has the
// shape already is kept as it is; otherwise it gets new memory from
// AllocLargeBlock.
void CreateLarge(cv::Mat& image, int rows, int cols, int type);
inline void CreateLarge(cv::Mat& image, cv::Size size, int type) {
    CreateLarge(image, size.height, size.width, type);
}

}  // namespace scrivo::pixel

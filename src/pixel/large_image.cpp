// Large blocks on huge-page-aligned memory (see large_image.h), and the
// OpenCV allocator over them: the same bookkeeping as OpenCV's own heap
// allocator, with the blocks from AllocLargeBlock.
#include "pixel/large_image.h"

#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace scrivo::pixel {

namespace {

constexpr size_t kHugePage = size_t{2} << 20;

class LargeAllocator final : public cv::MatAllocator {
  public:
    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data0, size_t* step,
                           cv::AccessFlag, cv::UMatUsageFlags) const override {
        size_t total = CV_ELEM_SIZE(type);
        for (int i = dims - 1; i >= 0; --i) {
            if (step != nullptr) {
                if (data0 != nullptr && step[i] != cv::Mat::AUTO_STEP)
                    total = step[i];
                else
                    step[i] = total;
            }
            total *= static_cast<size_t>(sizes[i]);
        }
        auto* data = static_cast<uchar*>(data0 != nullptr ? data0 : AllocLargeBlock(total));
        if (data == nullptr) CV_Error_(cv::Error::StsNoMem, ("no memory for %zu bytes", total));
        auto* u = new cv::UMatData(this);
        u->data = u->origdata = data;
        u->size = total;
        if (data0 != nullptr) u->flags |= cv::UMatData::USER_ALLOCATED;
        return u;
    }

    bool allocate(cv::UMatData* u, cv::AccessFlag, cv::UMatUsageFlags) const override {
        return u != nullptr;
    }

    void deallocate(cv::UMatData* u) const override {
        if (u == nullptr) return;
        if (!(u->flags & cv::UMatData::USER_ALLOCATED)) FreeLargeBlock(u->origdata);
        u->origdata = nullptr;
        delete u;
    }
};

}  // namespace

void* AllocLargeBlock(size_t bytes) {
    if (bytes < kLargeBlockBytes) return std::malloc(bytes == 0 ? 1 : bytes);
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    void* block = nullptr;
    if (posix_memalign(&block, kHugePage, rounded) != 0) return nullptr;
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    madvise(block, rounded, MADV_HUGEPAGE);  // advice only: refused, nothing changes
#endif
    return block;
}

void FreeLargeBlock(void* block) {
    std::free(block);
}

cv::MatAllocator* LargeImageAllocator() {
    static LargeAllocator allocator;
    return &allocator;
}

void CreateLarge(cv::Mat& image, int rows, int cols, int type) {
    // As cv::Mat::create: an image of that shape is kept (and written in
    // place, a view into a larger image included).
    if (image.rows == rows && image.cols == cols && image.type() == type && image.dims == 2 &&
        image.data != nullptr)
        return;
    image.release();
    image.allocator = LargeImageAllocator();
    image.create(rows, cols, type);
}

}  // namespace scrivo::pixel

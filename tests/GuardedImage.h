#pragma once
// A float image whose pixels lie against a page that may not be read, so that a load one element
// before the first row or one after the last one stops the test with a fault instead of reading
// a neighbour's memory silently.
#include "image/Image.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace quelmor::test {

class GuardedImage {
public:
    enum Side { kGuardBefore, kGuardAfter };

    // A dense width x height image of `channels` floats, top-down, zero-filled.
    GuardedImage(int width, int height, int channels, Side side) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t bytes = static_cast<size_t>(width) * height * channels * sizeof(float);
        const size_t inner = (bytes + page - 1) / page * page;
        size_ = inner + 2 * page;
        void* map = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map == MAP_FAILED) return;
        base_ = static_cast<uint8_t*>(map);
        mprotect(base_ + page, inner, PROT_READ | PROT_WRITE);
        uint8_t* first = side == kGuardBefore ? base_ + page : base_ + page + inner - bytes;
        std::memset(first, 0, bytes);
        image_.reset(new DQImage(first, width, height, channels, DQ_FLOAT, 0));
    }
    ~GuardedImage() {
        image_.reset();
        if (base_) munmap(base_, size_);
    }
    GuardedImage(const GuardedImage&) = delete;
    GuardedImage& operator=(const GuardedImage&) = delete;

    DQImage* get() const { return image_.get(); }
    DQImage& operator*() const { return *image_; }
    DQImage* operator->() const { return image_.get(); }

private:
    uint8_t* base_ = nullptr;
    size_t size_ = 0;
    DQImagePtr image_;
};

} // namespace quelmor::test

#pragma once
// Vector images that a test engine lends through its vector slots: each loan is a copy of the
// pixels handed over, counted and kept until the engine gives it back through a release slot.
#include "MemoryClipEngine.h"

#include <map>
#include <memory>

namespace quelmor::test {

class VectorLoans {
public:
    // Lends a copy of `pixels` through `*vectors`.
    void Lend(ZUImage** vectors, const DQImage& pixels) {
        auto frame = std::make_unique<OwnedFrame>(pixels, std::array<int, 4>{0, 1, 2, 3});
        *vectors = frame->Image();
        images_[*vectors] = std::move(frame);
        ++lent;
    }
    // Takes a loan back; an image that is not out is not counted.
    int Release(ZUImage* vectors) {
        if (images_.erase(vectors) == 1) ++released;
        return 0;
    }
    int Outstanding() const { return int(images_.size()); }

    int lent = 0;
    int released = 0;

private:
    std::map<ZUImage*, std::unique_ptr<OwnedFrame>> images_;
};

} // namespace quelmor::test

#pragma once
// Small building blocks shared by the pixel loops of warp/: scratch memory from the library heap,
// direct row addressing of an image, and the rounding store of a float sample.
#include "image/DQImage.h"
#include "image/KernelSpace.h"
#include "image/Mem.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

// A block of `count` elements from the library heap, released with the object. Allocation
// failures throw DQErr 1.
template <class E>
class Scratch {
public:
    explicit Scratch(size_t count)
        : data_(static_cast<E*>(ZUMemAllocate(count ? count * sizeof(E) : sizeof(E)))) {}
    ~Scratch() { ZUMemRelease(data_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    E* get() const { return data_; }
    E& operator[](size_t i) const { return data_[i]; }

private:
    E* data_;
};

// Typed arrays cut one after another from a block of bytes, each on a 64-byte boundary. Run once
// without a block to learn the size (Used), then over a block of that size.
class Carver {
public:
    static constexpr size_t kAlign = 64;
    explicit Carver(uint8_t* block = nullptr) : block_(block) {}
    template <class E>
    E* Take(size_t count) {
        E* p = block_ ? reinterpret_cast<E*>(block_ + used_) : nullptr;
        used_ += (count * sizeof(E) + kAlign - 1) / kAlign * kAlign;
        return p;
    }
    size_t Used() const { return used_; }

private:
    uint8_t* block_;
    size_t used_ = 0;
};

// The working memory of the bands of one parallel pass, the same size for each band, made before
// the fork so that bands allocate nothing.
class BandSpace {
public:
    BandSpace(int bands, size_t bytesPerBand)
        : stride_((bytesPerBand + Carver::kAlign - 1) / Carver::kAlign * Carver::kAlign),
          block_(stride_ * static_cast<size_t>(bands > 0 ? bands : 1) + Carver::kAlign) {}
    uint8_t* For(int band) const {
        const auto base = reinterpret_cast<uintptr_t>(block_.get());
        const uintptr_t aligned = (base + Carver::kAlign - 1) / Carver::kAlign * Carver::kAlign;
        return reinterpret_cast<uint8_t*>(aligned) + stride_ * static_cast<size_t>(band);
    }

private:
    size_t stride_;
    Scratch<uint8_t> block_;
};

// Logical rows of an image as a base address and a signed step, so that row y + 1 is one add
// away from row y whatever the storage order.
template <class T>
struct RowView {
    uint8_t* origin = nullptr;
    int32_t step = 0;
    int32_t lastColumn = 0;
    int32_t lastRow = 0;

    RowView() = default;
    explicit RowView(const DQImage& image)
        : origin(image.RowAddress(0)), step(image.rowStep), lastColumn(image.lastColumn),
          lastRow(image.lastRow) {}
    T* Row(int y) const { return reinterpret_cast<T*>(origin + static_cast<int32_t>(y * step)); }
    static const T* Next(const T* row, int32_t step) {
        return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(row) + step);
    }
};

template <class T>
inline constexpr float kMaxElement = std::is_same_v<T, uint8_t>    ? 255.0f
                                     : std::is_same_v<T, uint16_t> ? 65535.0f
                                                                   : 0.0f;

// Integer elements: truncate(v + 0.5) saturated to the element's range (NaN gives 0). Floats are
// stored as they are.
template <class T>
inline T StoreSample(float v) {
    if constexpr (std::is_floating_point_v<T>) {
        return v;
    } else {
        const float r = v + 0.5f;
        if (!(r > 0.0f)) return 0;
        if (r >= kMaxElement<T>) return static_cast<T>(kMaxElement<T>);
        return static_cast<T>(static_cast<int32_t>(r));
    }
}

// The value an element takes after StoreSample, as a float: what a later pass of a filter reads
// back from an image of type T.
template <class T>
inline float Quantise(float v) {
    if constexpr (std::is_floating_point_v<T>)
        return v;
    else
        return static_cast<float>(StoreSample<T>(v));
}

QUELMOR_KERNELS_END
} // namespace warp_detail

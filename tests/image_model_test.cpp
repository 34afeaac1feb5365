#include "ImagePatterns.h"
#include "TestSupport.h"

#include <cstring>
#include <vector>

using quelmor::test::At;

namespace {

// An allocator that refuses blocks of `failFrom` bytes or more and counts what it hands out;
// installed for the scope of a test, malloc and free restored afterwards.
struct HeapScope {
    size_t failFrom = SIZE_MAX;
    int allocations = 0, releases = 0;
    explicit HeapScope(size_t fail = SIZE_MAX) : failFrom(fail) {
        ZUMemSetAllocator(this, Allocate, Release);
    }
    ~HeapScope() { ZUMemSetAllocator(nullptr, nullptr, nullptr); }
    static void* Allocate(void* context, size_t size) {
        auto* heap = static_cast<HeapScope*>(context);
        if (size >= heap->failFrom) return nullptr;
        ++heap->allocations;
        return std::malloc(size);
    }
    static void Release(void* context, void* pointer) {
        ++static_cast<HeapScope*>(context)->releases;
        std::free(pointer);
    }
};

constexpr int kTypes[] = {DQ_UCHAR, DQ_USHORT, DQ_FLOAT};

} // namespace

TEST(ImageModel, BottomUpAndTopDownShowTheSamePicture) {
    // Memory holds the rows in opposite order; every accessor sees the same pixel.
    for (int type : kTypes) {
        for (int channels : {1, 3, 4}) {
            SCOPED_TRACE(::testing::Message() << "type " << type << ", " << channels << " ch");
            const int w = 5, h = 4;
            DQImage top(w, h, channels, type, 0);
            DQImage bottom(w, h, channels, type, 1);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    for (int c = 0; c < channels; ++c) {
                        const float v = (10.0f * y + x + c) / (type == DQ_FLOAT ? 100 : 1);
                        top.SetChannelFloat(x, y, c, v);
                        bottom.SetChannelFloat(x, y, c, v);
                    }
            for (int y = 0; y < h; ++y) {
                EXPECT_EQ(std::memcmp(top.data + y * top.rowBytes,
                                      bottom.data + (h - 1 - y) * bottom.rowBytes, top.rowBytes),
                          0)
                    << "row " << y;
                EXPECT_EQ(bottom.RowAddress(y) + bottom.rowStep, bottom.RowAddress(y + 1));
                for (int x = 0; x < w; ++x)
                    for (int c = 0; c < channels; ++c)
                        ASSERT_EQ(At(top, x, y, c), At(bottom, x, y, c)) << x << "," << y;
            }
        }
    }
}

TEST(ImageModel, ConstructionKinds) {
    // Every construction form, with and without throwOnFailure, for the three image types.
    static uint8_t storage[8 * 6 * 4 * 4];
    struct Kind {
        const char* name;
        DQImage* (*make)(int type);
        bool owns;
        int pitch; // 0: dense
    };
    const Kind kinds[] = {
        {"owned", [](int t) { return new DQImage(8, 6, 3, t, 1); }, true, 0},
        {"owned, throw 0", [](int t) { return new DQImage(0, 8, 6, 3, t, 1); }, true, 0},
        {"owned, throw 1", [](int t) { return new DQImage(1, 8, 6, 3, t, 1); }, true, 0},
        {"pitched", [](int t) { return new DQImage(storage, 8, 6, 128, 3, t, 1); }, false, 128},
        {"pitched, 0", [](int t) { return new DQImage(0, storage, 8, 6, 128, 3, t, 1); }, false,
         128},
        {"dense view", [](int t) { return new DQImage(storage, 8, 6, 3, t, 1); }, false, 0},
        {"dense view, 1", [](int t) { return new DQImage(1, storage, 8, 6, 3, t, 1); }, false, 0},
    };
    const float whites[] = {255.0f, 65535.0f, 1.0f};
    for (const Kind& kind : kinds) {
        for (int type : kTypes) {
            SCOPED_TRACE(::testing::Message() << kind.name << ", type " << type);
            std::unique_ptr<DQImage> image(kind.make(type));
            EXPECT_EQ(image->errorCode, 0);
            EXPECT_EQ(image->rowBytes, kind.pitch ? kind.pitch : 8 * 3 * kElementBytes[type]);
            EXPECT_EQ(image->ownsData, kind.owns ? 1 : 0);
            EXPECT_EQ(image->data, kind.owns ? image->data : storage);
            EXPECT_NE(image->data, nullptr);
            EXPECT_EQ(image->whitePoint, whites[type]);
            // Bottom-up rows count from the last row in memory, a pitch apart.
            EXPECT_EQ(image->RowAddress(0), image->data + 5 * image->rowBytes);
            EXPECT_EQ(image->rowStep, -image->rowBytes);
        }
    }
}

TEST(ImageModel, EmptyAndNullViews) {
    HeapScope heap;
    {
        DQImage empty(0, 1);
        EXPECT_EQ(empty.data, nullptr);
        EXPECT_EQ(empty.width + empty.height + empty.channels + empty.ownsData, 0);
        empty.Clear();
        DQImage nullView(nullptr, 640, 480, 4, DQ_UCHAR, 0);
        EXPECT_EQ(nullView.width + nullView.height, 0);
        DQImage nullPitched(1, nullptr, 640, 480, 2560, 4, DQ_UCHAR, 0);
        EXPECT_EQ(nullPitched.width, 0);
        uint16_t pixels[6] = {1, 2, 3, 4, 5, 6};
        nullView.Rebind(pixels, 3, 2, 6, 1, DQ_USHORT, 0);
        EXPECT_EQ(nullView.whitePoint, 65535.0f);
        EXPECT_EQ(*nullView.Row<uint16_t>(1), 4);
    }
    DQClear(nullptr);
    EXPECT_EQ(heap.allocations + heap.releases, 0);
}

TEST(ImageModel, AllocationFailureFollowsThrowOnFailure) {
    // -1: the form without the argument; -2: DQMakeImage. Only exactly 1 throws.
    const struct {
        int throwOnFailure;
        bool throws;
    } cases[] = {{-1, true}, {0, false}, {1, true}, {2, false}, {-2, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.throwOnFailure);
        HeapScope heap(1000); // the image object fits, its pixels do not
        auto make = [&]() -> DQImage* {
            if (c.throwOnFailure == -2) return DQMakeImage(100, 100, 4, DQ_UCHAR).release();
            return c.throwOnFailure < 0 ? new DQImage(100, 100, 4, DQ_UCHAR, 0)
                                        : new DQImage(c.throwOnFailure, 100, 100, 4, DQ_UCHAR, 0);
        };
        if (c.throws) {
            try {
                delete make();
                ADD_FAILURE() << "no exception";
            } catch (DQErr code) {
                EXPECT_EQ(code, kDQErrMemory);
            }
            EXPECT_EQ(heap.allocations, heap.releases) << "the half-built object went back";
        } else {
            DQImage* image = make();
            EXPECT_EQ(image->errorCode, kDQErrMemory);
            EXPECT_EQ(image->data, nullptr);
            EXPECT_EQ(image->ownsData, 0);
            delete image;
            EXPECT_EQ(heap.allocations, 1);
            EXPECT_EQ(heap.releases, 1);
        }
    }
}

TEST(ImageModel, PixelsComeFromAndReturnToTheReplaceableHeap) {
    HeapScope heap;
    {
        DQImage owned(0, 16, 16, 2, DQ_FLOAT, 0);
        DQImage view(owned.data, 16, 16, 2, DQ_FLOAT, 0);
        EXPECT_EQ(heap.allocations, 1);
    }
    EXPECT_EQ(heap.releases, 1) << "the view must not free, the owner must";
    DQImagePtr temp = DQMakeImage(4, 4, 1, DQ_UCHAR);
    EXPECT_EQ(heap.allocations, 3); // object and pixels
    temp.reset();
    EXPECT_EQ(heap.releases, 3);
}

TEST(Heap, AllocateAndResize) {
    HeapScope heap(1 << 20);
    auto* block = static_cast<uint8_t*>(ZUMemAllocate(8));
    for (int i = 0; i < 8; ++i)
        block[i] = static_cast<uint8_t>(i + 1);
    auto* grown = static_cast<uint8_t*>(ZUMemResize(block, 16, 8));
    auto* shrunk = static_cast<uint8_t*>(ZUMemResize(grown, 4, 16));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(shrunk[i], i + 1) << "byte " << i;
    EXPECT_EQ(heap.releases, 2);
    try {
        ZUMemResize(shrunk, 1 << 21, 4);
        ADD_FAILURE() << "a failed resize must throw";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrMemory);
    }
    EXPECT_EQ(shrunk[3], 4) << "a failed resize keeps the old block";
    ZUMemRelease(shrunk);
    ZUMemRelease(ZUMemResize(nullptr, 32, 0));
    ZUMemRelease(nullptr);
    EXPECT_EQ(heap.allocations, heap.releases);
    EXPECT_THROW(ZUMemAllocate(1 << 21), DQErr);
}

TEST(ElementConversions, ReadersAndWriters) {
    // A type, the bytes of one element, the float the reader gives, a float handed to the writer
    // and the bytes it stores.
    struct Case {
        int type;
        std::vector<uint8_t> element;
        float read, written;
        std::vector<uint8_t> stored;
    };
    auto bytesOf = [](auto value) {
        std::vector<uint8_t> b(sizeof value);
        std::memcpy(b.data(), &value, sizeof value);
        return b;
    };
    const Case cases[] = {
        {DQ_UCHAR, {200}, 200.0f, 300.7f, {44}}, // keeps the low bits
        {DQ_USHORT, bytesOf(uint16_t{65535}), 65535.0f, 1234.99f, bytesOf(uint16_t{1234})},
        {DQ_FLOAT, bytesOf(0.25f), 0.25f, -3.5f, bytesOf(-3.5f)},
        {DQ_CHAR, bytesOf(int8_t{-5}), -5.0f, -5.9f, bytesOf(int8_t{-5})},
        {DQ_SHORT, bytesOf(int16_t{-300}), -300.0f, 129.5f, bytesOf(int16_t{129})},
        // The fixed-point forms scale by 2^-16 both ways.
        {DQ_FIX16S, bytesOf(int16_t{-32768}), -0.5f, 65536.0f * 100.0f, bytesOf(int16_t{100})},
        {DQ_FIX16U, bytesOf(uint16_t{32768}), 0.5f, 0.25f, bytesOf(uint16_t{16384})},
        {DQ_DOUBLE, bytesOf(2.5), 2.5f, 0.125f, bytesOf(0.125)},
        {DQ_LONG, bytesOf(int64_t{-7}), -7.0f, 12.75f, bytesOf(int64_t{12})}, // declared 4, moves 8
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        float value = -1.0f;
        DQGetElementReader(c.type)(&value, c.element.data());
        EXPECT_EQ(value, c.read);
        std::vector<uint8_t> out(9, 0xEE);
        DQGetElementWriter(c.type)(out.data(), c.written);
        EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + c.stored.size()), c.stored);
        EXPECT_EQ(out[c.stored.size()], 0xEE) << "wrote past the element";
    }
    EXPECT_EQ(kElementBytes[DQ_LONG], 4);
    EXPECT_EQ(DQGetElementReader(9), nullptr);
    EXPECT_EQ(DQGetElementWriter(-1), nullptr);
}

TEST(ImageModel, GenericPixelAccess) {
    DQImage floats(2, 2, 2, DQ_FLOAT, 1);
    const float vector[2] = {0.5f, -2.0f};
    floats.SetPixelFloat(0, 1, vector);
    EXPECT_EQ(At(floats, 0, 1, 1), -2.0f);
    // The float image reads through the 16-bit path: the low word of 0.5f is 0.
    float raw[2] = {-1, -1};
    floats.GetPixelFloat(0, 1, raw);
    EXPECT_EQ(raw[0], 0.0f);
}

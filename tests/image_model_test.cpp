#include "TestSupport.h"

#include <cstring>
#include <vector>

namespace {

// An allocator that refuses blocks of `failFrom` bytes or more and counts what it hands out.
struct CountingHeap {
    size_t failFrom = SIZE_MAX;
    int allocations = 0;
    int releases = 0;

    static void* Allocate(void* context, size_t size) {
        auto* heap = static_cast<CountingHeap*>(context);
        if (size >= heap->failFrom) return nullptr;
        ++heap->allocations;
        return std::malloc(size);
    }
    static void Release(void* context, void* pointer) {
        ++static_cast<CountingHeap*>(context)->releases;
        std::free(pointer);
    }
};

// Installs a CountingHeap for the scope of a test and restores malloc and free afterwards.
class HeapScope {
public:
    explicit HeapScope(size_t failFrom = SIZE_MAX) {
        heap.failFrom = failFrom;
        ZUMemSetAllocator(&heap, CountingHeap::Allocate, CountingHeap::Release);
    }
    ~HeapScope() { ZUMemSetAllocator(nullptr, nullptr, nullptr); }
    CountingHeap heap;
};

constexpr int kTypes[] = {DQ_UCHAR, DQ_USHORT, DQ_FLOAT};

} // namespace

TEST(ImageModel, BottomUpAndTopDownShowTheSamePicture) {
    // The same logical picture written through both storage orders: memory holds the rows in
    // opposite order, and every accessor sees the same pixel at the same coordinates.
    for (int type : kTypes) {
        for (int channels : {1, 3, 4}) {
            SCOPED_TRACE(::testing::Message() << "type " << type << ", " << channels << " ch");
            const int w = 5, h = 4;
            DQImage top(w, h, channels, type, 0);
            DQImage bottom(w, h, channels, type, 1);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    for (int c = 0; c < channels; ++c) {
                        const float v =
                            static_cast<float>(10 * y + x + c) / (type == DQ_FLOAT ? 100 : 1);
                        top.SetChannelFloat(x, y, c, v);
                        bottom.SetChannelFloat(x, y, c, v);
                    }
            EXPECT_EQ(top.RowAddress(0), top.data);
            for (int y = 0; y < h; ++y) {
                // Logical row y of one is memory row h - 1 - y of the other.
                EXPECT_EQ(std::memcmp(top.data + y * top.rowBytes,
                                      bottom.data + (h - 1 - y) * bottom.rowBytes, top.rowBytes),
                          0)
                    << "row " << y;
                EXPECT_EQ(bottom.RowAddress(y) + bottom.rowStep, bottom.RowAddress(y + 1));
                for (int x = 0; x < w; ++x) {
                    EXPECT_EQ(top.PixelAddress(x, y) - top.RowAddress(y), x * top.pixelBytes);
                    for (int c = 0; c < channels; ++c) {
                        float a = -1, b = -2;
                        top.GetChannelFloat(x, y, &a, c);
                        bottom.GetChannelFloat(x, y, &b, c);
                        ASSERT_EQ(a, b) << "pixel " << x << "," << y << " channel " << c;
                    }
                }
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
        int rowBytesPerPixel; // 0: dense; otherwise the given pitch in bytes
    };
    const Kind kinds[] = {
        {"owned", [](int t) { return new DQImage(8, 6, 3, t, 1); }, true, 0},
        {"owned, throw 0", [](int t) { return new DQImage(0, 8, 6, 3, t, 1); }, true, 0},
        {"owned, throw 1", [](int t) { return new DQImage(1, 8, 6, 3, t, 1); }, true, 0},
        {"pitched view", [](int t) { return new DQImage(storage, 8, 6, 128, 3, t, 1); }, false,
         128},
        {"pitched view, throw 0", [](int t) { return new DQImage(0, storage, 8, 6, 128, 3, t, 1); },
         false, 128},
        {"dense view", [](int t) { return new DQImage(storage, 8, 6, 3, t, 1); }, false, 0},
        {"dense view, throw 1", [](int t) { return new DQImage(1, storage, 8, 6, 3, t, 1); }, false,
         0},
    };
    const float whites[] = {255.0f, 65535.0f, 1.0f};
    for (const Kind& kind : kinds) {
        for (int type : kTypes) {
            SCOPED_TRACE(::testing::Message() << kind.name << ", type " << type);
            std::unique_ptr<DQImage> image(kind.make(type));
            EXPECT_EQ(image->errorCode, 0);
            EXPECT_EQ(image->pixelBytes, 3 * kElementBytes[type]);
            EXPECT_EQ(image->rowBytes,
                      kind.rowBytesPerPixel ? kind.rowBytesPerPixel : 8 * 3 * kElementBytes[type]);
            EXPECT_EQ(image->ownsData, kind.owns ? 1 : 0);
            if (!kind.owns) {
                EXPECT_EQ(image->data, storage);
            }
            EXPECT_NE(image->data, nullptr);
            EXPECT_EQ(image->whitePoint, whites[type]);
            EXPECT_EQ(image->lastRow, 5);
            EXPECT_EQ(image->rowStep, -image->rowBytes);
            // Bottom-up rows count from the last row in memory, a pitch apart.
            EXPECT_EQ(image->RowAddress(0), image->data + 5 * image->rowBytes);
            EXPECT_EQ(image->readElement, DQGetElementReader(type));
        }
    }
}

TEST(ImageModel, EmptyAndNullViews) {
    HeapScope scope;
    {
        DQImage empty(0, 1);
        EXPECT_EQ(empty.data, nullptr);
        EXPECT_EQ(empty.width, 0);
        EXPECT_EQ(empty.height, 0);
        EXPECT_EQ(empty.channels, 0);
        EXPECT_EQ(empty.ownsData, 0);
        EXPECT_EQ(empty.bottomUp, 1);
        empty.Clear();
        DQImage nullView(nullptr, 640, 480, 4, DQ_UCHAR, 0);
        EXPECT_EQ(nullView.width, 0);
        EXPECT_EQ(nullView.height, 0);
        DQImage nullPitched(1, nullptr, 640, 480, 2560, 4, DQ_UCHAR, 0);
        EXPECT_EQ(nullPitched.width, 0);
        // A null view can be rebound to real storage.
        uint16_t pixels[6] = {1, 2, 3, 4, 5, 6};
        nullView.Rebind(pixels, 3, 2, 6, 1, DQ_USHORT, 0);
        EXPECT_EQ(nullView.whitePoint, 65535.0f);
        EXPECT_EQ(*nullView.Row<uint16_t>(1), 4);
    }
    DQClear(nullptr);
    EXPECT_EQ(scope.heap.allocations, 0);
    EXPECT_EQ(scope.heap.releases, 0);
}

TEST(ImageModel, AllocationFailureFollowsThrowOnFailure) {
    struct Case {
        const char* name;
        int throwOnFailure; // -1: the form without the argument
        bool throws;
    };
    const Case cases[] = {
        {"no argument", -1, true},     {"throwOnFailure 0", 0, false},
        {"throwOnFailure 1", 1, true}, {"throwOnFailure 2", 2, false}, // only exactly 1 throws
        {"DQMakeImage", -2, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HeapScope scope(1000); // the image object fits, its pixels do not
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
            // The half-built object went back to the heap.
            EXPECT_EQ(scope.heap.allocations, scope.heap.releases);
        } else {
            DQImage* image = make();
            EXPECT_EQ(image->errorCode, kDQErrMemory);
            EXPECT_EQ(image->data, nullptr);
            EXPECT_EQ(image->ownsData, 0);
            delete image;
            EXPECT_EQ(scope.heap.allocations, 1);
            EXPECT_EQ(scope.heap.releases, 1);
        }
    }
}

TEST(ImageModel, PixelsComeFromAndReturnToTheReplaceableHeap) {
    HeapScope scope;
    {
        DQImage owned(0, 16, 16, 2, DQ_FLOAT, 0);
        EXPECT_EQ(scope.heap.allocations, 1);
        DQImage view(owned.data, 16, 16, 2, DQ_FLOAT, 0);
        EXPECT_EQ(scope.heap.allocations, 1);
    }
    EXPECT_EQ(scope.heap.releases, 1) << "the view must not free, the owner must";
    DQImagePtr temp = DQMakeImage(4, 4, 1, DQ_UCHAR);
    EXPECT_EQ(scope.heap.allocations, 3); // object and pixels
    temp.reset();
    EXPECT_EQ(scope.heap.releases, 3);
}

TEST(Heap, AllocateAndResize) {
    HeapScope scope(1 << 20);
    auto* block = static_cast<uint8_t*>(ZUMemAllocate(8));
    for (int i = 0; i < 8; ++i)
        block[i] = static_cast<uint8_t>(i + 1);
    auto* grown = static_cast<uint8_t*>(ZUMemResize(block, 16, 8));
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(grown[i], i + 1) << "grown byte " << i;
    auto* shrunk = static_cast<uint8_t*>(ZUMemResize(grown, 4, 16));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(shrunk[i], i + 1) << "shrunk byte " << i;
    EXPECT_EQ(scope.heap.releases, 2);
    try {
        ZUMemResize(shrunk, 1 << 21, 4);
        ADD_FAILURE() << "a failed resize must throw";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrMemory);
    }
    EXPECT_EQ(shrunk[3], 4) << "a failed resize keeps the old block";
    ZUMemRelease(shrunk);
    void* fresh = ZUMemResize(nullptr, 32, 0);
    EXPECT_NE(fresh, nullptr);
    ZUMemRelease(fresh);
    ZUMemRelease(nullptr);
    EXPECT_EQ(scope.heap.allocations, scope.heap.releases);
    EXPECT_THROW(ZUMemAllocate(1 << 21), DQErr);
}

TEST(ElementConversions, ReadersAndWriters) {
    // Each row: a type, the bytes of one element, the float the reader gives, a float handed to
    // the writer and the bytes it stores.
    struct Case {
        const char* name;
        int type;
        std::vector<uint8_t> element;
        float read;
        float written;
        std::vector<uint8_t> stored;
    };
    auto bytesOf = [](auto value) {
        std::vector<uint8_t> b(sizeof value);
        std::memcpy(b.data(), &value, sizeof value);
        return b;
    };
    const Case cases[] = {
        {"uchar", DQ_UCHAR, {200}, 200.0f, 200.9f, {200}},
        {"uchar keeps low bits", DQ_UCHAR, {0}, 0.0f, 300.7f, {44}},
        {"ushort", DQ_USHORT, bytesOf(uint16_t{65535}), 65535.0f, 1234.99f,
         bytesOf(uint16_t{1234})},
        {"float", DQ_FLOAT, bytesOf(0.25f), 0.25f, -3.5f, bytesOf(-3.5f)},
        {"char", DQ_CHAR, bytesOf(int8_t{-5}), -5.0f, -5.9f, bytesOf(int8_t{-5})},
        {"short", DQ_SHORT, bytesOf(int16_t{-300}), -300.0f, 129.5f, bytesOf(int16_t{129})},
        // The signed fixed-point form scales by 2^-16 both ways.
        {"fix16s", DQ_FIX16S, bytesOf(int16_t{-32768}), -0.5f, 65536.0f * 100.0f,
         bytesOf(int16_t{100})},
        {"fix16u", DQ_FIX16U, bytesOf(uint16_t{32768}), 0.5f, 0.25f, bytesOf(uint16_t{16384})},
        {"double", DQ_DOUBLE, bytesOf(2.5), 2.5f, 0.125f, bytesOf(0.125)},
        // Declared 4 bytes, moves 8.
        {"long", DQ_LONG, bytesOf(int64_t{-7}), -7.0f, 12.75f, bytesOf(int64_t{12})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        float value = -1.0f;
        DQGetElementReader(c.type)(&value, c.element.data());
        EXPECT_EQ(value, c.read);
        std::vector<uint8_t> out(8, 0xEE);
        DQGetElementWriter(c.type)(out.data(), c.written);
        EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + c.stored.size()), c.stored);
        if (c.stored.size() < out.size()) {
            EXPECT_EQ(out[c.stored.size()], 0xEE) << "wrote past the element";
        }
    }
    EXPECT_EQ(kElementBytes[DQ_LONG], 4);
    EXPECT_EQ(DQGetElementReader(9), nullptr);
    EXPECT_EQ(DQGetElementWriter(-1), nullptr);
}

TEST(ImageModel, GenericPixelAccess) {
    DQImage floats(2, 2, 2, DQ_FLOAT, 1);
    const float vector[2] = {0.5f, -2.0f};
    floats.SetPixelFloat(0, 1, vector);
    float channel = 0;
    floats.GetChannelFloat(0, 1, &channel, 1);
    EXPECT_EQ(channel, -2.0f);
    // The float image reads through the 16-bit path: the low word of 0.5f is 0.
    float raw[2] = {-1, -1};
    floats.GetPixelFloat(0, 1, raw);
    EXPECT_EQ(raw[0], 0.0f);
}

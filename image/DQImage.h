#pragma once
// The one image type of the processing library: a typed, interleaved raster that either owns its
// pixels or views storage owned by someone else. Row 0 is the logical top in both storage orders:
// with `bottomUp` set, row 0 is the last row in memory.
#include "image/DataType.h"
#include "image/Error.h"
#include "image/Mem.h"

#include <cstdint>
#include <memory>

class DQImage : public ZUMem {
public:
    // Empty image: no pixels, sizes 0; element type and derived fields are not set.
    DQImage(int ignored, int bottomUp);
    // Owned storage of width x height pixels, uninitialised. With throwOnFailure 0 a failed
    // allocation leaves errorCode set and data null instead of throwing.
    DQImage(int width, int height, int channels, int dataType, int bottomUp);
    DQImage(int throwOnFailure, int width, int height, int channels, int dataType, int bottomUp);
    // Views of foreign storage, with a given pitch or a dense one. A null data leaves width and
    // height 0 and nothing else set: such an object can only be destroyed or rebound.
    DQImage(void* data, int width, int height, int rowBytes, int channels, int dataType,
            int bottomUp);
    DQImage(int throwOnFailure, void* data, int width, int height, int rowBytes, int channels,
            int dataType, int bottomUp);
    DQImage(void* data, int width, int height, int channels, int dataType, int bottomUp);
    DQImage(int throwOnFailure, void* data, int width, int height, int channels, int dataType,
            int bottomUp);
    virtual ~DQImage();

    DQImage(const DQImage&) = delete;
    DQImage& operator=(const DQImage&) = delete;

    // Points the object at foreign storage and recomputes the derived fields. What it held before
    // is not freed.
    void Rebind(void* data, int width, int height, int rowBytes, int channels, int dataType,
                int bottomUp);
    // Common tail of construction; see the constructors.
    void InitLayout(bool allocate, int throwOnFailure);

    // Addressing in logical rows, 32-bit arithmetic as the library's loops use it.
    uint8_t* RowAddress(int y) const {
        return data + static_cast<int32_t>((bottomUp ? lastRow - y : y) * rowBytes);
    }
    uint8_t* PixelAddress(int x, int y) const { return RowAddress(y) + x * pixelBytes; }
    template <class T>
    T* Row(int y) const {
        return reinterpret_cast<T*>(RowAddress(y));
    }

    // Generic slow paths for set-up code; pixel loops address storage directly.
    void GetPixelFloat(int x, int y, float* out) const;
    void GetChannelFloat(int x, int y, float* out, int channel) const;
    void SetPixelFloat(int x, int y, const float* in);
    void SetChannelFloat(int x, int y, int channel, float value);
    void SetFlowPixel(int x, int y, int range, float dx, float dy);
    void GetFlowBilinear(float* dxOut, float* dyOut, int range, float x, float y) const;

    // Zeroes every row; legal on a null pointer.
    void Clear();
    // Row-by-row copy of a source of the same size and type.
    void CopyWhole(const DQImage* source);
    // Plain copy of a w x h rectangle: element values cast without scaling between types.
    void CopyFrom(int dx, int dy, const DQImage* source, int sx, int sy, int w, int h);

    // Fields, in storage order.
    int32_t channels = 0;
    int32_t width = 0;
    int32_t height = 0;
    int32_t errorCode = 0;
    int32_t dataType = 0;
    int32_t bottomUp = 0;
    int32_t elementBytes = 0;
    int32_t pixelBytes = 0;
    int32_t rowBytes = 0;
    int32_t ownsData = 0;
    uint8_t* data = nullptr;
    float whitePoint = 0.0f;
    int32_t reserved0 = 0; // set at initialisation, read by nothing
    int32_t reserved1 = 0;
    int32_t lastRow = 0;
    int32_t lastColumn = 0;
    int32_t rowStep = 0;
    DQElementReader readElement = nullptr;

protected:
    DQImage() = default;

private:
    void InitForeign(void* data, int width, int height, int rowBytes, int channels, int dataType,
                     int bottomUp, int throwOnFailure);
    void InitOwned(int width, int height, int channels, int dataType, int bottomUp,
                   int throwOnFailure);
};

// Clear that accepts a null image.
inline void DQClear(DQImage* image) {
    if (image) image->Clear();
}

// Owner of a heap image; the usual holder of an algorithm's temporaries.
using DQImagePtr = std::unique_ptr<DQImage>;

// Makes an owned temporary the library's way: constructed without throwing, its errorCode
// tested, and the code thrown once the object is already released.
DQImagePtr DQMakeImage(int width, int height, int channels, int dataType, int bottomUp = 0);

#pragma once
// A raster for very large working buffers. It has the header of DQImage, but every row is reached
// through a table of row pointers, and owned storage may be split into several blocks: when no
// single block of the whole size can be had, the image is made of smaller ones, each holding a
// run of whole rows. Rows in one block are not in a fixed order with respect to memory.
#include "image/DataType.h"
#include "image/Error.h"
#include "image/Mem.h"

#include <cstdint>

class DQImage2 : public ZUMem {
public:
    // Owned storage, uninitialised. With throwOnFailure 0 a failure leaves errorCode set.
    DQImage2(int throwOnFailure, int width, int height, int channels, int dataType, int bottomUp);
    // A view of foreign storage whose row r starts at data + r * rowBytes. A null data gives an
    // empty image.
    DQImage2(int throwOnFailure, void* data, int width, int height, int rowBytes, int channels,
             int dataType, int bottomUp);
    virtual ~DQImage2();

    DQImage2(const DQImage2&) = delete;
    DQImage2& operator=(const DQImage2&) = delete;

    // Logical row y; row 0 is the top in both storage orders.
    uint8_t* RowAddress(int y) const { return rowPointers[bottomUp ? lastRow - y : y]; }
    template <class T>
    T* Row(int y) const {
        return reinterpret_cast<T*>(RowAddress(y));
    }

    // Zeroes the pixels of every row, in parallel bands.
    void Clear();

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
    int32_t lastRow = 0;
    int32_t lastColumn = 0;
    uint8_t** rowPointers = nullptr;
    uint8_t** chunks = nullptr; // blocks of owned storage, at the index of their first row
    uint8_t* foreignData = nullptr;

private:
    void SetHeader(int width, int height, int channels, int dataType, int bottomUp);
    // Stores the code, and throws it when asked to.
    void Fail(int code, int throwOnFailure);
    void ReleaseBlocks();
};

// Turns a one-channel 8-bit mask into a hard one: every non-zero byte becomes 255. Runs over the
// rows in parallel bands; other images are left as they are.
void DQHardenMask(DQImage2* mask);

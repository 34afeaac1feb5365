#include "image/DQImage2.h"

#include "image/Parallel.h"

#include <algorithm>
#include <cstring>

DQImage2::DQImage2(int throwOnFailure, int w, int h, int c, int type, int bu) {
    SetHeader(w, h, c, type, bu);
    if (w < 0 || h <= 0 || pixelBytes <= 0 || int64_t(w) * pixelBytes > INT32_MAX) {
        Fail(kDQErrMemory, throwOnFailure);
        return;
    }
    rowBytes = w * pixelBytes;
    try {
        rowPointers = static_cast<uint8_t**>(ZUMemAllocate(sizeof(uint8_t*) * h));
        std::fill_n(rowPointers, h, nullptr);
        chunks = static_cast<uint8_t**>(ZUMemAllocate(sizeof(uint8_t*) * h));
        std::fill_n(chunks, h, nullptr);
    } catch (DQErr code) {
        Fail(code, throwOnFailure);
        return;
    }

    // Rows are placed from the last index down. Each attempt asks for as many of the remaining
    // rows as one block may hold; a refusal tries one row less, down to a single row.
    const size_t row = static_cast<size_t>(rowBytes > 0 ? rowBytes : 1);
    size_t remaining = row * static_cast<size_t>(h);
    size_t attempt = remaining;
    int next = h - 1;
    while (next >= 0) {
        attempt = std::min(attempt, remaining);
        uint8_t* block = nullptr;
        try {
            block = static_cast<uint8_t*>(ZUMemAllocate(attempt));
        } catch (DQErr) {
            if (attempt <= row) {
                Fail(kDQErrMemory, throwOnFailure);
                return;
            }
            attempt = std::max(attempt - row, row);
            continue;
        }
        chunks[next] = block;
        for (size_t used = 0; used + row <= attempt && next >= 0; used += row) {
            rowPointers[next--] = block + used;
            remaining -= row;
        }
    }
    ownsData = 1;
}

DQImage2::DQImage2(int throwOnFailure, void* data, int w, int h, int rb, int c, int type, int bu) {
    if (!data) return;
    SetHeader(w, h, c, type, bu);
    rowBytes = rb;
    foreignData = static_cast<uint8_t*>(data);
    if (h <= 0) return;
    try {
        rowPointers = static_cast<uint8_t**>(ZUMemAllocate(sizeof(uint8_t*) * h));
    } catch (DQErr code) {
        Fail(code, throwOnFailure);
        return;
    }
    for (int r = 0; r < h; ++r)
        rowPointers[r] = foreignData + static_cast<ptrdiff_t>(r) * rb;
}

DQImage2::~DQImage2() {
    ReleaseBlocks();
    ZUMemRelease(rowPointers);
}

void DQImage2::SetHeader(int w, int h, int c, int type, int bu) {
    channels = c;
    width = w;
    height = h;
    dataType = type;
    bottomUp = bu;
    elementBytes = type >= 0 && type < kDQDataTypeCount ? kElementBytes[type] : 0;
    pixelBytes = elementBytes * c;
    lastRow = h - 1;
    lastColumn = w - 1;
}

void DQImage2::Fail(int code, int throwOnFailure) {
    ReleaseBlocks();
    ownsData = 0;
    errorCode = code;
    if (throwOnFailure == 1) {
        // A constructor that throws runs no destructor: the row table goes now.
        ZUMemRelease(rowPointers);
        rowPointers = nullptr;
        DQThrow(code);
    }
}

void DQImage2::ReleaseBlocks() {
    if (chunks) {
        for (int r = 0; r < height; ++r)
            ZUMemRelease(chunks[r]);
        ZUMemRelease(chunks);
        chunks = nullptr;
    }
}

void DQImage2::Clear() {
    if (!rowPointers || errorCode != 0) return;
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(pixelBytes);
    ZUMPForRows(height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            std::memset(rowPointers[y], 0, bytes);
    });
}

void DQHardenMask(DQImage2* mask) {
    if (!mask || !mask->rowPointers || mask->errorCode != 0 || mask->channels != 1 ||
        mask->dataType != DQ_UCHAR)
        return;
    const int width = mask->width;
    ZUMPForRows(mask->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            uint8_t* __restrict row = mask->rowPointers[y];
            for (int x = 0; x < width; ++x)
                row[x] = row[x] ? 255 : 0;
        }
    });
}

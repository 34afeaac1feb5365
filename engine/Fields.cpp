// Field rebuilding and weaving, in row bands.

#include "engine/Fields.h"

#include <cstring>

namespace {

// First row (counted from the top) of the field whose lowest row is `bottom`.
int FirstRowOfField(int bottom) {
    return ((bottom % 2) + 2) % 2;
}

template <class T, int C>
void RebuildRow(DQImage* image, int y) {
    const int above = y - 1 < 0 ? y + 1 : y - 1;
    const int below = y + 1 > image->lastRow ? y - 1 : y + 1;
    if (above > image->lastRow || below < 0) return; // a picture of one row keeps it
    const T* p = image->Row<T>(above);
    const T* q = image->Row<T>(below);
    T* out = image->Row<T>(y);
    const int n = image->width * C;
    for (int i = 0; i < n; ++i) {
        if constexpr (std::is_same_v<T, float>)
            out[i] = (p[i] + q[i]) * 0.5f;
        else
            out[i] = static_cast<T>((float(p[i]) + float(q[i])) * 0.5f + 0.5f);
    }
}

} // namespace

void FieldToFrame(DQImage* image, int mode) {
    if (!image || mode == 1 || image->height < 1 || image->width < 1) return;
    if (mode != 2 && mode != 3) return;
    const int first = FirstRowOfField(mode == 3 ? image->lastRow : image->lastRow - 1);
    const int rows = (image->height - first + 1) / 2;
    DQDispatchTypeChannels(image->dataType, image->channels, [&]<class T, int C>() {
        // Band i rebuilds rows first + 2i; it reads only rows of the other field.
        ZUMPForRows(rows, [&](int, int b0, int b1) {
            for (int i = b0; i <= b1; ++i)
                RebuildRow<T, C>(image, first + 2 * i);
        });
    });
}

void InterleaveFields(DQImage* dest, const DQImage* source, int code) {
    if (!dest || !source || code == 1 || (code != 2 && code != 3)) return;
    if (dest->width != source->width || dest->height != source->height ||
        dest->channels != source->channels || dest->dataType != source->dataType)
        return;
    const int first = FirstRowOfField(code == 2 ? dest->lastRow : dest->lastRow - 1);
    const int rows = (dest->height - first + 1) / 2;
    const size_t bytes = size_t(dest->width) * dest->pixelBytes;
    ZUMPForRows(rows, [&](int, int b0, int b1) {
        for (int i = b0; i <= b1; ++i) {
            const int y = first + 2 * i;
            std::memcpy(dest->RowAddress(y), source->RowAddress(y), bytes);
        }
    });
}

#include "flow/FlowArithmetic.h"

#include "flow/HoleFill.h"
#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "image/ShortFlow.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

namespace {

void RefuseFlows() {
    std::fprintf(stderr, "can't add two flows together\n");
}

int RangeOf(const DQImage& image) {
    return std::max(image.width, image.height);
}

bool HasPixels(const DQImage* image) {
    return image && image->data && image->width > 0 && image->height > 0;
}

// One bilinear tap along an axis whose last index is `last`: the cell and the fraction, with a
// place past the last index read as the last pixel and a negative one as the first.
struct Cell {
    int index;
    int next;
    float fraction;
};

Cell CellAt(float position, int last) {
    Cell cell{0, 0, 0.0f};
    if (!(position > 0.0f)) return cell; // negative, zero and not-a-number read the first pixel
    if (position >= static_cast<float>(last)) {
        cell.index = std::max(last - 1, 0);
        cell.next = last;
        cell.fraction = last > 0 ? 1.0f : 0.0f;
        return cell;
    }
    cell.index = static_cast<int>(position);
    cell.next = cell.index + 1;
    cell.fraction = position - static_cast<float>(cell.index);
    return cell;
}

void SampleFloatFlow(const DQImage& flow, float x, float y, float& u, float& v) {
    const Cell cx = CellAt(x, flow.lastColumn), cy = CellAt(y, flow.lastRow);
    const float* r0 = flow.Row<float>(cy.index);
    const float* r1 = flow.Row<float>(cy.next);
    for (int c = 0; c < 2; ++c) {
        const float top =
            r0[cx.index * 2 + c] + cx.fraction * (r0[cx.next * 2 + c] - r0[cx.index * 2 + c]);
        const float bottom =
            r1[cx.index * 2 + c] + cx.fraction * (r1[cx.next * 2 + c] - r1[cx.index * 2 + c]);
        (c == 0 ? u : v) = top + cy.fraction * (bottom - top);
    }
}

// Where the float compositions look up the second flow for a pixel at (x, y) with vector d.
enum class Reach { InsideOnly, Held };

void ComposeFloatRows(DQImage* target, const DQImage* source, Reach reach) {
    const float rx =
        static_cast<float>(source->lastColumn) / static_cast<float>(target->lastColumn);
    const float ry = static_cast<float>(source->lastRow) / static_cast<float>(target->lastRow);
    const float inverseX = 1.0f / rx, inverseY = 1.0f / ry;
    const int width = target->width, height = target->height;
    ZUMPForRows(height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* row = target->Row<float>(y);
            for (int x = 0; x < width; ++x) {
                float* d = row + 2 * x;
                float px = static_cast<float>(x) + d[0];
                float py = static_cast<float>(y) + d[1];
                if (reach == Reach::InsideOnly) {
                    if (!(px >= 0.0f && py >= 0.0f && px < static_cast<float>(width) &&
                          py < static_cast<float>(height)))
                        continue;
                } else {
                    if (!(px >= 0.0f)) px = 0.0f;
                    if (!(py >= 0.0f)) py = 0.0f;
                    if (px >= static_cast<float>(width)) px = static_cast<float>(width);
                    if (py >= static_cast<float>(height)) px = static_cast<float>(height);
                }
                float u, v;
                SampleFloatFlow(*source, px * rx, py * ry, u, v);
                d[0] += u * inverseX;
                d[1] += v * inverseY;
            }
        }
    });
}

void ComposeShortRows(DQImage* target, const DQImage* source) {
    const int range = RangeOf(*target);
    const int width = target->width, height = target->height;
    ZUMPForRows(height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const uint16_t* row = target->Row<uint16_t>(y);
            for (int x = 0; x < width; ++x) {
                const float dx = DQDecodeShortFlow(row[2 * x], range);
                const float dy = DQDecodeShortFlow(row[2 * x + 1], range);
                const float px = static_cast<float>(x) + dx, py = static_cast<float>(y) + dy;
                if (!(px >= 0.0f && py >= 0.0f && px < static_cast<float>(width) &&
                      py < static_cast<float>(height)))
                    continue;
                float u, v;
                source->GetFlowBilinear(&u, &v, range, px, py);
                target->SetFlowPixel(x, y, range, dx + u, dy + v);
            }
        }
    });
}

bool FitsComposition(const DQImage* target, const DQImage* source, bool shortAllowed) {
    if (!HasPixels(target) || !HasPixels(source) || target == source) return false;
    if (target->channels != 2 || source->channels != 2) return false;
    if (target->dataType != source->dataType) return false;
    const bool isFloat = target->dataType == DQ_FLOAT;
    const bool isShort = target->dataType == DQ_USHORT;
    if (!isFloat && !(shortAllowed && isShort)) return false;
    // Ratios of the last indices need at least two pixels each way on both sides.
    if (target->width < 2 || target->height < 2 || source->width < 2 || source->height < 2)
        return false;
    if (isShort && (target->width != source->width || target->height != source->height))
        return false;
    return true;
}

template <class V>
void ConvertVectorRows(DQImage* flow, const DQImage* vectors, DQImage* holes, float scale) {
    constexpr bool isFloat = std::is_same_v<V, float>;
    const float middle = isFloat ? 0.0f : std::is_same_v<V, uint8_t> ? 254.0f : 65534.0f;
    const int width = flow->width;
    ZUMPForRows(flow->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const V* in = vectors->Row<V>(y);
            float* out = flow->Row<float>(y);
            uint8_t* hole = holes->Row<uint8_t>(y);
            for (int x = 0; x < width; ++x) {
                const V* p = in + 4 * x;
                if (p[3] == V(0)) {
                    out[2 * x] = out[2 * x + 1] = 0.0f;
                    hole[x] = 255;
                    continue;
                }
                hole[x] = 0;
                if constexpr (isFloat) {
                    out[2 * x] = p[0] * scale;
                    out[2 * x + 1] = p[1] * scale;
                } else {
                    out[2 * x] = (2.0f * static_cast<float>(p[0]) / middle - 1.0f) * scale;
                    out[2 * x + 1] = (2.0f * static_cast<float>(p[1]) / middle - 1.0f) * scale;
                }
            }
        }
    });
}

} // namespace

void AddFlows(DQImage* target, DQImage* source) {
    if (!HasPixels(target) || !HasPixels(source) || target->width != source->width ||
        target->height != source->height || target->channels < 2 || source->channels < 2 ||
        (target->dataType == DQ_USHORT && source->dataType == DQ_USHORT)) {
        RefuseFlows();
        return;
    }
    if (source->dataType == DQ_USHORT) {
        // The target's pixels are read as short flow: they must hold two 16-bit words.
        if (target->pixelBytes < 4) {
            RefuseFlows();
            return;
        }
        const int range = RangeOf(*target);
        for (int y = 0; y < target->height; ++y) {
            uint8_t* out = target->RowAddress(y);
            const uint16_t* in = source->Row<uint16_t>(y);
            for (int x = 0; x < target->width; ++x) {
                uint16_t words[2];
                std::memcpy(words, out + x * target->pixelBytes, sizeof words);
                for (int c = 0; c < 2; ++c) {
                    const float sum = DQDecodeShortFlow(words[c], range) +
                                      DQDecodeShortFlow(in[x * source->channels + c], range);
                    words[c] = DQEncodeShortFlow(sum, range);
                }
                std::memcpy(out + x * target->pixelBytes, words, sizeof words);
            }
        }
        return;
    }
    if (target->dataType != DQ_FLOAT || source->dataType != DQ_FLOAT) {
        RefuseFlows();
        return;
    }
    for (int y = 0; y < target->height; ++y) {
        float* out = target->Row<float>(y);
        const float* in = source->Row<float>(y);
        for (int x = 0; x < target->width; ++x) {
            out[x * target->channels] += in[x * source->channels];
            out[x * target->channels + 1] += in[x * source->channels + 1];
        }
    }
}

void ComposeFlows(DQImage* target, DQImage* source) {
    if (!FitsComposition(target, source, true)) {
        RefuseFlows();
        return;
    }
    if (target->dataType == DQ_USHORT)
        ComposeShortRows(target, source);
    else
        ComposeFloatRows(target, source, Reach::InsideOnly);
}

void ComposeFloatFlows(DQImage* target, DQImage* source) {
    if (!FitsComposition(target, source, false)) {
        RefuseFlows();
        return;
    }
    ComposeFloatRows(target, source, Reach::Held);
}

void ConvertVectorImage(DQImage* flow, DQImage* vectors, float scale) {
    if (!HasPixels(flow) || !HasPixels(vectors) || !DQDispatchableType(vectors->dataType) ||
        flow->channels != 2 || flow->dataType != DQ_FLOAT || vectors->channels != 4 ||
        flow->width != vectors->width || flow->height != vectors->height)
        return;
    DQImagePtr holes = DQMakeImage(flow->width, flow->height, 1, DQ_UCHAR);
    DQDispatchType(vectors->dataType,
                   [&]<class V>() { ConvertVectorRows<V>(flow, vectors, holes.get(), scale); });
    FillHoles(flow, holes.get(), nullptr);
}

#pragma once
// The one image type of the processing library: a typed, interleaved raster that either owns its
// pixels or views storage owned by someone else. Row 0 is the logical top in both storage orders:
// with `bottomUp` set, row 0 is the last row in memory.
#include "image/DataType.h"
#include "image/Error.h"
#include "image/Mem.h"

#include <cstdint>
#include <memory>

class DQImage;
// Owner of a heap image; the usual holder of an algorithm's temporaries.
using DQImagePtr = std::unique_ptr<DQImage>;

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

    // Filling. FillPixel copies the pixelBytes bytes at `pixel` into every pixel, in bands.
    // FillColour sets every pixel to a colour given in 0..1, on the calling thread: one channel
    // takes c0, two c0 and c1, three c0..c2, four all four.
    void FillPixel(const void* pixel);
    void FillColour(float c0, float c1, float c2, float c3);

    // Copies between images of possibly different types. Rectangles are given by their own
    // corners and one size. The normalising forms scale by the ratio of the white points; integer
    // destinations round and clamp to their white point.
    void CopyFromNormalised(int dx, int dy, const DQImage* source, int sx, int sy, int w, int h);
    // The overlap of the two images, centred: the larger side is entered at (larger - smaller) / 2.
    void CopyCentred(const DQImage* source);
    void CopyCentredNormalised(const DQImage* source);
    // The inclusive rectangle (x0, y0)..(x1, y1) of `source` to (dx, dy); same type and channels.
    void CopyImagePartFrom(int dx, int dy, const DQImage* source, int x0, int y0, int x1, int y1);
    // Pixel (x, y) becomes pixel (y, x) of `source`.
    void CopyTranspose(const DQImage* source);
    // One channel of `source` into one channel of this image, of the same size.
    void CopyChannelPlain(int destChannel, const DQImage* source, int sourceChannel);
    void CopyChannelNormalised(int destChannel, const DQImage* source, int sourceChannel);

    // Arithmetic. Integer results of Scale, Subtract and MinInto are truncated and keep their low
    // bits, as the element writers store them.
    void Scale(float f);
    // Colour channels times f with alpha untouched; three channels or fewer: Scale.
    void ScaleColour(float f);
    // Flow vectors: channel 0 times fx, channel 1 times fy.
    void ScaleXY(float fx, float fy);
    void Subtract(const DQImage* source);
    // One-channel images of one type: the larger of the two elements.
    void MaxInto(const DQImage* source);
    // All channels: the smaller of the two elements.
    void MinInto(const DQImage* source);
    // Integer types: bitwise complement; floats: 1 - v.
    void Invert();
    // Complement of the first `width` bytes of every row: inverts a one-channel 8-bit mask.
    void InvertBytes();

    // Alpha of four-channel images, alpha in channel 3. Other channel counts or types, and float
    // images whose white point is not 1, are left as they are.
    void Premultiply();
    void Unpremultiply();
    // As Unpremultiply, but a colour that would exceed white is scaled down as a whole, keeping
    // its hue, instead of being clipped channel by channel.
    void UnpremultiplyKeepHue();
    // Takes the alpha of `source`, rescaling the colour from the old alpha to the new one.
    void ReplaceAlphaScale(const DQImage* source);

    // Byte order of four-channel 8-bit pixels, in place.
    void RGBAtoABGR();
    void ABGRtoRGBA();
    void RGBAtoARGB();
    void ARGBtoRGBA();
    // The same reorders from `source` into this image, of the same size.
    void RGBAtoARGB(const DQImage* source);
    void ARGBtoRGBA(const DQImage* source);

    // Tone of 8-bit images through a table of 256 entries.
    void GammaChannel(int channel, float gamma);
    void GammaImage(float gamma);
    // A new one-channel float image of the luminance (30 R + 59 G + 11 B) / 100, or of channel 0
    // for fewer than three channels. Reads raw integer elements; throws DQErr 1 when the image
    // cannot be allocated.
    DQImagePtr MakeLuminance(int resultBottomUp) const;
    // Source-over of a four-channel 8-bit image whose top-left corner lands on (x, y).
    void Composite(const DQImage* source, int x, int y);

    // Neighbourhood operators on float images of the same size and channels.
    // Mean of the 7 x 7 neighbourhood that lies inside the image.
    void Sum55(const DQImage* source);
    // -4 centre + left + right + up + down, edges repeated outwards.
    void Laplacian(const DQImage* source);
    // Central differences of every channel of `source` (one-sided at the edges) into a float
    // image of twice the channels: d/dx then d/dy per source channel.
    void Gradient(const DQImage* source);
    // Unit length for two- and three-channel float vectors.
    void Normalize2();
    void Normalize3();

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

// Makes an owned temporary the library's way: constructed without throwing, its errorCode
// tested, and the code thrown once the object is already released.
DQImagePtr DQMakeImage(int width, int height, int channels, int dataType, int bottomUp = 0);

#pragma once
// Dense motion from sparse correspondences alone: DQMorphFlow takes pairs of points (or pairs of
// curves) that say where something moves and spreads their vectors over the whole image, coarse
// to fine, without looking at any picture. The result has the form of the flow object's: two
// float channels, x then y, at pixel (x, y) of the first image the vector to the matching place in
// the second, in pixels of level 0.
//
// Unlike the flow object, every level holds vectors in pixels of level 0: a coarse level's flow is
// expanded to the next finer level without rescaling.
#include "image/DQImage.h"

#include <cstdint>
#include <memory>

class ZUIdleAndProgressClass;
struct DQFlowScratch;
class DQFlowBuffer;

class DQMorphFlow : public ZUMem {
public:
    // The most points a curve may have, and the most the curves are resampled to.
    static constexpr int kMaxCurvePoints = 2048;

    // Level 0 is the input size halved `reduction` times. A failed allocation releases
    // everything, keeps its code in `error` and, with throwOnError 1, throws it; so does a level 0
    // of less than 2 pixels across (code 5).
    DQMorphFlow(int throwOnError, int width, int height, int reduction, int minLevelSize);
    DQMorphFlow(int width, int height, int reduction, int minLevelSize);
    virtual ~DQMorphFlow();

    DQMorphFlow(const DQMorphFlow&) = delete;
    DQMorphFlow& operator=(const DQMorphFlow&) = delete;

    void SetSensitivity(float value) { sensitivity = value; }

    // Correspondences, in coordinates of a source whose last column and row are mx and my.
    // BeginGeometry clears what an earlier run left; EndGeometry averages the vectors that met at
    // one pixel of level 0.
    void BeginGeometry();
    void AddGeometryPoint(float x1, float y1, float x2, float y2, float mx, float my);
    void AddGeometryZeroPoint(float x, float y, float mx, float my);
    // A pair of polylines of n points each: both are resampled on every level to points about a
    // pixel apart, and point i of the first moves to point i of the second, so a curve can slide
    // along itself. The walk along the first curve stops at its first point outside the image.
    void AddGeometryCurve(int n, const float* x1, const float* y1, const float* x2, const float* y2,
                          float mx, float my);
    void EndGeometry();

    // Builds the flow from the geometry fed since BeginGeometry. `spread` true carries the
    // vectors down to every level and relaxes each level toward them; false pins them on each
    // level and smooths. With a result image (2 channels, float, at least width x height) the
    // flow is also copied there. Interruption and failures are thrown as DQErr.
    void ComputeMorph(DQImage* result, ZUIdleAndProgressClass* progress, bool spread);

    DQImage* GetFlow() const { return flowLevels ? flowLevels[0] : nullptr; }

    // Level count of a level-0 size: halves, held at minLevelSize and at 2, until both sides
    // reach one of them.
    static int CountLevels(int width, int height, int minLevelSize);

    // Fields, in storage order.
    int32_t iterations = 2;
    DQImage** flowLevels = nullptr;
    DQImage** seedFlowLevels = nullptr;
    DQImage** seedWeightLevels = nullptr;
    DQImage** scratchLevels = nullptr;
    int32_t numLevels = 0;
    int32_t width = 0;
    int32_t height = 0;
    float maxX = 0.0f;
    float maxY = 0.0f;
    int32_t startLevel = 0;
    int32_t minLevelSize = 0;
    float sensitivity = 1.0f;
    int32_t error = 0;

private:
    // The smoothing filters' plane and the expansion's column tables, kept from run to run.
    std::unique_ptr<DQFlowScratch> scratch;

    void Construct(int throwOnError, int width, int height, int reduction, int minLevelSize);
    void AllocateLevels();
    void ReleaseLevels();

    // The steps of ComputeMorph (flow/MorphSpread.cpp).
    void BuildSeedPyramids();
    void SpreadLevel(int level);
    void PlainLevel(int level);
    void Splat(int level, DQImage* share);
    void AddCurveOnLevel(int level, int n, const float* x1, const float* y1, const float* x2,
                         const float* y2, float mx, float my, bool* stopped);
};

// Bilinear expansion of a coarse flow into the next finer level, positions mapped by the ratio of
// (size - 1) and the vectors kept as they are. `columns` holds the columns' cells and fractions;
// without it the call allocates its own. Throws DQErr 5 unless both are two-channel float flows.
void DQMorphExpandFlow(const DQImage* coarse, DQImage* fine, DQFlowBuffer* columns = nullptr);

// Resamples the polyline of n points (xIn, yIn) to m points spaced evenly along it into (xOut,
// yOut), walking it again until the shortest step is at least `tolerance` times the longest.
// Returns the number of walks, 1 in the trivial cases (a curve shorter than 0.001, m of 1 or 2),
// or -1 when 99 walks do not reach the tolerance; n below 1 or m below 1 writes nothing and
// returns -1. Throws DQErr 1 when temporaries for m above 2048 points cannot be had.
int DQResampleCurve(int n, const float* xIn, const float* yIn, int m, float* xOut, float* yOut,
                    float tolerance);

// One walk of m points (m at least 2, n at least 2) along the polyline of n points, a step of its
// length / (m - 1) apart, measured along its segments. The last output is the last input point.
// Returns how the walk ended: 1 when the last step fell inside a segment, 2 when it met an input
// point exactly, 3 when the input ran out first; 0 for too few points.
int DQWalkCurve(int n, const float* xIn, const float* yIn, int m, float* xOut, float* yOut);

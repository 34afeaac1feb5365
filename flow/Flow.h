#pragma once
// Dense motion estimation between two images: DQOpticalFlowUChar owns the intensity, matte, seed
// and flow pyramids of one estimate and runs the coarse-to-fine loop over them. The work of one
// pyramid level lives in flow/FlowSolver.h.
//
// The result is a float image of two channels at the reduced size: at pixel (x, y) of A it holds
// (fx, fy) such that A(x, y) matches B(x + fx, y + fy).
#include "flow/HoleFill.h"
#include "flow/PyramidSteps.h"
#include "image/DQImage.h"

#include <cstdint>
#include <memory>

class ZUIdleAndProgressClass;
struct DQFlowScratch;

class DQOpticalFlowUChar : public ZUMem {
public:
    DQOpticalFlowUChar(int throwOnError, int width, int height, int reduction, int useSeeds,
                       int useMattes, int minLevelSize);
    DQOpticalFlowUChar(int width, int height, int reduction, int useSeeds, int useMattes,
                       int minLevelSize);
    virtual ~DQOpticalFlowUChar();

    DQOpticalFlowUChar(const DQOpticalFlowUChar&) = delete;
    DQOpticalFlowUChar& operator=(const DQOpticalFlowUChar&) = delete;

    void SetSensitivity(float value) { sensitivity = value; }

    // Builds both pyramids (B first) without mattes, band-passes them when bandPass is 1 and
    // solves. A null result leaves the vectors in level 0 of flowLevels only.
    void ComputeFlow(DQImage* result, DQImage* imageA, DQImage* imageB, int bandPass, int smoothing,
                     int skipPropagation, ZUIdleAndProgressClass* progress, bool enhanceEdges);
    void ComputeFlow(DQImage* result, DQImage* imageA, DQImage* imageB, int bandPass, int smoothing,
                     int skipPropagation, ZUIdleAndProgressClass* progress);
    void ComputeFlowIgnoringMattes(DQImage* result, DQImage* imageA, DQImage* imageB, int bandPass,
                                   int smoothing, int skipPropagation,
                                   ZUIdleAndProgressClass* progress, bool enhanceEdges = false);

    // Builds the matte pyramid of B (which non-zero) or of A; every level holds only 0 and 1.
    void LoadMatte(DQImage* matte, int which);
    // Builds the image pyramid of B (which non-zero) or of A. The check images serve only to test
    // that the pair agrees in size.
    void LoadImage(DQImage* image, DQImage* firstCheck, DQImage* secondCheck, int which,
                   bool enhanceEdges);
    void BandPassImages();
    void BandPassImage(int which);
    void ComputeLoadedFlow(DQImage* result, int bandPass, int smoothing, int skipPropagation,
                           ZUIdleAndProgressClass* progress);
    void SolveLoadedFlow(DQImage* result, int smoothing, int skipPropagation,
                         ZUIdleAndProgressClass* progress);
    void SolveLoadedFlowIgnoringMattes(DQImage* result, int smoothing, int skipPropagation,
                                       ZUIdleAndProgressClass* progress);
    // Exchanges the image and matte pyramids of A and B, so the reverse flow needs no new ones.
    void SwapImages();

    // Seed constraints, in coordinates of a source whose last column and row are mx and my.
    void ClearSeeds();
    void AddSeed(float x1, float y1, float x2, float y2, float mx, float my);
    void AddZeroSeed(float x, float y, float mx, float my);
    void FinishSeeds();

    DQImage* GetSeedFlow() const { return seedFlowLevels ? seedFlowLevels[0] : nullptr; }
    DQImage* GetSeedWeight() const { return seedWeightLevels ? seedWeightLevels[0] : nullptr; }
    DQImage* GetMatteA() const { return matteALevels ? matteALevels[0] : nullptr; }

    // Start level and fade of the coarsest level from a sensitivity; used by SolveLoadedFlow.
    static void ChooseStartLevel(int numLevels, float sensitivity, int* startLevel, float* fade);
    // Level count of a level-0 size: halves until a side falls below minLevelSize or to 2.
    static int CountLevels(int width, int height, int minLevelSize);

    // Fields, in storage order.
    int32_t iterations = 3;
    int32_t reduction = 0;
    DQImage** tensorLevels = nullptr;
    DQImage** residualLevels = nullptr;
    DQImage** imageBLevels = nullptr;
    DQImage** imageALevels = nullptr;
    DQImage** flowLevels = nullptr;
    DQImage** seedFlowLevels = nullptr;
    DQImage** seedWeightLevels = nullptr;
    DQImage** matteALevels = nullptr;
    DQImage** matteBLevels = nullptr;
    DQImage** gradXLevels = nullptr;
    DQImage** gradYLevels = nullptr;
    int32_t error = 0;
    int32_t numLevels = 0;
    int32_t useSeeds = 0;
    int32_t useMattes = 0;
    int32_t width = 0;
    int32_t height = 0;
    int32_t maxX = 0;
    int32_t maxY = 0;
    int32_t startLevel = 0;
    int32_t minLevelSize = 0;
    float sensitivity = 1.0f;
    int32_t inputWidth = 0;
    int32_t inputHeight = 0;
    bool videoLevels = false;

private:
    // Filter plane and reduction images, kept from run to run so that runs allocate nothing.
    std::unique_ptr<DQFlowScratch> scratch;

    void Construct(int throwOnError, int width, int height, int reduction, int useSeeds,
                   int useMattes, int minLevelSize);
    void AllocateLevels();
    void ReleaseLevels();

    // Input side (flow/FlowPyramid.cpp).
    void ConvertInput(DQImage* target, const DQImage* source) const;
    void BuildImagePyramid(DQImage* image, DQImage** levels, bool enhanceEdges, DQImage* matte);
    void BuildMattePyramid(DQImage* matte, DQImage** levels);
    void ReduceInput(DQImage* image, DQImage** levels, bool threshold);
    void BuildUpperLevels(DQImage** levels, bool threshold);
    bool CheckReducedSize(const DQImage* image) const;

    // Solve side (flow/FlowSolve.cpp).
    void SolveLevel(int level, int smoothing, int skipPropagation,
                    ZUIdleAndProgressClass* progress);
    void PropagateLevel(int level, int skipPropagation, ZUIdleAndProgressClass* progress);
    bool LevelHasSeeds(int level) const;
};

// Applies the front-end conversion of the flow object (one float channel on the scale 0 to 255)
// from any supported image; exposed for tests of the conversion table.
void DQFlowConvertInput(DQImage* target, const DQImage* source, bool videoLevels);

// Construction and ownership of the flow object's pyramids, and the entry points that load the
// inputs and start a run.
#include "flow/Flow.h"
#include "flow/FlowFilter.h"
#include "image/LevelArrays.h"

#include <cstdio>
#include <utility>

namespace {

constexpr const char* kIncompatibleInputs = "calculating flow, incompatible inputs!\n";

bool SupportedType(int dataType) {
    return dataType == DQ_UCHAR || dataType == DQ_USHORT || dataType == DQ_FLOAT;
}

// Switches the matte pyramids off for the life of the object and restores them afterwards, also
// when the call in between throws.
class MattesOff {
public:
    explicit MattesOff(DQOpticalFlowUChar& flow)
        : flow_(flow), useMattes_(flow.useMattes), matteA_(flow.matteALevels),
          matteB_(flow.matteBLevels) {
        flow.useMattes = 0;
        flow.matteALevels = nullptr;
        flow.matteBLevels = nullptr;
    }
    ~MattesOff() {
        flow_.useMattes = useMattes_;
        flow_.matteALevels = matteA_;
        flow_.matteBLevels = matteB_;
    }
    MattesOff(const MattesOff&) = delete;
    MattesOff& operator=(const MattesOff&) = delete;

private:
    DQOpticalFlowUChar& flow_;
    int32_t useMattes_;
    DQImage** matteA_;
    DQImage** matteB_;
};

} // namespace

int DQOpticalFlowUChar::CountLevels(int width, int height, int minLevelSize) {
    int count = 1;
    int w = width, h = height;
    for (;;) {
        w /= 2;
        h /= 2;
        if (w < minLevelSize || h < minLevelSize || w <= 2 || h <= 2) break;
        ++count;
    }
    return count;
}

DQOpticalFlowUChar::DQOpticalFlowUChar(int throwOnError, int width, int height, int reduction,
                                       int useSeeds, int useMattes, int minLevelSize) {
    Construct(throwOnError, width, height, reduction, useSeeds, useMattes, minLevelSize);
}

DQOpticalFlowUChar::DQOpticalFlowUChar(int width, int height, int reduction, int useSeeds,
                                       int useMattes, int minLevelSize) {
    Construct(1, width, height, reduction, useSeeds, useMattes, minLevelSize);
}

DQOpticalFlowUChar::~DQOpticalFlowUChar() {
    ReleaseLevels();
}

void DQOpticalFlowUChar::Construct(int throwOnError, int width_, int height_, int reduction_,
                                   int useSeeds_, int useMattes_, int minLevelSize_) {
    iterations = 3;
    reduction = reduction_;
    useSeeds = useSeeds_ ? 1 : 0;
    useMattes = useMattes_ ? 1 : 0;
    minLevelSize = minLevelSize_;
    inputWidth = width_;
    inputHeight = height_;
    width = DQReducedSize(width_, reduction);
    height = DQReducedSize(height_, reduction);
    maxX = width - 1;
    maxY = height - 1;
    // Every step of the solver reads a pixel and its right and lower neighbours: a level 0 of
    // one pixel (or none) across cannot hold a flow. Such an object keeps no levels.
    if (width < 2 || height < 2) {
        numLevels = 0;
        startLevel = 0;
        useSeeds = 0;
        useMattes = 0;
        error = kDQErrBadArgument;
        if (throwOnError == 1) DQThrow(kDQErrBadArgument);
        return;
    }
    numLevels = CountLevels(width, height, minLevelSize);
    startLevel = numLevels - 1;
    sensitivity = 1.0f;
    try {
        scratch.reset(new DQFlowScratch);
        AllocateLevels();
    } catch (DQErr code) {
        ReleaseLevels();
        error = code;
        if (throwOnError == 1) DQThrow(code);
    }
}

void DQOpticalFlowUChar::AllocateLevels() {
    tensorLevels = DQNewLevelArray(numLevels);
    residualLevels = DQNewLevelArray(numLevels);
    imageBLevels = DQNewLevelArray(numLevels);
    imageALevels = DQNewLevelArray(numLevels);
    flowLevels = DQNewLevelArray(numLevels);
    if (useSeeds) {
        seedFlowLevels = DQNewLevelArray(numLevels);
        seedWeightLevels = DQNewLevelArray(numLevels);
    }
    if (useMattes) {
        matteALevels = DQNewLevelArray(numLevels);
        matteBLevels = DQNewLevelArray(numLevels);
    }
    gradXLevels = DQNewLevelArray(numLevels);
    gradYLevels = DQNewLevelArray(numLevels);
    int w = width, h = height;
    for (int level = 0; level < numLevels; ++level) {
        imageBLevels[level] = DQNewLevelImage(w, h, 1);
        imageALevels[level] = DQNewLevelImage(w, h, 1);
        gradXLevels[level] = DQNewLevelImage(w, h, 1);
        gradYLevels[level] = DQNewLevelImage(w, h, 1);
        tensorLevels[level] = DQNewLevelImage(w, h, 3);
        residualLevels[level] = DQNewLevelImage(w, h, 2);
        flowLevels[level] = DQNewLevelImage(w, h, 2);
        if (useSeeds) {
            seedFlowLevels[level] = DQNewLevelImage(w, h, 2);
            seedWeightLevels[level] = DQNewLevelImage(w, h, 1);
        }
        if (useMattes) {
            matteALevels[level] = DQNewLevelImage(w, h, 1);
            matteBLevels[level] = DQNewLevelImage(w, h, 1);
        }
        flowLevels[level]->Clear();
        w = DQNextLevelSize(w);
        h = DQNextLevelSize(h);
    }
}

void DQOpticalFlowUChar::ReleaseLevels() {
    for (DQImage*** levels : {&tensorLevels, &residualLevels, &imageBLevels, &imageALevels,
                              &flowLevels, &seedFlowLevels, &seedWeightLevels, &matteALevels,
                              &matteBLevels, &gradXLevels, &gradYLevels})
        DQReleaseLevelArray(*levels, numLevels);
}

void DQOpticalFlowUChar::ComputeFlow(DQImage* result, DQImage* imageA, DQImage* imageB,
                                     int bandPass, int smoothing, int skipPropagation,
                                     ZUIdleAndProgressClass* progress, bool enhanceEdges) {
    if (!imageA || !imageB || imageA->width != imageB->width || imageA->height != imageB->height ||
        imageA->channels != imageB->channels || imageA->dataType != imageB->dataType ||
        !SupportedType(imageA->dataType)) {
        fputs(kIncompatibleInputs, stderr);
        return;
    }
    if (numLevels < 1) DQThrow(kDQErrBadArgument);
    if (result && (result->width != width || result->height != height || result->channels != 2))
        fputs(kIncompatibleInputs, stderr);
    BuildImagePyramid(imageB, imageBLevels, enhanceEdges, nullptr);
    BuildImagePyramid(imageA, imageALevels, enhanceEdges, nullptr);
    ComputeLoadedFlow(result, bandPass, smoothing, skipPropagation, progress);
}

void DQOpticalFlowUChar::ComputeFlow(DQImage* result, DQImage* imageA, DQImage* imageB,
                                     int bandPass, int smoothing, int skipPropagation,
                                     ZUIdleAndProgressClass* progress) {
    ComputeFlow(result, imageA, imageB, bandPass, smoothing, skipPropagation, progress, false);
}

void DQOpticalFlowUChar::ComputeFlowIgnoringMattes(DQImage* result, DQImage* imageA,
                                                   DQImage* imageB, int bandPass, int smoothing,
                                                   int skipPropagation,
                                                   ZUIdleAndProgressClass* progress,
                                                   bool enhanceEdges) {
    MattesOff off(*this);
    ComputeFlow(result, imageA, imageB, bandPass, smoothing, skipPropagation, progress,
                enhanceEdges);
}

void DQOpticalFlowUChar::SolveLoadedFlowIgnoringMattes(DQImage* result, int smoothing,
                                                       int skipPropagation,
                                                       ZUIdleAndProgressClass* progress) {
    MattesOff off(*this);
    SolveLoadedFlow(result, smoothing, skipPropagation, progress);
}

void DQOpticalFlowUChar::LoadImage(DQImage* image, DQImage* firstCheck, DQImage* secondCheck,
                                   int which, bool enhanceEdges) {
    if (numLevels < 1) DQThrow(kDQErrBadArgument);
    for (const DQImage* check : {firstCheck, secondCheck}) {
        if (check && (check->width != image->width || check->height != image->height)) {
            fputs(kIncompatibleInputs, stderr);
            return;
        }
    }
    DQImage** matte = which ? matteBLevels : matteALevels;
    BuildImagePyramid(image, which ? imageBLevels : imageALevels, enhanceEdges,
                      matte ? matte[0] : nullptr);
}

void DQOpticalFlowUChar::LoadMatte(DQImage* matte, int which) {
    DQImage** levels = which ? matteBLevels : matteALevels;
    if (!levels) return;
    BuildMattePyramid(matte, levels);
}

void DQOpticalFlowUChar::ComputeLoadedFlow(DQImage* result, int bandPass, int smoothing,
                                           int skipPropagation, ZUIdleAndProgressClass* progress) {
    if (bandPass == 1) BandPassImages();
    SolveLoadedFlow(result, smoothing, skipPropagation, progress);
}

void DQOpticalFlowUChar::SwapImages() {
    std::swap(imageALevels, imageBLevels);
    std::swap(matteALevels, matteBLevels);
}

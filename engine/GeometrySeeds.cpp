// Geometry of the derived engine handed to the flow objects: as seed constraints to the optical
// flow, as the only correspondences to the morph flow.

#include "engine/EngineInternal.h"

#include "flow/Flow.h"
#include "flow/MorphFlow.h"

namespace {

// The four point arrays of one geometry, given back to the engine however the loop ends.
class GeometryPoints {
public:
    explicit GeometryPoints(ZUQuelmor4& engine) : engine_(engine) {}
    ~GeometryPoints() {
        if (xA || yA || xB || yB) engine_.ReleasePoints(xA, yA, xB, yB);
    }
    GeometryPoints(const GeometryPoints&) = delete;
    GeometryPoints& operator=(const GeometryPoints&) = delete;

    unsigned long count = 0;
    float* xA = nullptr;
    float* yA = nullptr;
    float* xB = nullptr;
    float* yB = nullptr;

private:
    ZUQuelmor4& engine_;
};

// Hands every point pair of the pair's geometry to `add`, in the engine's coordinates.
template <class Add>
void ForEachGeometryPoint(ZUQuelmor4& engine, unsigned long geometries, int layer, int first,
                          int second, int fieldsIn, Add&& add) {
    const float timeA = fieldsIn ? float(first) * 0.5f : float(first);
    const float timeB = fieldsIn ? float(second) * 0.5f : float(second);
    for (unsigned long index = 0; index < geometries; ++index) {
        GeometryPoints points(engine);
        if (int code = engine.GetGeometryPoints(layer, index, timeA, timeB, &points.count,
                                                &points.xA, &points.yA, &points.xB, &points.yB))
            DQThrow(code);
        if (!points.xA || !points.yA || !points.xB || !points.yB) continue;
        for (unsigned long i = 0; i < points.count; ++i)
            add(points.xA[i], points.yA[i], points.xB[i], points.yB[i]);
    }
}

} // namespace

void ZUQuelmor4Internal::FeedGeometryToFlow(ZUQuelmor4& engine, DQOpticalFlowUChar* flow, int layer,
                                            int first, int second, int fieldsIn) const {
    const unsigned long geometries = engine.GetNumGeometries(layer, float(first), float(second));
    flow->ClearSeeds();
    const float lastColumn = float(width - 1);
    const float lastRow = float(height - 1);
    ForEachGeometryPoint(engine, geometries, layer, first, second, fieldsIn,
                         [&](float xA, float yA, float xB, float yB) {
                             flow->AddSeed(xA, yA, xB, yB, lastColumn, lastRow);
                         });
    flow->FinishSeeds();
}

void ZUQuelmor4Internal::FeedGeometryToMorph(ZUQuelmor4& engine, DQMorphFlow* morph, int layer,
                                             int first, int second, int fieldsIn) const {
    const unsigned long geometries = engine.GetNumGeometries(layer, float(first), float(second));
    morph->BeginGeometry();
    const float lastColumn = float(width - 1);
    const float lastRow = float(height - 1);
    ForEachGeometryPoint(engine, geometries, layer, first, second, fieldsIn,
                         [&](float xA, float yA, float xB, float yB) {
                             morph->AddGeometryPoint(xA, yA, xB, yB, lastColumn, lastRow);
                         });
    morph->EndGeometry();
}

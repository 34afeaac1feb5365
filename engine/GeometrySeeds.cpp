// Geometry of the derived engine handed to the flow object as seed constraints.

#include "engine/EngineInternal.h"

#include "flow/Flow.h"

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

} // namespace

void ZUQuelmor4Internal::FeedGeometryToFlow(ZUQuelmor4& engine, DQOpticalFlowUChar* flow, int layer,
                                            int first, int second, int fieldsIn) const {
    const unsigned long geometries = engine.GetNumGeometries(layer, float(first), float(second));
    flow->ClearSeeds();
    if (geometries != 0) {
        const float timeA = fieldsIn ? float(first) * 0.5f : float(first);
        const float timeB = fieldsIn ? float(second) * 0.5f : float(second);
        const float lastColumn = float(width - 1);
        const float lastRow = float(height - 1);
        for (unsigned long index = 0; index < geometries; ++index) {
            GeometryPoints points(engine);
            if (int code = engine.GetGeometryPoints(layer, index, timeA, timeB, &points.count,
                                                    &points.xA, &points.yA, &points.xB, &points.yB))
                DQThrow(code);
            if (!points.xA || !points.yA || !points.xB || !points.yB) continue;
            for (unsigned long i = 0; i < points.count; ++i)
                flow->AddSeed(points.xA[i], points.yA[i], points.xB[i], points.yB[i], lastColumn,
                              lastRow);
        }
    }
    flow->FinishSeeds();
}

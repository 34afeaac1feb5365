// Drawing the geometry that moves a clip over the frames it makes, so that a user can see where
// the points and curves lie at each output moment.
#pragma once

#include "cli/MediaFrame.h"

class ZUQuelmor4;

namespace quelmor::cli {

// Draws the engine's geometry of layer 0 at `sourceTime` into `frame` (four channels of any
// sample type): between source frames a and a + 1 every track that has both is drawn where it is
// at the moment, its positions mixed by the fraction of the time; on a source frame, where it is
// in that frame. A track of one point is a cross, a longer one a polyline, each in the colour
// the engine's GetGeometryColor gives it. Throws MediaError when the engine cannot lend points.
void DrawGeometry(ZUQuelmor4& engine, float sourceTime, MediaFrame& frame);

} // namespace quelmor::cli

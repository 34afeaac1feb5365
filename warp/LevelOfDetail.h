#pragma once
// The per-pixel mip level of a warp: how much the flow stretches the neighbourhood of each pixel,
// as a base-2 logarithm, so that a field that doubles distances reads one level down.
#include "image/DQImage.h"
#include "warp/MipMap.h"

namespace warp_detail {

// Fills `plane` (one float channel, the size of the map's level 0) from `flow`. `filterMode` 2
// adds no bias; any other value adds half a level. Levels below 0.01 become 0, levels above the
// last level are clamped to it.
void ComputeLevelOfDetail(DQImage* plane, const DQImage* flow, const DQMipMap& mip, int filterMode);

} // namespace warp_detail

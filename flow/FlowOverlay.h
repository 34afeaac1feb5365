#pragma once
// Pictures of a flow: every vector as a colour of the usual flow colour wheel (direction as hue,
// length as saturation, zero motion white), and sparse arrows drawn over a frame.
#include "image/DQImage.h"

#include <cstdint>

// `dest` (four channels of 8 bits, the flow's size) gets the colour of every vector of the
// two-channel float `flow`. A vector of length `largest` or more is fully saturated, and one
// beyond it is darkened to three quarters; `largest` of 0 or less takes the longest vector of the
// flow. Alpha is 255. Images that do not fit throw DQErr 5. Runs in row bands.
void DrawFlowColours(DQImage* dest, const DQImage* flow, float largest);

// The colour of one vector, as DrawFlowColours gives it: red, green, blue.
void FlowColour(float u, float v, float largest, uint8_t rgb[3]);

// Draws an arrow every `spacing` pixels of `dest` (four channels of 8 bits, any size) along the
// vector of `flow` there, converted to the pixels of `dest` by the ratio of the last indices, in
// `colour` (four bytes). Vectors shorter than half a pixel draw a dot. Throws DQErr 5 for images
// that do not fit or a spacing below 2.
void DrawFlowArrows(DQImage* dest, const DQImage* flow, int spacing, const uint8_t colour[4]);

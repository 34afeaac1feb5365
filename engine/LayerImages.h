#pragma once
// Pixel operations of the several-layer road: a layer's matte, a picture cut by a matte, a matte
// cut by a nearer one, and premultiplied pictures laid over one another.

#include "image/Image.h"

// A layer's whole matte: for a foreground layer the matte it was given (`mattes[layer]`, scaled
// to dest's element type); for the background (`layer` + 1 == layerCount) the alpha of
// `backgroundImage` when that has four channels, otherwise white.
void LayerMatte(DQImage* dest, DQImage* const* mattes, int layer, int layerCount,
                const DQImage* backgroundImage);

// dest = source times matte, in row bands. Three channels: colour x m and alpha m; four: all
// channels x m. dest has four channels; source, matte and dest share the element type.
void MattedImage(DQImage* dest, const DQImage* source, const DQImage* matte);

// matte = matte x (1 - cut), limited to 0..white: cut (one float channel, 0..1) is taken out of
// matte (one channel of any type). Other layouts print a message and change nothing.
void RenderBlackMatte(DQImage* matte, const DQImage* cut);

// a = max(a - b, 0) for one-channel images of one type; others print and change nothing.
void Subtract1Channel(DQImage* a, const DQImage* b);

// Premultiplied `top` over `dest` inside columns 0..lastColumn and rows 0..lastRow: where top is
// clear dest stays, where it is opaque top is copied, between the two dest's colour is faded by
// top's alpha and top's colour added.
void OverInto(DQImage* dest, const DQImage* top, int lastColumn, int lastRow);

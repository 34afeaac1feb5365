#pragma once
// The two flow objects as the engine's state sees them: their making, their output image, the
// size they were made for, and their destruction.

#include "image/Image.h"

class DQOpticalFlowUChar;
class DQMorphFlow;

// Makes a flow object for frames of width x height whose level 0 is the frame halved
// `flowLevel` times. A failure of its construction is thrown as its code.
DQOpticalFlowUChar* MakeOpticalFlow(int width, int height, int flowLevel, bool useSeeds,
                                    bool useMattes);
// Makes a morph flow object of the same level-0 size; a failure of its construction is thrown.
DQMorphFlow* MakeMorphFlow(int width, int height, int flowLevel);

// Level-0 flow image that the object owns, or null for a null object.
DQImage* FlowOutputOf(const DQOpticalFlowUChar* flow);
DQImage* FlowOutputOf(const DQMorphFlow* flow);
// Whether the object's level 0 differs from flowWidth x flowHeight.
bool FlowSizeDiffers(const DQOpticalFlowUChar* flow, int flowWidth, int flowHeight);
bool FlowSizeDiffers(const DQMorphFlow* flow, int flowWidth, int flowHeight);
void DestroyFlow(DQOpticalFlowUChar*& flow);
void DestroyFlow(DQMorphFlow*& flow);

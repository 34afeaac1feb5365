#pragma once
// Interlaced material: a full frame from one field, and two frames woven into one.

#include "image/Image.h"

// Rebuilds the rows of the other field in place. Mode 3 replaces rows lastRow, lastRow - 2, ...;
// mode 2 rows lastRow - 1, lastRow - 3, ...; each becomes the mean of its two neighbours, the
// one neighbour standing for both at an edge. Mode 1 does nothing.
void FieldToFrame(DQImage* image, int mode);

// Copies the rows of one field of `source` over `dest`: code 2 rows lastRow, lastRow - 2, ...,
// code 3 rows lastRow - 1, lastRow - 3, .... Nothing for code 1 or images of another layout.
void InterleaveFields(DQImage* dest, const DQImage* source, int code);

#pragma once
// Moving pixels along vectors, and the filters, mip maps and tables under them.
#include "image/DQImage.h"
#include "image/Progress.h"
#include "warp/Filters.h"
#include "warp/LirpedTable.h"
#include "warp/MipMap.h"

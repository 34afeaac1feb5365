#pragma once
// Chief header of the image layer: heap and errors, the image types, the row-parallel loop, the
// progress chain and the mutex pool.
#include "image/DQImage.h"
#include "image/DataType.h"
#include "image/Dispatch.h"
#include "image/Error.h"
#include "image/Mem.h"
#include "image/MutexPool.h"
#include "image/Parallel.h"
#include "image/Progress.h"
#include "image/ShortFlow.h"
#include "image/ZUImage.h"

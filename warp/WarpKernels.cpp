// The entry points of the warp's kernel units, each forwarding to the copy of the level in force.
#include "image/KernelSpace.h"
#include "warp/Filters.h"
#include "warp/SeparableFilter.h"
#include "warp/Warp.h"
#include "warp/WarpForward.h"

QUELMOR_KERNEL_ENTRY(int, DQWarpInverse,
                     (DQImage * dest, DQImage* source, DQImage* flow, int extendEdges,
                      DQImage* weight, int filterMode, float scale),
                     (dest, source, flow, extendEdges, weight, filterMode, scale))

QUELMOR_KERNEL_ENTRY(void, ClipToImage,
                     (float& sx, float& sy, float x, float y, float lastColumn, float lastRow),
                     (sx, sy, x, y, lastColumn, lastRow))

QUELMOR_KERNEL_ENTRY(void, DQBlurAlongFlow,
                     (DQImage * dest, DQImage* source, DQImage* flow, int filtered,
                      ZUIdleAndProgressClass* progress, int options, float shutter),
                     (dest, source, flow, filtered, progress, options, shutter))

QUELMOR_KERNEL_ENTRY(void, DQBlurAlongFlow,
                     (DQImage * dest, DQImage* source, DQImage* flow, int firstColumn,
                      int lastColumn, int firstRow, int lastRow, int filtered,
                      ZUIdleAndProgressClass* progress, int options, float shutter),
                     (dest, source, flow, firstColumn, lastColumn, firstRow, lastRow, filtered,
                      progress, options, shutter))

QUELMOR_KERNEL_ENTRY(void, ResizeBilinear, (DQImage * dest, const DQImage* source), (dest, source))

QUELMOR_KERNEL_ENTRY(int, DQWarpForward,
                     (DQImage * dest, DQImage* source, DQImage* flow, int fixedOrder, int samples,
                      int meshStep, int columnsAscending, int rowsAscending, int rowMajor,
                      int plainCells, ZUIdleAndProgressClass* progress, DQImage* weight,
                      bool enlarged, int filterMode, DQImage* sourceMask, float scale),
                     (dest, source, flow, fixedOrder, samples, meshStep, columnsAscending,
                      rowsAscending, rowMajor, plainCells, progress, weight, enlarged, filterMode,
                      sourceMask, scale))

QUELMOR_KERNEL_ENTRY(void, FilterSeparableTaps,
                     (DQImage * dest, const DQImage* source, const float* w, int n, int edge,
                      bool rows, bool columns),
                     (dest, source, w, n, edge, rows, columns))

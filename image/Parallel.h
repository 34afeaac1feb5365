#pragma once
// The row-parallel loop under every pixel algorithm. The host runs code in parallel only through
// its fork, telling each worker a slice of the frame in pixels; the loop turns that into bands of
// rows with a worker index. A driver asks how many bands suit its rows, then runs a row function
// over them. Bands are static and equal, the remainder going to the last one, and never shorter
// than 16 rows when more than one band is used. The loop must not be nested.
#include "image/Error.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <exception>
#include <new>

// Size of the frame being processed, set by the host glue before any parallel work. The fork's
// pixel slices are shares of Width x Height, which is how a worker recovers its number.
extern "C" {
extern int Width;
extern int Height;
}

using ZUMPRowFunction = int (*)(int worker, int master, int firstRow, int lastRow, va_list* args,
                                ...);

int64_t ZUMPSparkGetNumberOfFramePixels();
int ZUMPGetNumThreads();
void ZUMPSetNumThreads(int threads);
int ZUMPGetUsableThreads();
int ZUMPNumThreadsForRows(int rows);
void ZUMPRowsForThread(int threads, int index, int rows, int* first, int* last);
// Runs `function` over rows 0..rows-1 in `threads` bands; the extra arguments reach each band as
// a va_list. Returns the result of the host's fork, or of the function on the single-band path.
int ZUMPParallelFor(int threads, int rows, ZUMPRowFunction function, ...);

namespace zump_detail {
template <class Body>
struct BandCall {
    Body* body;
    std::atomic<int> error{0};
};

template <class Body>
int RunBand(int worker, int /*master*/, int first, int last, va_list* args, ...) {
    auto* call = va_arg(*args, BandCall<Body>*);
    // No exception may leave a band: the host's fork cannot carry it. Its code is kept for the
    // driver, which throws it after the join.
    try {
        (*call->body)(worker, first, last);
    } catch (DQErr code) {
        if (code != 0) call->error.store(code, std::memory_order_relaxed);
    } catch (const std::bad_alloc&) {
        call->error.store(kDQErrMemory, std::memory_order_relaxed);
    } catch (...) {
        call->error.store(kDQErrBadArgument, std::memory_order_relaxed);
    }
    return 0;
}
} // namespace zump_detail

// Typed face of the loop: body(worker, firstRow, lastRow) over `rows` rows in `threads` bands.
// A DQErr raised in any band is rethrown here, on the calling thread, with the same code.
template <class Body>
void ZUMPForRows(int threads, int rows, Body&& body) {
    if (rows <= 0) return;
    using B = std::remove_reference_t<Body>;
    zump_detail::BandCall<B> call{&body};
    ZUMPParallelFor(threads, rows, &zump_detail::RunBand<B>, &call);
    if (const int code = call.error.load()) DQThrow(code);
}

// The same with the band count chosen for the rows by ZUMPNumThreadsForRows.
template <class Body>
void ZUMPForRows(int rows, Body&& body) {
    ZUMPForRows(ZUMPNumThreadsForRows(rows), rows, static_cast<Body&&>(body));
}

#pragma once
// Error codes of the processing library. They are thrown by value and returned by the entry
// points that report by result; 0 doubles as "success" for those.
#include <cstdint>

enum DQErr : int32_t {
    kDQErrInvalidImage = 0, // an operation met an empty image; a catcher treats it as no error
    kDQErrMemory = 1,       // out of memory, or a system object could not be made
    kDQErrFile = 2,         // a file could not be opened
    kDQErrBadArgument = 5,  // bad argument, mismatched images, no such frame
    kDQErrInterrupted = 6,  // the progress chain was interrupted
    kDQErrFetch = 7,        // a source frame could not be fetched
};

// Throws `code` as a fresh DQErr; used wherever a layer catches, cleans up and passes the code on.
[[noreturn]] inline void DQThrow(int code) {
    throw static_cast<DQErr>(code);
}

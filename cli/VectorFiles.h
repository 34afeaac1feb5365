// The motion vectors of a clip on disk, one set per source frame: the vectors that lead from each
// frame to the next (forward) and to the one before (backward), in pixels of the frame, x to the
// right and y down, at the frame's size.
//
//  - OpenEXR, "name.%04d.exr": one file per frame with the float channels forward.u, forward.v,
//    backward.u and backward.v, as compositing tools name a motion layer. A file with neither
//    pair (a renderer's motion pass) is read as forward motion (see ReadExrMotion).
//  - Middlebury flow, "name.%04d.flo": two files per frame, name.0001.forward.flo and
//    name.0001.backward.flo.
//
// The first frame has no frame before it and the last none after it: an EXR file holds zero
// motion there, and no .flo file is written for it.
#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "cli/ExrFlowFile.h"
#include "cli/Media.h"
#include "cli/SequencePattern.h"
#include "image/DQImage.h"

namespace quelmor::cli {

class VectorSequence {
public:
    // Throws UsageError, naming `what`, unless `pattern` is a numbered sequence of .exr or .flo
    // files.
    VectorSequence(const std::string& pattern, const std::string& what);

    bool IsExr() const { return exr_; }
    const std::string& Text() const { return text_; }
    // The file that holds the vectors of frame `number` in `direction`.
    std::string Path(int number, FlowDirection direction) const;
    // Every file of frame `number`: one EXR file, or the two .flo files.
    std::vector<std::string> Files(int number) const;

    // Before a run over the frames `first` to `last`: every neighbouring pair of them must have
    // vectors in one direction at least (the frame's forward or the next one's backward file), and
    // every file there must be a flow of width x height. Throws MediaError naming the file.
    void CheckCovers(int first, int last, int width, int height) const;

private:
    std::string text_;
    bool exr_ = false;
    std::vector<SequencePattern> patterns_; // EXR: one; .flo: forward, backward
};

// Reads the vectors of a sequence for a clip of one frame size, keeping the files read last,
// since consecutive in-between frames ask for the same frames.
class VectorReader {
public:
    VectorReader(VectorSequence sequence, int width, int height)
        : sequence_(std::move(sequence)), width_(width), height_(height) {}

    // The vectors of frame `number` in `direction`, valid until the next call; null when the
    // files do not hold that direction. Throws MediaError naming the file when it cannot be read,
    // is damaged, holds another size or a value that is not a finite number.
    const DQImage* Get(int number, FlowDirection direction);

    const VectorSequence& Sequence() const { return sequence_; }

private:
    struct Frame {
        int number;
        ExrMotion motion;
    };
    DQImagePtr ReadFile(const std::string& path, bool exrWanted, FlowDirection direction,
                        ExrMotion* motion);
    void Check(const DQImage& flow, const std::string& path) const;

    VectorSequence sequence_;
    int width_, height_;
    std::deque<Frame> kept_;
};

// Writes the vectors of a clip's frames beside their final names and puts them in place only in
// Finish, as the clip writers do: a run that fails or stops leaves the folder as it was.
class VectorWriter {
public:
    // Checks the folder and, without `overwrite`, that no file of the frames `first` to `last` is
    // there; throws MediaError and touches nothing.
    VectorWriter(VectorSequence sequence, int first, int last, bool overwrite);
    // Without Finish, removes every file written.
    ~VectorWriter();
    VectorWriter(const VectorWriter&) = delete;
    VectorWriter& operator=(const VectorWriter&) = delete;

    // Writes the vectors of frame `number`; either may be null where the frame has no neighbour
    // on that side. Throws MediaError naming the file.
    void Write(int number, const DQImage* forward, const DQImage* backward);
    // Puts every file written in place.
    void Finish();

private:
    void WriteOne(const std::string& path, const DQImage* forward, const DQImage* backward);

    VectorSequence sequence_;
    std::vector<std::string> written_; // final names, their data under PartPath
    std::size_t placed_ = 0;
};

} // namespace quelmor::cli

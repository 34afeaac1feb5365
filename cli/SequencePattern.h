// Names of numbered image files: "shot.%04d.exr", "shot.####.dpx", "%03d.png".
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quelmor::cli {

class SequencePattern {
public:
    // Returns nothing when the file name holds no frame-number field.
    static std::optional<SequencePattern> Parse(const std::string& path);

    std::string Path(int frame) const;
    // Hidden name in the same folder that a frame is written to before it is renamed.
    std::string TempPath(int frame) const;
    // Frame numbers of the files on disk that match, ascending.
    std::vector<int> FindFrames() const;

    const std::string& Folder() const { return folder_; }
    const std::string& Text() const { return text_; }
    // The same pattern with "prefix" put in front of the file name.
    SequencePattern WithNamePrefix(const std::string& prefix) const;

private:
    std::string text_;
    std::string folder_; // "." when the pattern has no folder part
    std::string head_;   // file name before the number
    std::string tail_;   // file name after the number, extension included
    std::string field_;  // the number field as written: "%04d", "####"
    int digits_ = 0;     // minimum digits, zero padded
};

// Lower-case extension of a path without the dot, "" when there is none.
// Where a file is written before it is renamed to `path`: a hidden name in the same folder.
std::string PartPath(const std::string& path);
std::string ExtensionOf(const std::string& path);

} // namespace quelmor::cli

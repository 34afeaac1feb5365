// Keyed values over frame numbers, read from a text file of "frame value" lines.
#pragma once

#include <string>
#include <vector>

namespace quelmor::cli {

class Keyframes {
public:
    struct Key {
        double frame;
        double value;
    };

    // Lines of "frame value"; '#' starts a comment. Throws MediaError naming the
    // file and line of anything else, of frames out of order and of an empty file.
    static Keyframes Parse(const std::string& text, const std::string& origin);
    static Keyframes Load(const std::string& path);

    // Linear between keys, the first and last value held outside them.
    double Linear(double frame) const;
    // The value of the last key at or before `frame` (the first key's before it).
    double Held(double frame) const;

    const std::vector<Key>& Keys() const { return keys_; }

private:
    std::vector<Key> keys_;
};

} // namespace quelmor::cli

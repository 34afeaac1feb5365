// Pieces of the text files the command reads: a line split into words, and numbers read whole.
#pragma once

#include <charconv>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

namespace quelmor::cli {

// The words of `line`, split at white space.
inline std::vector<std::string> SplitWords(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

// Whether all of `text` is one finite number, stored in `value`.
template <class T>
bool ReadFiniteNumber(const std::string& text, T* value) {
    const char* end = text.data() + text.size();
    auto [at, error] = std::from_chars(text.data(), end, *value);
    return error == std::errc() && at == end && std::isfinite(*value);
}

} // namespace quelmor::cli

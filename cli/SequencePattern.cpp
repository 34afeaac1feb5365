#include "SequencePattern.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace quelmor::cli {
namespace fs = std::filesystem;

namespace {

bool AllDigits(const std::string& s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isdigit(c); });
}

} // namespace

std::optional<SequencePattern> SequencePattern::Parse(const std::string& path) {
    const fs::path p(path);
    const std::string name = p.filename().string();
    SequencePattern out;
    out.text_ = path;
    out.folder_ = p.has_parent_path() ? p.parent_path().string() : std::string(".");

    const std::size_t hash = name.find('#');
    if (hash != std::string::npos) {
        std::size_t end = hash;
        while (end < name.size() && name[end] == '#')
            ++end;
        if (name.find('#', end) != std::string::npos) return std::nullopt;
        out.head_ = name.substr(0, hash);
        out.tail_ = name.substr(end);
        out.digits_ = int(end - hash);
        out.field_ = name.substr(hash, end - hash);
        return out;
    }
    const std::size_t percent = name.find('%');
    if (percent == std::string::npos) return std::nullopt;
    std::size_t i = percent + 1;
    std::string width;
    while (i < name.size() && std::isdigit(static_cast<unsigned char>(name[i])))
        width += name[i++];
    if (i >= name.size() || name[i] != 'd') return std::nullopt;
    if (!width.empty() && (width.size() > 2 || (width.size() > 1 && width[0] != '0')))
        return std::nullopt;
    if (name.find('%', i + 1) != std::string::npos) return std::nullopt;
    out.head_ = name.substr(0, percent);
    out.tail_ = name.substr(i + 1);
    out.digits_ = width.empty() ? 0 : std::stoi(width);
    out.field_ = name.substr(percent, i + 1 - percent);
    return out;
}

std::string SequencePattern::Path(int frame) const {
    char number[32];
    std::snprintf(number, sizeof number, "%0*d", digits_, frame);
    return (fs::path(folder_) / (head_ + number + tail_)).string();
}

std::string SequencePattern::TempPath(int frame) const {
    return PartPath(Path(frame));
}

std::string PartPath(const std::string& path) {
    const fs::path final(path);
    // Appended piece by piece: GCC 12 warns falsely (-Wrestrict) on "." + std::string&&.
    std::string hidden(1, '.');
    hidden.append(final.filename().string()).append(".part");
    return (final.parent_path() / hidden).string();
}

std::vector<int> SequencePattern::FindFrames() const {
    std::vector<int> frames;
    std::error_code ec;
    for (fs::directory_iterator it(folder_, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (name.size() <= head_.size() + tail_.size()) continue;
        if (name.compare(0, head_.size(), head_) != 0) continue;
        if (name.compare(name.size() - tail_.size(), tail_.size(), tail_) != 0) continue;
        const std::string number =
            name.substr(head_.size(), name.size() - head_.size() - tail_.size());
        if (!AllDigits(number) || number.size() > 9) continue;
        // A longer number than the padding must not start with a zero: "00012" is not frame 12 of
        // "%04d".
        if (int(number.size()) < std::max(digits_, 1)) continue;
        if (int(number.size()) > std::max(digits_, 1) && number[0] == '0') continue;
        if (!it->is_regular_file(ec)) continue;
        frames.push_back(std::stoi(number));
    }
    std::sort(frames.begin(), frames.end());
    return frames;
}

SequencePattern SequencePattern::WithNamePrefix(const std::string& prefix) const {
    SequencePattern out = *this;
    out.head_ = prefix + head_;
    out.text_ = (fs::path(folder_) / (out.head_ + field_ + tail_)).string();
    return out;
}

std::string ExtensionOf(const std::string& path) {
    std::string ext = fs::path(path).extension().string();
    if (!ext.empty()) ext.erase(0, 1);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

} // namespace quelmor::cli

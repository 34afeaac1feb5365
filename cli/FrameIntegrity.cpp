#include "cli/FrameIntegrity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace quelmor::cli {

namespace {

// An open file's size and the bytes at either end of it.
class FileEnds {
public:
    explicit FileEnds(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat st {};
        if (fd_ >= 0 && fstat(fd_, &st) == 0) size_ = std::uint64_t(st.st_size);
    }
    ~FileEnds() {
        if (fd_ >= 0) close(fd_);
    }
    FileEnds(const FileEnds&) = delete;
    FileEnds& operator=(const FileEnds&) = delete;

    bool Open() const { return fd_ >= 0; }
    std::uint64_t Size() const { return size_; }
    // Up to `count` bytes from `offset`; fewer where the file ends first.
    std::vector<std::uint8_t> Bytes(std::uint64_t offset, std::size_t count) const {
        std::vector<std::uint8_t> bytes(count);
        const ssize_t n = pread(fd_, bytes.data(), count, off_t(offset));
        bytes.resize(n > 0 ? std::size_t(n) : 0);
        return bytes;
    }
    std::vector<std::uint8_t> Tail(std::size_t count) const {
        const std::uint64_t from = size_ > count ? size_ - count : 0;
        return Bytes(from, std::size_t(size_ - from));
    }

private:
    int fd_;
    std::uint64_t size_ = 0;
};

std::uint32_t Read32(const std::uint8_t* p, bool bigEndian) {
    return bigEndian ? std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 |
                           std::uint32_t(p[2]) << 8 | p[3]
                     : std::uint32_t(p[3]) << 24 | std::uint32_t(p[2]) << 16 |
                           std::uint32_t(p[1]) << 8 | p[0];
}

std::uint32_t Read16(const std::uint8_t* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8;
}

std::string Short(std::uint64_t size, std::uint64_t wanted) {
    return "the file is truncated: " + std::to_string(size) + " bytes of the " +
           std::to_string(wanted) + " its header gives";
}

bool Contains(const std::vector<std::uint8_t>& bytes, std::string_view text) {
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

// DPX and BMP record the file's size in the header.
std::string RecordedSize(const FileEnds& file, bool dpx) {
    const auto head = file.Bytes(0, 20);
    if (head.size() < 20) return "the file is truncated inside its header";
    std::uint64_t wanted = 0;
    if (dpx) {
        const bool big = std::memcmp(head.data(), "SDPX", 4) == 0;
        if (!big && std::memcmp(head.data(), "XPDS", 4) != 0) return "";
        wanted = Read32(head.data() + 16, big);
    } else {
        if (head[0] != 'B' || head[1] != 'M') return "";
        wanted = Read32(head.data() + 2, false); // 0 where the writer did not fill it in
    }
    return file.Size() < wanted ? Short(file.Size(), wanted) : "";
}

// Uncompressed TGA: the header, the colour map and the pixels at their stated sizes.
std::string TgaSize(const FileEnds& file) {
    const auto head = file.Bytes(0, 18);
    if (head.size() < 18) return "the file is truncated inside its header";
    const int type = head[2];
    if (type != 1 && type != 2 && type != 3) return ""; // run-length or unknown
    const std::uint64_t mapBytes = std::uint64_t(Read16(&head[5])) * ((head[7] + 7u) / 8u);
    const std::uint64_t wanted =
        18u + head[0] + (head[1] ? mapBytes : 0) +
        std::uint64_t(Read16(&head[12])) * Read16(&head[14]) * ((head[16] + 7u) / 8u);
    return file.Size() < wanted ? Short(file.Size(), wanted) : "";
}

} // namespace

std::string VisibleDamage(const std::string& path, const std::string& ext) {
    const FileEnds file(path);
    if (!file.Open()) return std::string("cannot open the file: ") + std::strerror(errno);
    if (ext == "png")
        // The last chunk, IEND, is 12 bytes; a little room for bytes some tools append.
        return Contains(file.Tail(64), "IEND") ? "" : "the file is truncated: no IEND chunk";
    if (ext == "dpx") return RecordedSize(file, true);
    if (ext == "bmp") return RecordedSize(file, false);
    if (ext == "tga") return TgaSize(file);
    return "";
}

} // namespace quelmor::cli

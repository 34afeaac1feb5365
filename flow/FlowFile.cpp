#include "flow/FlowFile.h"

#include "image/ShortFlow.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

namespace {

constexpr char kFloTag[4] = {'P', 'I', 'E', 'H'};
constexpr int kFloHeaderBytes = 12;
// Larger sides are taken as a damaged header rather than a flow.
constexpr int32_t kFloLargestSide = 1 << 16;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

void SetReason(std::string* reason, const std::string& text) {
    if (reason) *reason = text;
}

void PutInt32(uint8_t* out, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t GetInt32(const uint8_t* in) {
    return static_cast<uint32_t>(in[0]) | static_cast<uint32_t>(in[1]) << 8 |
           static_cast<uint32_t>(in[2]) << 16 | static_cast<uint32_t>(in[3]) << 24;
}

struct FlowFileKind {
    std::string extension;
    FlowFileReader reader;
    FlowFileWriter writer;
};

std::mutex& KindsLock() {
    static std::mutex lock;
    return lock;
}

std::vector<FlowFileKind>& Kinds() {
    static std::vector<FlowFileKind> kinds;
    return kinds;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The registered kind whose extension ends `path`, or the built-in `.flo`.
FlowFileKind KindOf(const std::string& path) {
    const std::string name = Lower(path);
    std::lock_guard<std::mutex> hold(KindsLock());
    for (const FlowFileKind& kind : Kinds())
        if (name.size() >= kind.extension.size() &&
            name.compare(name.size() - kind.extension.size(), kind.extension.size(),
                         kind.extension) == 0)
            return kind;
    return {".flo", &ReadFloFile, &WriteFloFile};
}

} // namespace

int WriteFloFile(const DQImage& flow, const std::string& path, std::string* reason) {
    if (!flow.data || flow.channels != 2 || flow.dataType != DQ_FLOAT || flow.width < 1 ||
        flow.height < 1) {
        SetReason(reason, "a .flo file holds a two-channel float flow");
        return kDQErrBadArgument;
    }
    File file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        SetReason(reason, "cannot open it for writing");
        return kDQErrFile;
    }
    uint8_t header[kFloHeaderBytes];
    std::memcpy(header, kFloTag, 4);
    PutInt32(header + 4, static_cast<uint32_t>(flow.width));
    PutInt32(header + 8, static_cast<uint32_t>(flow.height));
    bool written = std::fwrite(header, 1, sizeof header, file.get()) == sizeof header;
    std::vector<uint8_t> row(static_cast<size_t>(flow.width) * 8);
    for (int y = 0; written && y < flow.height; ++y) {
        const float* in = flow.Row<float>(y);
        for (int i = 0; i < flow.width * 2; ++i)
            PutInt32(row.data() + 4 * i, std::bit_cast<uint32_t>(in[i]));
        written = std::fwrite(row.data(), 1, row.size(), file.get()) == row.size();
    }
    if (std::fclose(file.release()) != 0) written = false;
    if (!written) {
        SetReason(reason, "the disk refused the data");
        return kDQErrFile;
    }
    return 0;
}

DQImagePtr ReadFloFile(const std::string& path, std::string* reason) {
    File file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        SetReason(reason, "cannot open it");
        return nullptr;
    }
    uint8_t header[kFloHeaderBytes];
    const size_t headerBytes = std::fread(header, 1, sizeof header, file.get());
    if (headerBytes >= 4 && std::memcmp(header, kFloTag, 4) != 0) {
        SetReason(reason, "not a .flo file (it does not start with PIEH)");
        return nullptr;
    }
    if (headerBytes < sizeof header) {
        SetReason(reason, "truncated: shorter than the 12-byte header");
        return nullptr;
    }
    const int32_t width = static_cast<int32_t>(GetInt32(header + 4));
    const int32_t height = static_cast<int32_t>(GetInt32(header + 8));
    if (width < 1 || height < 1 || width > kFloLargestSide || height > kFloLargestSide) {
        SetReason(reason,
                  "impossible size " + std::to_string(width) + " x " + std::to_string(height));
        return nullptr;
    }
    std::fseek(file.get(), 0, SEEK_END);
    const long fileBytes = std::ftell(file.get());
    const int64_t expected = kFloHeaderBytes + int64_t{width} * height * 8;
    if (fileBytes != expected) {
        SetReason(reason, std::string(fileBytes < expected ? "truncated" : "too long") + ": " +
                              std::to_string(width) + " x " + std::to_string(height) + " needs " +
                              std::to_string(expected) + " bytes, the file has " +
                              std::to_string(fileBytes));
        return nullptr;
    }
    std::fseek(file.get(), kFloHeaderBytes, SEEK_SET);
    DQImagePtr flow = DQMakeImage(width, height, 2, DQ_FLOAT);
    std::vector<uint8_t> row(static_cast<size_t>(width) * 8);
    for (int y = 0; y < height; ++y) {
        if (std::fread(row.data(), 1, row.size(), file.get()) != row.size()) {
            SetReason(reason, "the data could not be read");
            return nullptr;
        }
        float* out = flow->Row<float>(y);
        for (int i = 0; i < width * 2; ++i)
            out[i] = std::bit_cast<float>(GetInt32(row.data() + 4 * i));
    }
    return flow;
}

void RegisterFlowFileKind(const std::string& extension, FlowFileReader reader,
                          FlowFileWriter writer) {
    std::lock_guard<std::mutex> hold(KindsLock());
    std::vector<FlowFileKind>& kinds = Kinds();
    const std::string key = Lower(extension);
    std::erase_if(kinds, [&](const FlowFileKind& kind) { return kind.extension == key; });
    kinds.push_back({key, reader, writer});
}

int WriteFlow(DQImage* flow, const std::string& path) {
    if (!flow || flow->channels < 2) {
        std::fprintf(stderr, "Write Flow needs more than 1 channel!\n");
        return kDQErrBadArgument;
    }
    const DQImage* floats = flow;
    DQImagePtr converted;
    if (flow->dataType != DQ_FLOAT || flow->channels != 2) {
        converted.reset(new DQImage(0, flow->width, flow->height, 2, DQ_FLOAT, 0));
        if (converted->errorCode != 0 || !converted->data || !flow->data) {
            std::fprintf(stderr, "can't make flow image to write!\n");
            return kDQErrMemory;
        }
        const int range = std::max(flow->width, flow->height);
        ConvertShortFlow2FloatFlow decode(range);
        for (int y = 0; y < flow->height; ++y)
            for (int x = 0; x < flow->width; ++x) {
                float vector[2];
                if (flow->dataType == DQ_USHORT) {
                    uint16_t words[2];
                    std::memcpy(words, flow->PixelAddress(x, y), sizeof words);
                    decode.ConvertPixel(vector, words);
                } else {
                    flow->GetChannelFloat(x, y, &vector[0], 0);
                    flow->GetChannelFloat(x, y, &vector[1], 1);
                }
                std::memcpy(converted->PixelAddress(x, y), vector, sizeof vector);
            }
        floats = converted.get();
    }
    std::string reason;
    const int code = KindOf(path).writer(*floats, path, &reason);
    if (code != 0)
        std::fprintf(stderr, "can't write flow file %s: %s\n", path.c_str(), reason.c_str());
    return code;
}

DQImagePtr ReadFlow(const std::string& path) {
    std::string reason;
    DQImagePtr flow = KindOf(path).reader(path, &reason);
    if (!flow) std::fprintf(stderr, "can't read flow file %s: %s\n", path.c_str(), reason.c_str());
    return flow;
}

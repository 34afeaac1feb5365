#include "cli/ExrFlowFile.h"

#include "flow/FlowFile.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace oiio = OIIO;

namespace quelmor::cli {

namespace {

int FindChannel(const oiio::ImageSpec& header, const std::string& name) {
    for (int c = 0; c < header.nchannels; ++c)
        if (header.channelnames[c] == name) return c;
    return -1;
}

int WriteForward(const DQImage& flow, const std::string& path, std::string* reason) {
    return WriteExrFlow(flow, path, FlowDirection::Forward, reason);
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

// The x and y channels of a motion layer: the first two channels whose layer (the part before the
// last dot) names motion.
bool FindMotionLayer(const oiio::ImageSpec& header, int* cu, int* cv) {
    for (int c = 0; c < header.nchannels; ++c) {
        const std::string name = Lower(header.channelnames[c]);
        const std::size_t dot = name.rfind('.');
        if (dot == std::string::npos) continue;
        const std::string layer = name.substr(0, dot);
        const bool motion = layer.find("motion") != std::string::npos ||
                            layer.find("vector") != std::string::npos ||
                            layer.find("velocity") != std::string::npos;
        if (!motion) continue;
        for (int d = c + 1; d < header.nchannels; ++d)
            if (Lower(header.channelnames[d]).compare(0, dot + 1, layer + ".") == 0) {
                *cu = c;
                *cv = d;
                return true;
            }
    }
    return false;
}

// Two channels of the read pixels as a flow.
DQImagePtr TakeChannels(const std::vector<float>& pixels, const oiio::ImageSpec& header, int cu,
                        int cv) {
    DQImagePtr flow = DQMakeImage(header.width, header.height, 2, DQ_FLOAT);
    const size_t channels = size_t(header.nchannels);
    for (int y = 0; y < header.height; ++y) {
        float* out = flow->Row<float>(y);
        const float* row = pixels.data() + size_t(y) * size_t(header.width) * channels;
        for (int x = 0; x < header.width; ++x) {
            out[2 * x] = row[size_t(x) * channels + size_t(cu)];
            out[2 * x + 1] = row[size_t(x) * channels + size_t(cv)];
        }
    }
    return flow;
}

bool IsFlow(const DQImage* flow) {
    return flow && flow->data && flow->channels == 2 && flow->dataType == DQ_FLOAT &&
           flow->width >= 1 && flow->height >= 1;
}

} // namespace

int WriteExrMotion(const DQImage* forward, const DQImage* backward, const std::string& path,
                   std::string* reason) {
    const DQImage* shape = forward ? forward : backward;
    if (!IsFlow(shape) || (forward && !IsFlow(forward)) || (backward && !IsFlow(backward)) ||
        (forward && backward &&
         (forward->width != backward->width || forward->height != backward->height))) {
        if (reason) *reason = "the motion of a frame is two float flows of one size";
        return kDQErrBadArgument;
    }
    const int width = shape->width;
    oiio::ImageSpec header(width, shape->height, 4, oiio::TypeDesc::FLOAT);
    header.channelnames = {"forward.u", "forward.v", "backward.u", "backward.v"};
    header.attribute("compression", "zip");
    auto out = oiio::ImageOutput::create("exr");
    if (!out || !out->open(path, header)) {
        if (reason) *reason = "cannot open it for writing: " + oiio::geterror();
        return kDQErrFile;
    }
    std::vector<float> row(size_t(width) * 4);
    bool ok = true;
    for (int y = 0; ok && y < shape->height; ++y) {
        const float* f = forward ? forward->Row<float>(y) : nullptr;
        const float* b = backward ? backward->Row<float>(y) : nullptr;
        for (int x = 0; x < width; ++x) {
            row[size_t(x) * 4 + 0] = f ? f[2 * x] : 0.0f;
            row[size_t(x) * 4 + 1] = f ? f[2 * x + 1] : 0.0f;
            row[size_t(x) * 4 + 2] = b ? b[2 * x] : 0.0f;
            row[size_t(x) * 4 + 3] = b ? b[2 * x + 1] : 0.0f;
        }
        ok = out->write_scanline(y, 0, oiio::TypeDesc::FLOAT, row.data());
    }
    ok = out->close() && ok;
    if (!ok) {
        if (reason) *reason = "the data could not be written: " + out->geterror();
        return kDQErrFile;
    }
    return 0;
}

bool ReadExrMotion(const std::string& path, ExrMotion* motion, std::string* reason) {
    motion->forward.reset();
    motion->backward.reset();
    auto in = oiio::ImageInput::open(path);
    if (!in) {
        if (reason) *reason = "cannot open it: " + oiio::geterror();
        return false;
    }
    const oiio::ImageSpec& header = in->spec();
    if (header.nchannels < 2 || header.width < 1 || header.height < 1) {
        if (reason) *reason = "it has fewer than two channels";
        return false;
    }
    std::vector<float> pixels(size_t(header.width) * size_t(header.height) *
                              size_t(header.nchannels));
    if (!in->read_image(0, 0, 0, header.nchannels, oiio::TypeDesc::FLOAT, pixels.data())) {
        if (reason) *reason = "the data could not be read: " + in->geterror();
        return false;
    }
    const int fu = FindChannel(header, "forward.u"), fv = FindChannel(header, "forward.v");
    const int bu = FindChannel(header, "backward.u"), bv = FindChannel(header, "backward.v");
    if (fu >= 0 && fv >= 0) motion->forward = TakeChannels(pixels, header, fu, fv);
    if (bu >= 0 && bv >= 0) motion->backward = TakeChannels(pixels, header, bu, bv);
    if (motion->forward || motion->backward) return true;
    int cu = FindChannel(header, "u"), cv = FindChannel(header, "v");
    if ((cu < 0 || cv < 0) && !FindMotionLayer(header, &cu, &cv)) cu = 0, cv = 1;
    motion->forward = TakeChannels(pixels, header, cu, cv);
    return true;
}

bool ImageFileSize(const std::string& path, int* width, int* height, std::string* reason) {
    auto in = oiio::ImageInput::open(path);
    if (!in) {
        if (reason) *reason = "cannot open it: " + oiio::geterror();
        return false;
    }
    *width = in->spec().width;
    *height = in->spec().height;
    return true;
}

int WriteExrFlow(const DQImage& flow, const std::string& path, FlowDirection direction,
                 std::string* reason) {
    if (!flow.data || flow.channels != 2 || flow.dataType != DQ_FLOAT || flow.width < 1 ||
        flow.height < 1) {
        if (reason) *reason = "an EXR flow file holds a two-channel float flow";
        return kDQErrBadArgument;
    }
    const std::string layer = direction == FlowDirection::Forward ? "forward" : "backward";
    oiio::ImageSpec header(flow.width, flow.height, 2, oiio::TypeDesc::FLOAT);
    header.channelnames = {layer + ".u", layer + ".v"};
    header.attribute("compression", "zip");
    auto out = oiio::ImageOutput::create(path);
    if (!out || !out->open(path, header)) {
        if (reason) *reason = "cannot open it for writing: " + oiio::geterror();
        return kDQErrFile;
    }
    bool ok = true;
    for (int y = 0; ok && y < flow.height; ++y)
        ok = out->write_scanline(y, 0, oiio::TypeDesc::FLOAT, flow.Row<float>(y));
    ok = out->close() && ok;
    if (!ok) {
        if (reason) *reason = "the data could not be written: " + out->geterror();
        return kDQErrFile;
    }
    return 0;
}

DQImagePtr ReadExrFlow(const std::string& path, std::string* reason) {
    ExrMotion motion;
    if (!ReadExrMotion(path, &motion, reason)) return nullptr;
    return motion.forward ? std::move(motion.forward) : std::move(motion.backward);
}

void RegisterExrFlowFiles() {
    RegisterFlowFileKind(".exr", &ReadExrFlow, &WriteForward);
}

} // namespace quelmor::cli

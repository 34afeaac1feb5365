#include "cli/ExrFlowFile.h"

#include "flow/FlowFile.h"

#include <OpenImageIO/imageio.h>

#include <vector>

namespace oiio = OIIO;

namespace quelmor::cli {

namespace {

int FindChannel(const oiio::ImageSpec& spec, const std::string& name) {
    for (int c = 0; c < spec.nchannels; ++c)
        if (spec.channelnames[c] == name) return c;
    return -1;
}

int WriteForward(const DQImage& flow, const std::string& path, std::string* reason) {
    return WriteExrFlow(flow, path, FlowDirection::Forward, reason);
}

} // namespace

int WriteExrFlow(const DQImage& flow, const std::string& path, FlowDirection direction,
                 std::string* reason) {
    if (!flow.data || flow.channels != 2 || flow.dataType != DQ_FLOAT || flow.width < 1 ||
        flow.height < 1) {
        if (reason) *reason = "an EXR flow file holds a two-channel float flow";
        return kDQErrBadArgument;
    }
    const std::string layer = direction == FlowDirection::Forward ? "forward" : "backward";
    oiio::ImageSpec spec(flow.width, flow.height, 2, oiio::TypeDesc::FLOAT);
    spec.channelnames = {layer + ".u", layer + ".v"};
    spec.attribute("compression", "zip");
    auto out = oiio::ImageOutput::create(path);
    if (!out || !out->open(path, spec)) {
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
    auto in = oiio::ImageInput::open(path);
    if (!in) {
        if (reason) *reason = "cannot open it: " + oiio::geterror();
        return nullptr;
    }
    const oiio::ImageSpec& spec = in->spec();
    if (spec.nchannels < 2 || spec.width < 1 || spec.height < 1) {
        if (reason) *reason = "it has fewer than two channels";
        return nullptr;
    }
    int cu = -1, cv = -1;
    for (const char* layer : {"forward.", "backward.", ""}) {
        cu = FindChannel(spec, std::string(layer) + "u");
        cv = FindChannel(spec, std::string(layer) + "v");
        if (cu >= 0 && cv >= 0) break;
    }
    if (cu < 0 || cv < 0) cu = 0, cv = 1;
    std::vector<float> pixels(size_t(spec.width) * spec.height * spec.nchannels);
    if (!in->read_image(0, 0, 0, spec.nchannels, oiio::TypeDesc::FLOAT, pixels.data())) {
        if (reason) *reason = "the data could not be read: " + in->geterror();
        return nullptr;
    }
    DQImagePtr flow = DQMakeImage(spec.width, spec.height, 2, DQ_FLOAT);
    for (int y = 0; y < spec.height; ++y) {
        float* out = flow->Row<float>(y);
        const float* row = pixels.data() + size_t(y) * spec.width * spec.nchannels;
        for (int x = 0; x < spec.width; ++x) {
            out[2 * x] = row[x * spec.nchannels + cu];
            out[2 * x + 1] = row[x * spec.nchannels + cv];
        }
    }
    return flow;
}

void RegisterExrFlowFiles() {
    RegisterFlowFileKind(".exr", &ReadExrFlow, &WriteForward);
}

} // namespace quelmor::cli

#include "cli/ExrFlowFile.h"

#include "flow/FlowFile.h"

#include <OpenImageIO/imageio.h>

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

} // namespace

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
    auto in = oiio::ImageInput::open(path);
    if (!in) {
        if (reason) *reason = "cannot open it: " + oiio::geterror();
        return nullptr;
    }
    const oiio::ImageSpec& header = in->spec();
    if (header.nchannels < 2 || header.width < 1 || header.height < 1) {
        if (reason) *reason = "it has fewer than two channels";
        return nullptr;
    }
    int cu = -1, cv = -1;
    for (const char* layer : {"forward.", "backward.", ""}) {
        cu = FindChannel(header, std::string(layer) + "u");
        cv = FindChannel(header, std::string(layer) + "v");
        if (cu >= 0 && cv >= 0) break;
    }
    if (cu < 0 || cv < 0) cu = 0, cv = 1;
    std::vector<float> pixels(size_t(header.width) * header.height * header.nchannels);
    if (!in->read_image(0, 0, 0, header.nchannels, oiio::TypeDesc::FLOAT, pixels.data())) {
        if (reason) *reason = "the data could not be read: " + in->geterror();
        return nullptr;
    }
    DQImagePtr flow = DQMakeImage(header.width, header.height, 2, DQ_FLOAT);
    for (int y = 0; y < header.height; ++y) {
        float* out = flow->Row<float>(y);
        const float* row = pixels.data() + size_t(y) * header.width * header.nchannels;
        for (int x = 0; x < header.width; ++x) {
            out[2 * x] = row[x * header.nchannels + cu];
            out[2 * x + 1] = row[x * header.nchannels + cv];
        }
    }
    return flow;
}

void RegisterExrFlowFiles() {
    RegisterFlowFileKind(".exr", &ReadExrFlow, &WriteForward);
}

} // namespace quelmor::cli

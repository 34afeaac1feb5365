// Frame-rate conversion as users ask for it (--fps, --input-fps) and the sound of video files,
// which a conversion at the input's pace keeps and a change of speed leaves out.
#include "CliTestSupport.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <OpenImageIO/imageio.h>

#include <cmath>

#include "cli/SequencePattern.h"

namespace quelmor::cli::test {
namespace {

namespace oiio = OIIO;

// Writes `frames` grey 8-bit frames of 32x16 numbered from 0, each saying it plays at `rate`.
void WriteRatedSequence(const std::string& pattern, int frames, const int (&rate)[2]) {
    for (int i = 0; i < frames; ++i) {
        oiio::ImageSpec header(32, 16, 1, oiio::TypeDesc::UINT8);
        if (rate[0] > 0) header.attribute("FramesPerSecond", oiio::TypeRational, rate);
        std::vector<std::uint8_t> pixels(32 * 16);
        for (std::size_t p = 0; p < pixels.size(); ++p)
            pixels[p] = std::uint8_t((p % 32) * 4 + std::size_t(i) * 3);
        const std::string path = SequencePattern::Parse(pattern)->Path(i);
        auto out = oiio::ImageOutput::create(path);
        ASSERT_TRUE(out && out->open(path, header));
        ASSERT_TRUE(out->write_image(oiio::TypeDesc::UINT8, pixels.data()));
        out->close();
    }
}

// Adds a second of a tone as AAC to a copy of the video file `video`, written as `path`.
void AddSound(const std::string& video, const std::string& path) {
    AVFormatContext* in = nullptr;
    ASSERT_GE(avformat_open_input(&in, video.c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(in, nullptr), 0);
    AVFormatContext* out = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&out, nullptr, nullptr, path.c_str()), 0);
    AVStream* picture = avformat_new_stream(out, nullptr);
    avcodec_parameters_copy(picture->codecpar, in->streams[0]->codecpar);
    picture->codecpar->codec_tag = 0;
    picture->time_base = in->streams[0]->time_base;

    const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
    ASSERT_TRUE(aac);
    AVCodecContext* enc = avcodec_alloc_context3(aac);
    enc->sample_rate = 48000;
    enc->sample_fmt = AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&enc->ch_layout, 1);
    enc->time_base = {1, 48000};
    enc->bit_rate = 64000;
    if (out->oformat->flags & AVFMT_GLOBALHEADER) enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    ASSERT_GE(avcodec_open2(enc, aac, nullptr), 0);
    AVStream* sound = avformat_new_stream(out, nullptr);
    avcodec_parameters_from_context(sound->codecpar, enc);
    sound->time_base = enc->time_base;
    ASSERT_GE(avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
    ASSERT_GE(avformat_write_header(out, nullptr), 0);

    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(in, packet) >= 0) {
        av_packet_rescale_ts(packet, in->streams[0]->time_base, picture->time_base);
        packet->stream_index = picture->index;
        av_interleaved_write_frame(out, packet);
    }
    AVFrame* samples = av_frame_alloc();
    samples->nb_samples = enc->frame_size;
    samples->format = enc->sample_fmt;
    av_channel_layout_copy(&samples->ch_layout, &enc->ch_layout);
    av_frame_get_buffer(samples, 0);
    auto drain = [&] {
        while (avcodec_receive_packet(enc, packet) == 0) {
            av_packet_rescale_ts(packet, enc->time_base, sound->time_base);
            packet->stream_index = sound->index;
            av_interleaved_write_frame(out, packet);
        }
    };
    for (int64_t at = 0; at < 48000; at += enc->frame_size) {
        av_frame_make_writable(samples);
        auto* data = reinterpret_cast<float*>(samples->data[0]);
        for (int i = 0; i < enc->frame_size; ++i)
            data[i] = 0.3f * std::sin(float(at + i) * 0.0576f);
        samples->pts = at;
        avcodec_send_frame(enc, samples);
        drain();
    }
    avcodec_send_frame(enc, nullptr);
    drain();
    av_write_trailer(out);
    avio_closep(&out->pb);
    av_frame_free(&samples);
    av_packet_free(&packet);
    avcodec_free_context(&enc);
    avformat_free_context(out);
    avformat_close_input(&in);
}

// Streams of a video file by kind.
int StreamsOf(const std::string& path, AVMediaType kind) {
    AVFormatContext* in = nullptr;
    if (avformat_open_input(&in, path.c_str(), nullptr, nullptr) < 0) return -1;
    avformat_find_stream_info(in, nullptr);
    int count = 0;
    for (unsigned i = 0; i < in->nb_streams; ++i)
        count += in->streams[i]->codecpar->codec_type == kind;
    avformat_close_input(&in);
    return count;
}

std::string RateOf(const std::string& path) {
    auto in = oiio::ImageInput::open(path);
    if (!in) return "unreadable";
    const oiio::ParamValue* p = in->spec().find_attribute("FramesPerSecond", oiio::TypeRational);
    if (!p) return "none";
    const int* r = static_cast<const int*>(p->data());
    return std::to_string(r[0]) + "/" + std::to_string(r[1]);
}

using Rates = FolderTest;

TEST_F(Rates, FpsMakesFramesAtTheInputsPace) {
    // 24 frames at 24 a second to 60 a second: 2.5 times the frames, from the metadata of an
    // image sequence, from --input-fps, or from a video file.
    const int rated[2] = {24, 1}, unrated[2] = {0, 0};
    WriteRatedSequence(In("rated.%d.exr"), 24, rated);
    WriteRatedSequence(In("plain.%d.exr"), 24, unrated);
    WriteSynthClip(In("clip.mp4"), 24, SampleType::U8, 48, 32);
    ASSERT_EQ(OpenMedia(In("clip.mp4"))->FrameRate(), 25.0); // the writer's default
    WriteOptions at24;
    at24.frameRate = 24.0;
    {
        auto writer = CreateMedia(In("clip24.mp4"), {48, 32, 3, SampleType::U8}, at24);
        auto reader = OpenMedia(In("clip.mp4"));
        MediaFrame frame;
        for (int i = 0; i < 24; ++i) {
            reader->Read(i, frame);
            writer->Write(i, frame);
        }
        writer->Finish();
    }
    struct Case {
        const char* name;
        const char* line;
        const char* out;
        int frames;
        double rate;
    };
    const Case cases[] = {
        {"sequence metadata", "retime @rated.%d.exr @a.%d.exr --fps 60", "a.%d.exr", 60, 60},
        {"input fps given", "retime @plain.%d.exr @b.%d.exr --fps 60 --input-fps 24", "b.%d.exr",
         60, 60},
        {"input fps over metadata", "retime @rated.%d.exr @c.%d.exr --fps 60 --input-fps 30",
         "c.%d.exr", 48, 60},
        {"video", "retime @clip24.mp4 @d.mp4 --fps 60", "d.mp4", 60, 60},
        {"video to 30", "retime @clip24.mp4 @e.mov --fps 30", "e.mov", 30, 30},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Run(std::string(c.line) + " --quiet --quality none");
        auto out = OpenMedia(In(c.out));
        EXPECT_EQ(out->FrameCount(), c.frames);
        EXPECT_NEAR(out->FrameRate(), c.rate, 1e-9);
        if (const auto pattern = SequencePattern::Parse(c.out)) {
            EXPECT_EQ(RateOf(In(pattern->Path(0))), std::to_string(int(c.rate)) + "/1");
        }
    }
}

TEST_F(Rates, SoundIsKeptAtTheInputsPaceOnly) {
    WriteSynthClip(In("silent.mp4"), 25, SampleType::U8, 48, 32);
    AddSound(In("silent.mp4"), In("clip.mp4"));
    ASSERT_EQ(StreamsOf(In("clip.mp4"), AVMEDIA_TYPE_AUDIO), 1);
    const struct {
        const char* name;
        const char* in;
        const char* out;
        const char* options;
        int sound;
        bool noted;
    } cases[] = {
        {"rate conversion", "clip.mp4", "a.mp4", "--fps 50", 1, false},
        {"rate conversion to mov", "clip.mp4", "b.mov", "--fps 30", 1, false},
        {"same rate", "clip.mp4", "c.mp4", "--speed 1", 1, false},
        {"slower", "clip.mp4", "d.mp4", "--speed 0.5", 0, true},
        {"slower at a higher rate", "clip.mp4", "e.mp4", "--speed 0.5 --rate 30", 0, true},
        {"no sound to keep", "silent.mp4", "f.mp4", "--fps 50", 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const RunResult r = Run(std::string("retime @") + c.in + " @" + c.out + " " + c.options +
                                " --quality none");
        const std::string out = In(c.out);
        EXPECT_EQ(StreamsOf(out, AVMEDIA_TYPE_AUDIO), c.sound);
        EXPECT_EQ(StreamsOf(out, AVMEDIA_TYPE_VIDEO), 1);
        EXPECT_EQ(r.err.find("sound of") != std::string::npos, c.noted) << r.err;
    }
}

} // namespace
} // namespace quelmor::cli::test

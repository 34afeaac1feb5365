#include "VideoFile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <unistd.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <system_error>

#include "SequencePattern.h"

namespace quelmor::cli {
namespace fs = std::filesystem;

namespace {

// Owners of FFmpeg objects, so that every path out of a function frees them.
struct FormatInputDeleter {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecDeleter {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameDeleter {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct ScaleDeleter {
    void operator()(SwsContext* s) const { sws_freeContext(s); }
};
using InputPtr = std::unique_ptr<AVFormatContext, FormatInputDeleter>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using ScalePtr = std::unique_ptr<SwsContext, ScaleDeleter>;

// FFmpeg's own chatter (encoder statistics) is not for our users; errors still show.
void QuietenLibraries() {
    static const bool once = [] {
        av_log_set_level(AV_LOG_ERROR);
        return true;
    }();
    (void)once;
}

std::string AvText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

AVPixelFormat RgbFormatOf(const MediaFormat& f) {
    const bool deep = f.sample != SampleType::U8;
    if (f.channels == 4) return deep ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGBA;
    return deep ? AV_PIX_FMT_RGB48 : AV_PIX_FMT_RGB24;
}

// The YUV matrix of a stream that does not say: HD and larger are BT.709.
int MatrixOf(AVColorSpace space, int height) {
    switch (space) {
    case AVCOL_SPC_BT709:
        return SWS_CS_ITU709;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
        return SWS_CS_ITU601;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
        return SWS_CS_BT2020;
    default:
        return height >= 720 ? SWS_CS_ITU709 : SWS_CS_ITU601;
    }
}

class VideoReader final : public MediaReader {
public:
    explicit VideoReader(const std::string& path) : path_(path) {
        Open();
        count_ = CountFrames();
        if (count_ == 0) throw MediaError("input " + path + " holds no video frames");
        Rewind();
    }

    const MediaFormat& Format() const override { return format_; }
    int FrameCount() const override { return count_; }
    int FirstNumber() const override { return 0; }
    double FrameRate() const override { return rate_; }

    void Read(int index, MediaFrame& frame) override {
        if (index < 0 || index >= count_)
            throw MediaError("no frame " + std::to_string(index) + " in " + path_);
        for (const auto& kept : recent_)
            if (kept.first == index) {
                frame = kept.second;
                return;
            }
        if (index < next_) Rewind();
        while (next_ <= index) {
            if (!DecodeNext())
                throw MediaError("cannot decode frame " + std::to_string(next_) + " of " + path_);
            // A decoder conceals damaged data and returns the frame, marked.
            if ((decoded_->flags & AV_FRAME_FLAG_CORRUPT) || decoded_->decode_error_flags)
                throw MediaError("cannot read frame " + std::to_string(next_) + " of " + path_ +
                                 ": its data is damaged");
            MediaFrame converted;
            Convert(converted);
            recent_.emplace_back(next_, std::move(converted));
            if (recent_.size() > 4) recent_.pop_front();
            ++next_;
        }
        frame = recent_.back().second;
    }

private:
    void Open() {
        AVFormatContext* raw = nullptr;
        int rc = avformat_open_input(&raw, path_.c_str(), nullptr, nullptr);
        if (rc < 0) throw MediaError("cannot open " + path_ + ": " + AvText(rc));
        input_.reset(raw);
        rc = avformat_find_stream_info(raw, nullptr);
        if (rc < 0) throw MediaError("cannot read " + path_ + ": " + AvText(rc));
        const AVCodec* codec = nullptr;
        stream_ = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        if (stream_ < 0 || !codec)
            throw MediaError("input " + path_ + " holds no video stream that can be decoded");
        AVStream* st = raw->streams[stream_];
        decoder_.reset(avcodec_alloc_context3(codec));
        avcodec_parameters_to_context(decoder_.get(), st->codecpar);
        decoder_->thread_count = CodecThreads();
        rc = avcodec_open2(decoder_.get(), codec, nullptr);
        if (rc < 0) throw MediaError("cannot decode " + path_ + ": " + AvText(rc));
        const AVRational rate = av_guess_frame_rate(raw, st, nullptr);
        rate_ = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0;
        const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(AVPixelFormat(st->codecpar->format));
        if (!desc || st->codecpar->width <= 0 || st->codecpar->height <= 0)
            throw MediaError("input " + path_ + " has an unknown picture format");
        format_.width = st->codecpar->width;
        format_.height = st->codecpar->height;
        format_.channels = (desc->flags & AV_PIX_FMT_FLAG_ALPHA) ? 4 : 3;
        format_.sample = desc->comp[0].depth > 8 ? SampleType::U16 : SampleType::U8;
        packet_.reset(av_packet_alloc());
        decoded_.reset(av_frame_alloc());
    }

    // Counting packets is exact for video streams and far cheaper than decoding.
    int CountFrames() {
        int count = 0;
        while (av_read_frame(input_.get(), packet_.get()) >= 0) {
            if (packet_->stream_index == stream_) ++count;
            av_packet_unref(packet_.get());
        }
        return count;
    }

    void Rewind() {
        AVStream* st = input_->streams[stream_];
        const int64_t start = st->start_time == AV_NOPTS_VALUE ? 0 : st->start_time;
        if (av_seek_frame(input_.get(), stream_, start, AVSEEK_FLAG_BACKWARD) < 0) {
            // Containers without seeking are opened again.
            input_.reset();
            decoder_.reset();
            Open();
        }
        avcodec_flush_buffers(decoder_.get());
        draining_ = false;
        next_ = 0;
    }

    bool DecodeNext() {
        for (;;) {
            const int rc = avcodec_receive_frame(decoder_.get(), decoded_.get());
            if (rc == 0) return true;
            if (rc != AVERROR(EAGAIN)) return false;
            if (draining_) return false;
            const int read = av_read_frame(input_.get(), packet_.get());
            if (read < 0) {
                draining_ = true;
                avcodec_send_packet(decoder_.get(), nullptr);
                continue;
            }
            if (packet_->stream_index == stream_)
                avcodec_send_packet(decoder_.get(), packet_.get());
            av_packet_unref(packet_.get());
        }
    }

    void Convert(MediaFrame& out) {
        AVFrame* f = decoded_.get();
        if (f->width != format_.width || f->height != format_.height)
            throw MediaError("frame " + std::to_string(next_) + " of " + path_ +
                             " changes the picture size");
        const AVPixelFormat target = RgbFormatOf(format_);
        scale_.reset(sws_getCachedContext(scale_.release(), f->width, f->height,
                                          AVPixelFormat(f->format), f->width, f->height, target,
                                          SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT,
                                          nullptr, nullptr, nullptr));
        if (!scale_) throw MediaError("cannot convert the pictures of " + path_);
        const int matrix = MatrixOf(f->colorspace, f->height);
        const int full = f->color_range == AVCOL_RANGE_JPEG ? 1 : 0;
        sws_setColorspaceDetails(scale_.get(), sws_getCoefficients(matrix), full,
                                 sws_getCoefficients(matrix), 1, 0, 1 << 16, 1 << 16);
        out.Allocate(format_);
        uint8_t* planes[4] = {out.pixels.data(), nullptr, nullptr, nullptr};
        int strides[4] = {int(format_.RowBytes()), 0, 0, 0};
        sws_scale(scale_.get(), f->data, f->linesize, 0, f->height, planes, strides);
    }

    std::string path_;
    InputPtr input_;
    CodecPtr decoder_;
    PacketPtr packet_;
    FramePtr decoded_;
    ScalePtr scale_;
    int stream_ = -1;
    MediaFormat format_;
    double rate_ = 0.0;
    int count_ = 0;
    int next_ = 0;
    bool draining_ = false;
    std::deque<std::pair<int, MediaFrame>> recent_;
};

class VideoWriter final : public MediaWriter {
public:
    VideoWriter(const std::string& path, const MediaFormat& source, const WriteOptions& options)
        : path_(path), temp_(PartPath(path)) {
        const bool prores = ExtensionOf(path) == "mov";
        format_ = source;
        format_.channels = 3;
        format_.sample =
            prores && source.sample != SampleType::U8 ? SampleType::U16 : source.sample;
        if (format_.sample != SampleType::U8 && !prores) format_.sample = SampleType::U8;

        const AVOutputFormat* container = av_guess_format(nullptr, path.c_str(), nullptr);
        if (!container) throw MediaError("unsupported output format for " + path);
        AVFormatContext* raw = nullptr;
        if (avformat_alloc_output_context2(&raw, container, nullptr, temp_.c_str()) < 0 || !raw)
            throw MediaError("cannot create " + path);
        output_ = raw;

        const AVCodec* codec = prores ? avcodec_find_encoder_by_name("prores_ks")
                                      : avcodec_find_encoder_by_name("libx264");
        if (!codec) codec = avcodec_find_encoder(prores ? AV_CODEC_ID_PRORES : AV_CODEC_ID_H264);
        if (!codec)
            throw MediaError(std::string("no ") + (prores ? "ProRes" : "H.264") +
                             " encoder is available");
        encoder_.reset(avcodec_alloc_context3(codec));
        AVCodecContext* c = encoder_.get();
        c->width = format_.width;
        c->height = format_.height;
        const bool even = format_.width % 2 == 0 && format_.height % 2 == 0;
        c->pix_fmt =
            prores ? AV_PIX_FMT_YUV422P10 : (even ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV444P);
        const AVRational rate = av_d2q(options.frameRate > 0 ? options.frameRate : 25.0, 1001000);
        c->time_base = av_inv_q(rate);
        c->framerate = rate;
        c->colorspace = AVCOL_SPC_BT709;
        c->color_primaries = AVCOL_PRI_BT709;
        c->color_trc = AVCOL_TRC_BT709;
        c->color_range = AVCOL_RANGE_MPEG;
        c->thread_count = CodecThreads();
        if (output_->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        AVDictionary* settings = nullptr;
        if (prores) {
            av_dict_set(&settings, "profile", "3", 0); // 422 HQ
        } else {
            av_dict_set(&settings, "crf", "16", 0);
            av_dict_set(&settings, "preset", "fast", 0);
        }
        int rc = avcodec_open2(c, codec, &settings);
        av_dict_free(&settings);
        if (rc < 0) throw MediaError("cannot start the encoder for " + path + ": " + AvText(rc));
        AVStream* st = avformat_new_stream(output_, nullptr);
        if (!st) throw MediaError("cannot create " + path);
        avcodec_parameters_from_context(st->codecpar, c);
        st->time_base = c->time_base;
        st->avg_frame_rate = rate;
        stream_ = st;
        if (!options.audioFrom.empty()) OpenAudio(options.audioFrom);
        rc = avio_open(&output_->pb, temp_.c_str(), AVIO_FLAG_WRITE);
        if (rc < 0) throw MediaError("cannot write " + path + ": " + AvText(rc));
        rc = avformat_write_header(output_, nullptr);
        if (rc < 0) throw MediaError("cannot write " + path + ": " + AvText(rc));

        picture_.reset(av_frame_alloc());
        picture_->format = c->pix_fmt;
        picture_->width = c->width;
        picture_->height = c->height;
        if (av_frame_get_buffer(picture_.get(), 0) < 0)
            throw MediaError("out of memory while encoding " + path);
        scale_.reset(sws_getContext(format_.width, format_.height, RgbFormatOf(format_),
                                    format_.width, format_.height, c->pix_fmt,
                                    SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
                                    nullptr, nullptr));
        if (!scale_) throw MediaError("cannot convert pictures for " + path);
        sws_setColorspaceDetails(scale_.get(), sws_getCoefficients(SWS_CS_ITU709), 1,
                                 sws_getCoefficients(SWS_CS_ITU709), 0, 0, 1 << 16, 1 << 16);
        packet_.reset(av_packet_alloc());
    }

    ~VideoWriter() override {
        encoder_.reset();
        if (output_) {
            if (output_->pb) avio_closep(&output_->pb);
            avformat_free_context(output_);
        }
        if (!finished_) {
            std::error_code ec;
            fs::remove(temp_, ec);
        }
    }

    const MediaFormat& Format() const override { return format_; }

    void Write(int, const MediaFrame& frame) override {
        const MediaFrame* source = &frame;
        if (frame.format.sample != format_.sample || frame.format.channels != format_.channels) {
            ConvertFrame(frame, format_, converted_);
            source = &converted_;
        }
        if (av_frame_make_writable(picture_.get()) < 0)
            throw MediaError("out of memory while encoding " + path_);
        const uint8_t* planes[4] = {source->pixels.data(), nullptr, nullptr, nullptr};
        const int strides[4] = {int(format_.RowBytes()), 0, 0, 0};
        sws_scale(scale_.get(), planes, strides, 0, format_.height, picture_->data,
                  picture_->linesize);
        picture_->pts = pts_++;
        Encode(picture_.get());
    }

    void Finish() override {
        Encode(nullptr);
        CopyAudioUntil(INT64_MAX);
        int rc = av_write_trailer(output_);
        if (rc >= 0) rc = avio_closep(&output_->pb);
        if (rc < 0) throw MediaError("cannot write " + path_ + ": " + AvText(rc));
        std::error_code ec;
        fs::rename(temp_, path_, ec);
        if (ec) throw MediaError("cannot write " + path_ + ": " + ec.message());
        finished_ = true;
    }

private:
    void Encode(AVFrame* picture) {
        int rc = avcodec_send_frame(encoder_.get(), picture);
        if (rc < 0) throw MediaError("cannot encode " + path_ + ": " + AvText(rc));
        for (;;) {
            rc = avcodec_receive_packet(encoder_.get(), packet_.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            if (rc < 0) throw MediaError("cannot encode " + path_ + ": " + AvText(rc));
            av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
            packet_->stream_index = stream_->index;
            // The sound up to this picture goes first, so the file interleaves as it plays.
            if (packet_->dts != AV_NOPTS_VALUE)
                CopyAudioUntil(av_rescale_q(packet_->dts, stream_->time_base, AV_TIME_BASE_Q));
            rc = av_interleaved_write_frame(output_, packet_.get());
            if (rc >= 0 && output_->pb->error < 0) rc = output_->pb->error;
            if (rc < 0) throw MediaError("cannot write " + path_ + ": " + AvText(rc));
        }
    }

    // The source's sound, copied as it is coded, beside the pictures: the output lasts as long
    // as the source.
    void OpenAudio(const std::string& from) {
        AVFormatContext* raw = nullptr;
        if (avformat_open_input(&raw, from.c_str(), nullptr, nullptr) < 0) return;
        audioIn_.reset(raw);
        if (avformat_find_stream_info(raw, nullptr) < 0) return;
        audioStream_ = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
        if (audioStream_ < 0) return;
        const AVCodecParameters* in = raw->streams[audioStream_]->codecpar;
        AVStream* out = avformat_new_stream(output_, nullptr);
        if (!out || avcodec_parameters_copy(out->codecpar, in) < 0)
            throw MediaError("cannot create " + path_);
        out->codecpar->codec_tag = 0;
        out->time_base = raw->streams[audioStream_]->time_base;
        audioOut_ = out;
        audioPacket_.reset(av_packet_alloc());
    }

    // Copies the source's sound packets that start before `until` (in AV_TIME_BASE units).
    void CopyAudioUntil(int64_t until) {
        if (!audioOut_ || audioDone_) return;
        const AVRational from = audioIn_->streams[audioStream_]->time_base;
        for (;;) {
            if (!audioHeld_) {
                if (av_read_frame(audioIn_.get(), audioPacket_.get()) < 0) {
                    audioDone_ = true;
                    return;
                }
                if (audioPacket_->stream_index != audioStream_) {
                    av_packet_unref(audioPacket_.get());
                    continue;
                }
                audioHeld_ = true;
            }
            const int64_t at =
                audioPacket_->dts != AV_NOPTS_VALUE ? audioPacket_->dts : audioPacket_->pts;
            if (at != AV_NOPTS_VALUE && av_rescale_q(at, from, AV_TIME_BASE_Q) > until) return;
            av_packet_rescale_ts(audioPacket_.get(), from, audioOut_->time_base);
            audioPacket_->stream_index = audioOut_->index;
            audioPacket_->pos = -1;
            audioHeld_ = false;
            const int rc = av_interleaved_write_frame(output_, audioPacket_.get());
            if (rc < 0) throw MediaError("cannot write " + path_ + ": " + AvText(rc));
        }
    }

    std::string path_;
    std::string temp_;
    MediaFormat format_;
    InputPtr audioIn_;
    int audioStream_ = -1;
    AVStream* audioOut_ = nullptr;
    PacketPtr audioPacket_;
    bool audioHeld_ = false; // audioPacket_ holds the next packet to copy
    bool audioDone_ = false;
    AVFormatContext* output_ = nullptr;
    AVStream* stream_ = nullptr;
    CodecPtr encoder_;
    FramePtr picture_;
    PacketPtr packet_;
    ScalePtr scale_;
    MediaFrame converted_;
    int64_t pts_ = 0;
    bool finished_ = false;
};

} // namespace

bool IsVideoExtension(const std::string& ext) {
    return ext == "mov" || ext == "mp4" || ext == "m4v" || ext == "mkv" || ext == "avi" ||
           ext == "webm" || ext == "mxf";
}

bool CanWriteVideo(const std::string& ext) {
    return ext == "mov" || ext == "mp4" || ext == "m4v" || ext == "mkv";
}

std::string AudioOf(const std::string& input, const std::string& output) {
    QuietenLibraries();
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, input.c_str(), nullptr, nullptr) < 0) return "";
    InputPtr in(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0) return "";
    const int stream = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (stream < 0) return "";
    const AVCodecID codec = raw->streams[stream]->codecpar->codec_id;
    const AVOutputFormat* container = av_guess_format(nullptr, output.c_str(), nullptr);
    const char* name = avcodec_get_name(codec);
    if (!container || avformat_query_codec(container, codec, FF_COMPLIANCE_NORMAL) != 1)
        return std::string("!") + name;
    return name;
}

std::unique_ptr<MediaReader> OpenVideo(const std::string& path) {
    QuietenLibraries();
    return std::make_unique<VideoReader>(path);
}

std::unique_ptr<MediaWriter> CreateVideo(const std::string& path, const MediaFormat& format,
                                         const WriteOptions& options) {
    if (!CanWriteVideo(ExtensionOf(path)))
        throw MediaError(std::string("unsupported output format for ")
                             .append(path)
                             .append("; use .mov (ProRes) or .mp4 (H.264)"));
    QuietenLibraries();
    return std::make_unique<VideoWriter>(path, format, options);
}

} // namespace quelmor::cli

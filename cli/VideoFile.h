// Video files decoded and encoded through FFmpeg's libraries.
#pragma once

#include <memory>
#include <string>

#include "Media.h"

namespace quelmor::cli {

// Extensions taken for video files when reading; any container FFmpeg knows is decoded.
bool IsVideoExtension(const std::string& ext);
// "mov" is written as ProRes 422 HQ, "mp4", "m4v" and "mkv" as H.264.
bool CanWriteVideo(const std::string& ext);

// The codec of the sound of video file `input`: "" when it has none, and with a leading "!"
// when the container of `output` cannot hold it.
std::string AudioOf(const std::string& input, const std::string& output);

std::unique_ptr<MediaReader> OpenVideo(const std::string& path);
std::unique_ptr<MediaWriter> CreateVideo(const std::string& path, const MediaFormat& format,
                                         const WriteOptions& options);

} // namespace quelmor::cli

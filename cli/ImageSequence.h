// Numbered image files read and written through OpenImageIO.
#pragma once

#include <memory>

#include "Media.h"
#include "SequencePattern.h"

namespace quelmor::cli {

std::unique_ptr<MediaReader> OpenSequence(const SequencePattern& pattern);
std::unique_ptr<MediaWriter> CreateSequence(const SequencePattern& pattern,
                                            const MediaFormat& format, const WriteOptions& options);
// Extensions of the image formats read and written here, lower case.
bool IsImageExtension(const std::string& ext);

} // namespace quelmor::cli

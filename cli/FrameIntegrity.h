// Damage that shows without decoding: a file shorter than its own header says, or one whose end
// marker is missing. Cheap enough (the header and the last bytes of the file) to ask of every
// frame of a sequence before anything is written. Formats that record neither (JPEG, TIFF, EXR,
// HDR, run-length TGA) pass here; their damage shows when the frame is decoded.
#pragma once

#include <string>

namespace quelmor::cli {

// Why the image file at `path`, whose format the extension `ext` names (lower case), is damaged;
// empty when nothing cheap shows damage.
std::string VisibleDamage(const std::string& path, const std::string& ext);

} // namespace quelmor::cli

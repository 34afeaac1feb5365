#pragma once
// Flow on disk. The library reads and writes the Middlebury `.flo` layout itself: the four bytes
// "PIEH" (the float 202021.25), the width and the height as 32-bit integers, then the rows top to
// bottom, each pixel x then y as 32-bit floats, all little-endian. Other kinds of file (OpenEXR, in
// the command) come through a reader and a writer that a program registers for its extension.
//
// Failures print one line naming the file and the reason on the standard error stream.
#include "image/DQImage.h"

#include <string>

// Writes a two-channel float flow as `.flo`, bit for bit. Returns 0, DQErr 2 when the file cannot
// be written, DQErr 5 for an image that is not a two-channel float flow.
int WriteFloFile(const DQImage& flow, const std::string& path, std::string* reason = nullptr);
// Reads a `.flo` file into a new two-channel float flow; null with `reason` set when the file
// cannot be opened, is too short, does not start with the tag, has an impossible size, or holds
// fewer or more bytes than its size says.
DQImagePtr ReadFloFile(const std::string& path, std::string* reason);

// A reader and a writer for the files whose name ends in `extension` (with the dot, compared
// without regard to case). The writer gets a two-channel float flow and returns 0 or a DQErr code;
// the reader returns a new two-channel float flow or null, with the reason set.
using FlowFileWriter = int (*)(const DQImage& flow, const std::string& path, std::string* reason);
using FlowFileReader = DQImagePtr (*)(const std::string& path, std::string* reason);
void RegisterFlowFileKind(const std::string& extension, FlowFileReader reader,
                          FlowFileWriter writer);

// Writes a flow of two channels or more by the kind its name asks for (`.flo` when none is
// registered). Float flow is written as it is; short flow is first decoded with the range of its
// larger side. Fewer than two channels: "Write Flow needs more than 1 channel!" and DQErr 5; a
// temporary that cannot be made: "can't make flow image to write!" and DQErr 1. Returns 0 on
// success, DQErr 2 when the file cannot be written.
int WriteFlow(DQImage* flow, const std::string& path);
// Reads a flow file of any registered kind into a new two-channel float flow, or null after its
// message. Throws DQErr 1 when memory runs out.
DQImagePtr ReadFlow(const std::string& path);

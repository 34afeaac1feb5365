// The commands live in a shared library of their own, beside the executable: it carries the
// engine, the stand-in host and the media readers and writers, which pull in OpenImageIO and
// FFmpeg and a few hundred shared libraries with them. The executable loads it only when a command
// runs, so that `--help` and a wrong command line start at once.
#pragma once

namespace quelmor::cli {

// File name of the library; the executable finds it through its run path (its own folder in
// the build tree, the library folder once installed).
inline constexpr const char* kCommandLibraryFile = "libquelmor_commands.so";
// Name of the library's entry, declared below.
inline constexpr const char* kCommandEntryName = "QuelmorRunCommand";

// Loads the library and runs the command argv[1] with the arguments after it; returns the exit
// status. A library that cannot be loaded is reported on the standard error stream (status 1).
int RunCommandFromLibrary(int argc, char** argv);

} // namespace quelmor::cli

// The library's entry: runs the command argv[1] with the arguments after it and returns the
// exit status. Never throws: every error is printed and becomes the status.
extern "C" int QuelmorRunCommand(int argc, char** argv);

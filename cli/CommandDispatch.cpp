// The entry of the commands library: one command of the quelmor command line, with what it
// throws turned into a message and an exit status.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "CommandLibrary.h"
#include "CommandLine.h"
#include "Commands.h"
#include "MediaFrame.h"
#include "StopSignals.h"

extern "C" int QuelmorRunCommand(int argc, char** argv) {
    using namespace quelmor::cli;
    if (argc < 2) {
        std::fprintf(stderr, "quelmor: no command (quelmor --help lists the commands)\n");
        return 2;
    }
    try {
        const std::string command = argv[1];
        const std::vector<std::string> args(argv + 2, argv + argc);
        if (command == "retime") return RunRetime(args);
        if (command == "spark") return RunSpark(args);
        if (command == "synth") return RunSynth(args);
        if (command == "score") return RunScore(args);
        if (command == "dissolve") return RunDissolve(args);
        if (command == "vectors") return RunVectors(args);
        throw UsageError("unknown command \"" + command + "\"");
    } catch (const Interrupted& e) {
        std::fprintf(stderr, "quelmor: %s\n", e.what());
        return 128 + e.Signal();
    } catch (const UsageError& e) {
        std::fprintf(stderr, "quelmor: %s\n(quelmor --help lists the commands and options)\n",
                     e.what());
        return 2;
    } catch (const MediaError& e) {
        std::fprintf(stderr, "quelmor: %s\n", e.what());
        return 1;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "quelmor: out of memory\n");
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quelmor: %s\n", e.what());
        return 1;
    }
}

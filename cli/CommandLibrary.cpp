#include "CommandLibrary.h"

#include <dlfcn.h>

#include <cstdio>

namespace quelmor::cli {

int RunCommandFromLibrary(int argc, char** argv) {
    // Global, so that the plug-in loaded later by `quelmor spark` finds the host operations that
    // the library exports. Every symbol at once: a missing one is reported here, not mid-run.
    void* library = dlopen(kCommandLibraryFile, RTLD_NOW | RTLD_GLOBAL);
    if (!library) {
        std::fprintf(stderr,
                     "quelmor: cannot load the commands: %s\n(%s belongs beside the quelmor "
                     "executable, or in the library folder of its installation)\n",
                     dlerror(), kCommandLibraryFile);
        return 1;
    }
    using Entry = int (*)(int, char**);
    const auto entry = reinterpret_cast<Entry>(dlsym(library, kCommandEntryName));
    if (!entry) {
        std::fprintf(stderr, "quelmor: %s has no entry %s: it belongs to another build\n",
                     kCommandLibraryFile, kCommandEntryName);
        return 1;
    }
    // The library stays loaded until the process ends: its static objects and the workers
    // it started are torn down with the process, after the command has returned.
    return entry(argc, argv);
}

} // namespace quelmor::cli

// Start-up of the quelmor command: the usage comes from the executable alone, without the
// commands library and the media libraries it pulls in; a command loads them; the library shows
// the process nothing but its entry and the host operations.
#include <elf.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "CliTestSupport.h"

namespace quelmor::cli::test {
namespace {

// Sets an environment variable for the processes started while it lives. The loader of this
// process read its own settings at start, so only the children see it.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
    ~ScopedEnvironment() { unsetenv(name_); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* name_;
};

// The loader reports each shared object it opens as "file=NAME [namespace];".
bool Loaded(const std::string& loaderReport, const std::string& prefix) {
    return loaderReport.find("file=" + prefix) != std::string::npos;
}

TEST(Startup, UsageLoadsNoMediaLibrary) {
    struct Case {
        const char* name;
        std::vector<std::string> args;
        int status;
        bool commandsLoaded; // the library, and with it OpenImageIO and FFmpeg
    };
    const Case cases[] = {
        {"--help", {"--help"}, 0, false},
        {"-h", {"-h"}, 0, false},
        {"help", {"help"}, 0, false},
        {"no arguments", {}, 2, false},
        // A command loads them, even one that stops at its arguments: the check below sees a
        // load when there is one.
        {"score of missing files",
         {"score", "/nonexistent/a.%04d.png", "/nonexistent/b.%04d.png"},
         1,
         true},
    };
    const ScopedEnvironment debug("LD_DEBUG", "files");
    for (const Case& c : cases) {
        const RunResult r = RunQuelmor(c.args);
        EXPECT_EQ(r.status, c.status)
            << c.name << ": " << r.err.substr(r.err.size() - std::min<size_t>(r.err.size(), 400));
        // The loader writes its report on the standard error stream.
        for (const char* library : {"libquelmor_commands.so", "libOpenImageIO", "libavcodec"})
            EXPECT_EQ(Loaded(r.err, library), c.commandsLoaded) << c.name << ": " << library;
        if (!c.commandsLoaded) {
            EXPECT_NE((c.status == 0 ? r.out : r.err).find("usage: quelmor COMMAND"),
                      std::string::npos)
                << c.name;
        }
    }
}

// Names of the symbols that an ELF shared object defines for other objects: global and weak
// entries of its dynamic symbol table that are not undefined.
std::set<std::string> ExportedSymbols(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::set<std::string> names;
    if (bytes.size() < sizeof(Elf64_Ehdr)) {
        ADD_FAILURE() << path << " is not an ELF file";
        return names;
    }
    const auto* header = reinterpret_cast<const Elf64_Ehdr*>(bytes.data());
    const auto* sections = reinterpret_cast<const Elf64_Shdr*>(bytes.data() + header->e_shoff);
    for (int i = 0; i < header->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_DYNSYM) continue;
        const char* strings = bytes.data() + sections[sections[i].sh_link].sh_offset;
        const auto* symbols =
            reinterpret_cast<const Elf64_Sym*>(bytes.data() + sections[i].sh_offset);
        const size_t count = sections[i].sh_size / sizeof(Elf64_Sym);
        for (size_t s = 1; s < count; ++s) {
            const int binding = ELF64_ST_BIND(symbols[s].st_info);
            if (symbols[s].st_shndx != SHN_UNDEF && (binding == STB_GLOBAL || binding == STB_WEAK))
                names.insert(strings + symbols[s].st_name);
        }
    }
    return names;
}

// The host operations, as the stand-in host lists them for the dynamic symbol table:
// "{", one "name;" a line, "};".
std::set<std::string> HostOperations() {
    std::ifstream list(QUELMOR_HOST_OPERATIONS);
    std::set<std::string> names;
    for (std::string word; list >> word;)
        if (word.size() > 1 && std::isalpha(static_cast<unsigned char>(word[0])) &&
            word.back() == ';')
            names.insert(word.substr(0, word.size() - 1));
    return names;
}

TEST(Startup, CommandsLibraryExportsItsEntryAndTheHostOperationsAlone) {
    std::set<std::string> expected = HostOperations();
    ASSERT_GE(expected.size(), 10u) << "host operations read from " << QUELMOR_HOST_OPERATIONS;
    ASSERT_TRUE(expected.count("sparkMpFork"));
    expected.insert("QuelmorRunCommand");
    // Anything more (the core's functions, a Width or Height) would take the place of the
    // plug-in's own when the plug-in is loaded into the same process.
    EXPECT_EQ(ExportedSymbols(QUELMOR_COMMANDS_LIBRARY), expected);
}

} // namespace
} // namespace quelmor::cli::test

// Runs the quelmor executable for end-to-end tests and collects what it printed.
#pragma once

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace quelmor::cli::test {

struct RunResult {
    int status = -1; // exit status, or 128 + signal
    std::string out;
    std::string err;
};

struct RunLimits {
    long maxFileBytes = -1;      // files larger than this cannot be written, as on a full disk
    bool asUnprivileged = false; // run as "nobody", for whom root's folders are not writable
};

inline std::string Slurp(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline RunResult RunQuelmor(const std::vector<std::string>& args, const RunLimits& limits = {}) {
    namespace fs = std::filesystem;
    const fs::path scratch =
        fs::temp_directory_path() / ("quelmor_run_" + std::to_string(getpid()));
    fs::create_directories(scratch);
    const std::string outPath = (scratch / "out").string(), errPath = (scratch / "err").string();
    std::vector<std::string> argv = {QUELMOR_BINARY};
    argv.insert(argv.end(), args.begin(), args.end());
    const pid_t pid = fork();
    if (pid == 0) {
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        dup2(out, 1);
        dup2(err, 2);
        if (limits.maxFileBytes >= 0) {
            signal(SIGXFSZ, SIG_IGN); // writes beyond the limit fail with an error instead
            rlimit r{rlim_t(limits.maxFileBytes), rlim_t(limits.maxFileBytes)};
            setrlimit(RLIMIT_FSIZE, &r);
        }
        if (limits.asUnprivileged && geteuid() == 0) {
            if (const passwd* nobody = getpwnam("nobody")) {
                if (setgid(nobody->pw_gid) != 0 || setuid(nobody->pw_uid) != 0) _exit(125);
            }
        }
        std::vector<char*> raw;
        for (auto& a : argv)
            raw.push_back(a.data());
        raw.push_back(nullptr);
        execv(raw[0], raw.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    RunResult r;
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    r.out = Slurp(outPath);
    r.err = Slurp(errPath);
    fs::remove_all(scratch);
    return r;
}

// Names and sizes of everything under a folder, to show that a refused run changed nothing.
inline std::vector<std::string> FolderState(const std::filesystem::path& dir) {
    std::vector<std::string> state;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir))
        state.push_back(e.path().lexically_relative(dir).string() + ":" +
                        (e.is_regular_file() ? std::to_string(e.file_size()) : std::string("dir")));
    std::sort(state.begin(), state.end());
    return state;
}

} // namespace quelmor::cli::test

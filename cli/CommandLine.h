// Splitting the command line into a command, its file arguments and its options,
// and reading option values with messages that say what was wrong.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace quelmor::cli {

// Wrong use of the command: printed with a hint at --help, exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct OptionSpec {
    const char* name; // without the leading dashes
    bool takesValue;
};

struct CommandLine {
    std::vector<std::string> files;
    std::map<std::string, std::string> values; // flags map to ""

    bool Has(const std::string& name) const { return values.count(name) != 0; }
    std::optional<std::string> Value(const std::string& name) const;
};

// Parses the arguments that follow the command word. `--name value` and
// `--name=value` both work; an unknown option or a missing value throws UsageError.
CommandLine ParseCommandLine(const std::string& command, std::span<const std::string> args,
                             std::span<const OptionSpec> options);

// Checked readers of option values; `what` names the option in the message.
double ParsePositive(const std::string& text, const std::string& what);
double ParseNonNegative(const std::string& text, const std::string& what);
int ParseCount(const std::string& text, const std::string& what); // whole number of 1 or more
struct FrameRange {
    int first;
    int last;
};
FrameRange ParseFrameRange(const std::string& text); // "A-B" or "A"
struct Size {
    int width;
    int height;
};
Size ParseSize(const std::string& text); // "WxH"
// A menu entry by name (any case) or by its number in `names`.
int ParseChoice(const std::string& text, const std::string& what,
                std::span<const char* const> names);

} // namespace quelmor::cli

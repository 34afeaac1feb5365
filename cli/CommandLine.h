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

// One option, declared once with what it accepts; the parser and the checked readers of
// CommandLine read the declaration, so that commands sharing a declaration share its limits.
struct OptionSpec {
    const char* name; // without the leading dashes
    bool takesValue;
    // A number's limits, checked by CommandLine::Number: at least `min` (above it when
    // `minExcluded`) and at most `max`.
    double min = -1e300;
    bool minExcluded = false;
    double max = 1e300;
    // A menu's entries, by name or number, for CommandLine::Choice.
    std::span<const char* const> choices = {};
};

struct CommandLine {
    std::vector<std::string> files;
    std::map<std::string, std::string> values; // flags map to ""; the last of a repeated option
    // Every option as given, in order, for options that may be repeated.
    std::vector<std::pair<std::string, std::string>> given;
    std::span<const OptionSpec> options; // the declarations parsed against

    bool Has(const std::string& name) const { return values.count(name) != 0; }
    std::optional<std::string> Value(const std::string& name) const;
    // Every value given for `name`, in the order given.
    std::vector<std::string> Values(const std::string& name) const;
    // The value of a numeric option checked against its declared limits, or of a menu option
    // as the entry's number; none when not given. Throws UsageError naming the option.
    std::optional<double> Number(const std::string& name) const;
    std::optional<int> Choice(const std::string& name) const;
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
Size ParseSize(const std::string& text, const std::string& what = "--size"); // "WxH"
// A menu entry by name (any case) or by its number in `names`.
int ParseChoice(const std::string& text, const std::string& what,
                std::span<const char* const> names);

} // namespace quelmor::cli

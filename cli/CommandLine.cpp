#include "CommandLine.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace quelmor::cli {

std::optional<std::string> CommandLine::Value(const std::string& name) const {
    const auto it = values.find(name);
    if (it == values.end()) return std::nullopt;
    return it->second;
}

CommandLine ParseCommandLine(const std::string& command, std::span<const std::string> args,
                             std::span<const OptionSpec> options) {
    CommandLine out;
    out.options = options;
    bool onlyFiles = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (onlyFiles || arg.size() < 2 || arg[0] != '-' ||
            std::isdigit(static_cast<unsigned char>(arg[1]))) {
            out.files.push_back(arg);
            continue;
        }
        if (arg == "--") {
            onlyFiles = true;
            continue;
        }
        std::string name = arg.substr(arg[1] == '-' ? 2 : 1);
        std::optional<std::string> inlineValue;
        if (const std::size_t eq = name.find('='); eq != std::string::npos) {
            inlineValue = name.substr(eq + 1);
            name.resize(eq);
        }
        const auto known = std::find_if(options.begin(), options.end(),
                                        [&](const OptionSpec& o) { return name == o.name; });
        if (known == options.end())
            throw UsageError("unknown option " + arg + " for quelmor " + command);
        if (!known->takesValue) {
            if (inlineValue) throw UsageError("option --" + name + " takes no value");
            out.values[name] = "";
        } else if (inlineValue) {
            out.values[name] = *inlineValue;
        } else {
            if (i + 1 >= args.size()) throw UsageError("option --" + name + " needs a value");
            out.values[name] = args[++i];
        }
        out.given.emplace_back(name, out.values[name]);
    }
    return out;
}

std::vector<std::string> CommandLine::Values(const std::string& name) const {
    std::vector<std::string> all;
    for (const auto& [option, value] : given)
        if (option == name) all.push_back(value);
    return all;
}

namespace {

double ParseNumber(const std::string& text, const std::string& what) {
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(v))
        throw UsageError(what + " must be a number, got \"" + text + "\"");
    return v;
}

int ParseInteger(const std::string& text, const std::string& what) {
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || end != text.c_str() + text.size() || errno == ERANGE || v < -1000000000L ||
        v > 1000000000L)
        throw UsageError(what + " must be a whole number, got \"" + text + "\"");
    return int(v);
}

} // namespace

namespace {

// Shortest text of a limit: 5, 0.5, 1e-06.
std::string LimitText(double v) {
    std::ostringstream text;
    text << v;
    return text.str();
}

const OptionSpec& Declared(std::span<const OptionSpec> options, const std::string& name) {
    for (const OptionSpec& o : options)
        if (name == o.name) return o;
    throw std::logic_error("option --" + name + " is not declared");
}

} // namespace

std::optional<double> CommandLine::Number(const std::string& name) const {
    const auto text = Value(name);
    if (!text) return std::nullopt;
    const OptionSpec& option = Declared(options, name);
    const std::string what = "--" + name;
    const double v = ParseNumber(*text, what);
    if (option.minExcluded && !(v > option.min))
        throw UsageError(what + " must be above " + LimitText(option.min) + ", got " + *text);
    if (v < option.min)
        throw UsageError(what +
                         (option.min == 0 ? " must not be negative"
                                          : " must be " + LimitText(option.min) + " or more") +
                         ", got " + *text);
    if (v > option.max)
        throw UsageError(what + " must be " + LimitText(option.max) + " or less, got " + *text);
    return v;
}

std::optional<int> CommandLine::Choice(const std::string& name) const {
    const auto text = Value(name);
    if (!text) return std::nullopt;
    return ParseChoice(*text, "--" + name, Declared(options, name).choices);
}

double ParsePositive(const std::string& text, const std::string& what) {
    const double v = ParseNumber(text, what);
    if (v <= 0) throw UsageError(what + " must be above 0, got " + text);
    return v;
}

double ParseNonNegative(const std::string& text, const std::string& what) {
    const double v = ParseNumber(text, what);
    if (v < 0) throw UsageError(what + " must not be negative, got " + text);
    return v;
}

int ParseCount(const std::string& text, const std::string& what) {
    const int v = ParseInteger(text, what);
    if (v < 1) throw UsageError(what + " must be 1 or more, got " + text);
    return v;
}

FrameRange ParseFrameRange(const std::string& text) {
    const std::size_t dash = text.find('-', 1);
    FrameRange r;
    if (dash == std::string::npos) {
        r.first = r.last = ParseInteger(text, "--frames");
    } else {
        r.first = ParseInteger(text.substr(0, dash), "the first frame of --frames");
        r.last = ParseInteger(text.substr(dash + 1), "the last frame of --frames");
    }
    if (r.first < 0 || r.last < r.first)
        throw UsageError("--frames wants A-B with 0 <= A <= B, got \"" + text + "\"");
    return r;
}

Size ParseSize(const std::string& text, const std::string& what) {
    const std::size_t x = text.find_first_of("xX");
    if (x == std::string::npos)
        throw UsageError(what + " wants WIDTHxHEIGHT, got \"" + text + "\"");
    const Size s{ParseCount(text.substr(0, x), "the width of " + what),
                 ParseCount(text.substr(x + 1), "the height of " + what)};
    if (s.width < 8 || s.height < 8 || s.width > 16384 || s.height > 16384)
        throw UsageError(what + " must lie between 8x8 and 16384x16384, got " + text);
    return s;
}

int ParseChoice(const std::string& text, const std::string& what,
                std::span<const char* const> names) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    for (std::size_t i = 0; i < names.size(); ++i)
        if (lower == names[i] || lower == std::to_string(i)) return int(i);
    std::string known;
    for (const char* n : names)
        known += std::string(known.empty() ? "" : ", ") + n;
    throw UsageError(what + " must be one of " + known + ", got \"" + text + "\"");
}

} // namespace quelmor::cli

#include "cli/ChannelMix.h"

#include <algorithm>
#include <cctype>

#include "cli/CommandLine.h"

namespace quelmor::cli {

namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

std::string LastPart(const std::string& name) {
    const auto dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(dot + 1);
}

bool Names(const std::string& choice, const std::string& channel) {
    const std::string c = Lower(choice);
    return c == Lower(channel) || c == Lower(LastPart(channel));
}

} // namespace

ChannelMix DefaultChannelMix(const std::string& name) {
    const std::string whole = Lower(name), last = Lower(LastPart(name));
    const bool depth = last == "z" || last == "zback" || last == "depth" ||
                       whole.starts_with("depth.") || whole.starts_with("z.");
    const bool id = last.size() >= 2 && last.ends_with("id");
    const bool idMatte = whole.starts_with("crypto");
    return depth || id || idMatte ? ChannelMix::Nearest : ChannelMix::Blend;
}

std::vector<ChannelMixChoice> ParseChannelMix(const std::string& text) {
    std::vector<ChannelMixChoice> choices;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const std::string item = text.substr(start, comma - start);
        const std::size_t equals = item.rfind('=');
        const std::string name = equals == std::string::npos ? "" : item.substr(0, equals);
        const std::string mix = equals == std::string::npos ? "" : Lower(item.substr(equals + 1));
        if (name.empty() || (mix != "nearest" && mix != "blend"))
            throw UsageError("--channel-mix wants NAME=nearest or NAME=blend, separated by commas, "
                             "not \"" +
                             item + "\"");
        choices.push_back({name, mix == "nearest" ? ChannelMix::Nearest : ChannelMix::Blend});
        start = comma + 1;
    }
    return choices;
}

std::vector<ChannelMix> MixOfChannels(const std::vector<std::string>& names,
                                      const std::vector<ChannelMixChoice>& choices) {
    std::vector<ChannelMix> mixes;
    for (const std::string& name : names)
        mixes.push_back(DefaultChannelMix(name));
    for (const ChannelMixChoice& choice : choices) {
        bool found = false;
        for (std::size_t i = 0; i < names.size(); ++i)
            if (Names(choice.name, names[i])) {
                mixes[i] = choice.mix;
                found = true;
            }
        if (!found) {
            std::string known;
            for (const std::string& name : names)
                known.append(known.empty() ? "" : ", ").append(name);
            throw UsageError("--channel-mix names " + choice.name +
                             ", which is not an extra channel of the input" +
                             (known.empty() ? std::string(" (it has none)") : " (" + known + ")"));
        }
    }
    return mixes;
}

} // namespace quelmor::cli

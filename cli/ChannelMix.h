// How extra channels (depth, mattes, object ids, render passes) are mixed between two source
// frames: blended like the picture, or taken from the nearest source sample along the vectors,
// for channels whose values must not be made up (a depth halfway between a foreground and a
// background lies on neither; an id halfway between two ids names a third object).
#pragma once

#include <string>
#include <vector>

namespace quelmor::cli {

enum class ChannelMix { Nearest, Blend };

// A choice for the channels named `name`: a whole name ("depth.Z") or the part after the last
// dot ("Z"), in any case.
struct ChannelMixChoice {
    std::string name;
    ChannelMix mix = ChannelMix::Blend;
};

// Nearest for depth (Z, ZBack, depth), ids (names ending in "id") and id mattes (crypto...);
// blend for everything else.
ChannelMix DefaultChannelMix(const std::string& name);

// "NAME=nearest|blend[,NAME=...]"; throws UsageError for anything else.
std::vector<ChannelMixChoice> ParseChannelMix(const std::string& text);

// The mix of each channel of `names`: the last choice naming it, else its default. Throws
// UsageError for a choice that names none of the channels.
std::vector<ChannelMix> MixOfChannels(const std::vector<std::string>& names,
                                      const std::vector<ChannelMixChoice>& choices);

} // namespace quelmor::cli

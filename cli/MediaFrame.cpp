#include "MediaFrame.h"

namespace quelmor::cli {

const char* SampleTypeName(SampleType type) {
    switch (type) {
    case SampleType::U8:
        return "8-bit";
    case SampleType::U16:
        return "16-bit";
    case SampleType::Half:
        return "half float";
    case SampleType::Float:
        return "float";
    }
    return "unknown";
}

std::size_t SampleBytes(SampleType type) {
    switch (type) {
    case SampleType::U8:
        return 1;
    case SampleType::U16:
    case SampleType::Half:
        return 2;
    case SampleType::Float:
        return 4;
    }
    return 0;
}

} // namespace quelmor::cli

#include "sparkhost/PluginLoader.h"

#include <dlfcn.h>

namespace {

// Highest panel number looked for.
constexpr int kMaxRecordNumber = 99;

struct KindName {
    SparkPlugin::RecordKind kind;
    const char* prefix;
};
constexpr KindName kKindNames[] = {
    {SparkPlugin::RecordKind::Float, "SparkFloat"},
    {SparkPlugin::RecordKind::Int, "SparkInt"},
    {SparkPlugin::RecordKind::Pup, "SparkPup"},
    {SparkPlugin::RecordKind::Boolean, "SparkBoolean"},
    {SparkPlugin::RecordKind::Push, "SparkPush"},
};

template <class F>
bool Resolve(void* handle, const char* name, F* target, std::string* error) {
    *target = reinterpret_cast<F>(dlsym(handle, name));
    if (*target) return true;
    if (error) *error = std::string("missing entry point ") + name;
    return false;
}

} // namespace

std::unique_ptr<SparkPlugin> SparkPlugin::Load(const std::string& path, std::string* error) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        if (error) *error = dlerror();
        return nullptr;
    }
    std::unique_ptr<SparkPlugin> plugin(new SparkPlugin);
    plugin->handle_ = handle;
    bool ok =
        Resolve(handle, "SparkInitialise", &plugin->initialise_, error) &&
        Resolve(handle, "SparkUnInitialise", &plugin->unInitialise_, error) &&
        Resolve(handle, "SparkMemoryTempBuffers", &plugin->memoryTempBuffers_, error) &&
        Resolve(handle, "SparkClips", &plugin->clips_, error) &&
        Resolve(handle, "SparkIsInputFormatSupported", &plugin->isInputFormatSupported_, error) &&
        Resolve(handle, "SparkProcessStart", &plugin->processStart_, error) &&
        Resolve(handle, "SparkProcess", &plugin->process_, error);
    if (!ok) return nullptr;
    plugin->autoDuration_ = static_cast<unsigned char*>(dlsym(handle, "AutoDuration"));
    plugin->width_ = static_cast<int*>(dlsym(handle, "Width"));
    plugin->height_ = static_cast<int*>(dlsym(handle, "Height"));
    for (const auto& kind : kKindNames) {
        for (int number = 0; number <= kMaxRecordNumber; ++number) {
            std::string name = kind.prefix + std::to_string(number);
            if (void* address = dlsym(handle, name.c_str()))
                plugin->records_.push_back({kind.kind, number, name, address});
        }
    }
    return plugin;
}

SparkPlugin::~SparkPlugin() {
    if (handle_) dlclose(handle_);
}

const SparkPlugin::Record* SparkPlugin::Find(const std::string& name) const {
    for (const auto& record : records_)
        if (record.name == name) return &record;
    return nullptr;
}

const SparkPlugin::Record* SparkPlugin::FindNumber(int number) const {
    for (const auto& record : records_)
        if (record.number == number) return &record;
    return nullptr;
}

std::optional<double> SparkPlugin::Value(const Record& record) const {
    switch (record.kind) {
    case RecordKind::Float:
        return static_cast<SparkFloatStruct*>(record.address)->Value;
    case RecordKind::Int:
        return static_cast<SparkIntStruct*>(record.address)->Value;
    case RecordKind::Pup:
        return static_cast<SparkPupStruct*>(record.address)->Value;
    case RecordKind::Boolean:
        return static_cast<SparkBooleanStruct*>(record.address)->Value;
    case RecordKind::Push:
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<double> SparkPlugin::Value(const std::string& name) const {
    const Record* record = Find(name);
    return record ? Value(*record) : std::nullopt;
}

bool SparkPlugin::SetValue(const std::string& name, double value) const {
    const Record* record = Find(name);
    if (!record) return false;
    switch (record->kind) {
    case RecordKind::Float:
        static_cast<SparkFloatStruct*>(record->address)->Value = float(value);
        return true;
    case RecordKind::Int:
        static_cast<SparkIntStruct*>(record->address)->Value = int(value);
        return true;
    case RecordKind::Pup:
        static_cast<SparkPupStruct*>(record->address)->Value = int(value);
        return true;
    case RecordKind::Boolean:
        static_cast<SparkBooleanStruct*>(record->address)->Value = value != 0 ? 1 : 0;
        return true;
    case RecordKind::Push:
        return false;
    }
    return false;
}

const char* SparkPlugin::Title(const std::string& name, int entry) const {
    const Record* record = Find(name);
    if (!record) return nullptr;
    switch (record->kind) {
    case RecordKind::Float:
        return static_cast<SparkFloatStruct*>(record->address)->Title;
    case RecordKind::Int:
        return static_cast<SparkIntStruct*>(record->address)->Title;
    case RecordKind::Boolean:
        return static_cast<SparkBooleanStruct*>(record->address)->Title;
    case RecordKind::Push:
        return static_cast<SparkPushStruct*>(record->address)->Title;
    case RecordKind::Pup: {
        auto* pup = static_cast<SparkPupStruct*>(record->address);
        return entry >= 0 && entry < SPARK_PUP_MAX_TITLES ? pup->Titles[entry] : nullptr;
    }
    }
    return nullptr;
}

SparkCallbackFunction SparkPlugin::CallbackOf(const Record& record) const {
    switch (record.kind) {
    case RecordKind::Float:
        return static_cast<SparkFloatStruct*>(record.address)->Callback;
    case RecordKind::Int:
        return static_cast<SparkIntStruct*>(record.address)->Callback;
    case RecordKind::Pup:
        return static_cast<SparkPupStruct*>(record.address)->Callback;
    case RecordKind::Boolean:
        return static_cast<SparkBooleanStruct*>(record.address)->Callback;
    case RecordKind::Push:
        return static_cast<SparkPushStruct*>(record.address)->Callback;
    }
    return nullptr;
}

SparkCallbackFunction SparkPlugin::Callback(const std::string& name) const {
    const Record* record = Find(name);
    return record ? CallbackOf(*record) : nullptr;
}

void* SparkPlugin::Symbol(const std::string& name) const {
    return dlsym(handle_, name.c_str());
}

void* SparkPlugin::CallCallback(const std::string& name, int why, spark_info_struct info) const {
    const Record* record = Find(name);
    if (!record) return nullptr;
    SparkCallbackFunction callback = CallbackOf(*record);
    return callback ? callback(why, info) : nullptr;
}

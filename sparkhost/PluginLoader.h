#pragma once
// Loads a Spark plug-in as a host does: dlopen with every symbol resolved at once, entry points
// and panel records found by name, values written into a record's first field, callbacks called
// with the host's record by value.
#include "host/Spark.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

class SparkPlugin {
public:
    enum class RecordKind { Float, Int, Pup, Boolean, Push };

    // One panel record of the plug-in, found by its exported name.
    struct Record {
        RecordKind kind;
        int number;
        std::string name;
        void* address;
    };

    // Loads the shared object at `path`; null with a reason in `error` when it cannot be loaded or
    // lacks an entry point.
    static std::unique_ptr<SparkPlugin> Load(const std::string& path, std::string* error);
    ~SparkPlugin();
    SparkPlugin(const SparkPlugin&) = delete;
    SparkPlugin& operator=(const SparkPlugin&) = delete;

    // Entry points.
    int Initialise(spark_info_struct info) const { return initialise_(info); }
    void UnInitialise(spark_info_struct info) const { unInitialise_(info); }
    int MemoryTempBuffers() const { return memoryTempBuffers_(); }
    int Clips() const { return clips_(); }
    int IsInputFormatSupported(int depth) const { return isInputFormatSupported_(depth); }
    int ProcessStart(spark_info_struct info) const { return processStart_(info); }
    void* Process(spark_info_struct info) const { return process_(info); }

    // Exported variables; null when the plug-in does not export them.
    unsigned char* AutoDuration() const { return autoDuration_; }
    int* Width() const { return width_; }
    int* Height() const { return height_; }

    const std::vector<Record>& Records() const { return records_; }
    const Record* Find(const std::string& name) const;
    // The record with this panel number, whatever its form; null when there is none.
    const Record* FindNumber(int number) const;
    // Value field of a record as a number (Float, Int, Pup, Boolean); none for a push or unknown.
    std::optional<double> Value(const std::string& name) const;
    std::optional<double> Value(const Record& record) const;
    // Writes the value field; false for a push or an unknown name.
    bool SetValue(const std::string& name, double value) const;
    // Title of a Float, Int, Boolean or Push record, or entry `entry` of a Pup; null if none.
    const char* Title(const std::string& name, int entry = 0) const;
    // Calls the record's callback as the host does; null when it has none.
    void* CallCallback(const std::string& name, int why, spark_info_struct info) const;
    // The callback a record names; null when it has none.
    SparkCallbackFunction Callback(const std::string& name) const;
    // Address of any symbol the plug-in exports; null when it exports no such name.
    void* Symbol(const std::string& name) const;

private:
    SparkPlugin() = default;
    SparkCallbackFunction CallbackOf(const Record& record) const;

    void* handle_ = nullptr;
    int (*initialise_)(spark_info_struct) = nullptr;
    void (*unInitialise_)(spark_info_struct) = nullptr;
    int (*memoryTempBuffers_)() = nullptr;
    int (*clips_)() = nullptr;
    int (*isInputFormatSupported_)(int) = nullptr;
    int (*processStart_)(spark_info_struct) = nullptr;
    void* (*process_)(spark_info_struct) = nullptr;
    unsigned char* autoDuration_ = nullptr;
    int* width_ = nullptr;
    int* height_ = nullptr;
    std::vector<Record> records_;
};

#include "sparkhost/SetupFile.h"

#include "sparkhost/PluginLoader.h"

#include <fstream>
#include <iomanip>
#include <sstream>

bool SparkSaveSetupFile(const SparkPlugin& plugin, const std::string& path) {
    std::ofstream file(path);
    if (!file) return false;
    file << "# Spark setup: panel record values\n";
    for (const auto& record : plugin.Records()) {
        if (auto value = plugin.Value(record))
            file << record.name << ' ' << std::setprecision(9) << *value << '\n';
    }
    return bool(file);
}

bool SparkLoadSetupFile(const SparkPlugin& plugin, const std::string& path) {
    std::ifstream file(path);
    if (!file) return false;
    std::string line;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string name;
        double value = 0.0;
        if (fields >> name >> value) plugin.SetValue(name, value);
    }
    return true;
}

std::string SparkSetupFileProblem(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string line;
    for (int number = 1; file && std::getline(file, line); ++number) {
        const std::string where = "line " + std::to_string(number);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        for (const char c : line)
            if (static_cast<unsigned char>(c) < 0x20 && c != '\t')
                return where + " holds binary data";
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string name, rest;
        double value = 0.0;
        if (!(fields >> name >> value) || (fields >> rest))
            return where + " is not a record name and a number: \"" + line.substr(0, 60) + "\"";
    }
    return file.bad() || !file.eof() ? "it cannot be read" : "";
}

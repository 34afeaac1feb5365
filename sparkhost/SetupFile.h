#pragma once
// Setups: the values of a plug-in's panel records in a readable text file, one record a line,
// "Name value". Loading writes each value found into the record of that name and leaves the
// others alone; unknown names and malformed lines are skipped.
#include <string>

class SparkPlugin;

bool SparkSaveSetupFile(const SparkPlugin& plugin, const std::string& path);
// False when the file cannot be read.
bool SparkLoadSetupFile(const SparkPlugin& plugin, const std::string& path);

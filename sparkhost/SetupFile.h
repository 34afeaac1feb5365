#pragma once
// Setups: the values of a plug-in's panel records in a readable text file, one record a line,
// "Name value". Loading writes each value found into the record of that name and leaves the
// others alone; unknown names and malformed lines are skipped.
#include <string>

class SparkPlugin;

bool SparkSaveSetupFile(const SparkPlugin& plugin, const std::string& path);
// False when the file cannot be read.
bool SparkLoadSetupFile(const SparkPlugin& plugin, const std::string& path);
// Why the file at `path` is not a setup that loading would take whole: unreadable, binary, or a
// line other than a comment or "Name value"; empty for a good setup.
std::string SparkSetupFileProblem(const std::string& path);

#pragma once

#include <string>

// The engine's copies of the product and company names, and the folders built from them.

// Replaces the names; an empty or null argument keeps the former one.
void DRAVSetProductNames(const char* shortName, const char* longName, const char* compactName);
std::string GetCompanyName(bool shortName);
std::string GetProductName(bool shortName);
std::string GetProductCompactName();

// "$HOME/Library/Application Support/<company>/<product>". With create, each
// of the three levels below HOME that is missing is made. Empty when no home
// folder is known.
std::string DRAVGetAppDataDirectory(bool create);
// "$HOME/Movies/<product>", made level by level with create.
std::string DRAVGetMovieDirectory(bool create);

// Joins two path parts with exactly one "/".
std::string DRAVJoinPath(const std::string& folder, const std::string& component);
// Creates a folder and its missing parents; true when it exists afterwards.
bool DRAVCreateFolder(const std::string& path);

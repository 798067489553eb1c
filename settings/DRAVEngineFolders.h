#pragma once

#include <string>

// The engine's copies of the product and company names, and the folders built from them.

// Replaces the names; an empty or null argument keeps the former one.
void DRAVSetProductNames(const char* shortName, const char* longName, const char* compactName);
std::string GetCompanyName(bool shortName);
std::string GetProductName(bool shortName);
std::string GetProductCompactName();

// DplFile_GetUserConfigFolder() + "/<company>/<product>": $XDG_CONFIG_HOME,
// else $HOME/.config, else the passwd entry's home + "/.config". With create,
// each missing level is made. Empty when no home folder is known: callers
// then have no settings folder, never a shared stand-in.
std::string DRAVGetAppDataDirectory(bool create);
// An application that keeps its data elsewhere names the folder itself; both
// layers then use it as it is (made with create). Empty goes back to the rule above.
void DRAVSetAppDataDirectory(const std::string& folder);
// "$HOME/Videos/<product>", made level by level with create.
std::string DRAVGetMovieDirectory(bool create);

#pragma once

#include <string>

#include "portable-core/json/TJSON.h"

// Moves JSON documents between memory and files.
class CDplJsonFile
{
public:
    // Writes the document as pretty text, replacing the file atomically
    // (DplFile_WriteAtomically): a failure at any point leaves the former file
    // whole. False for a path that is not UTF-8 or when any step fails.
    static bool ExportToFile(const std::string& path, const TJSON& json);
    // The same with the indent of ToString: null for compact text.
    static bool ExportToFile(const std::string& path, const TJSON& json, int* indent);
    // Writes text that is already made, with the same guarantees.
    static bool WriteTextAtomically(const std::string& path, const std::string& text);

    // Reads and parses a whole file into json, replacing its former node.
    // False, with json untouched, for a bad path, a missing, unreadable or empty file.
    static bool ImportFromFile(const std::string& path, TJSON& json);
    // Reads a whole file; false when it can't be read completely.
    static bool ReadWholeFile(const std::string& path, std::string& text);

    // The temporary file that an export of path writes first.
    static std::string TemporaryPathFor(const std::string& path);
};

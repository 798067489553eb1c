#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The engine's log folder keeps a bounded, numbered set of logs: "Trace.log"
// for the running session, "Trace01.log" for the one before, and so on.
// Housekeeping only ever touches files named like that: whatever else the
// user keeps in the folder stays.
#define LOG_BASEFILENAME "Trace"
#define LOG_FILEEXTENSION ".log"
#define LOG_FILENAME LOG_BASEFILENAME LOG_FILEEXTENSION

// The folder's logs ordered oldest first: by modification time, and for equal
// times the higher number (the older session) first.
std::vector<std::string> DRAVLog_ListLogFilesOldestFirst(const std::string& folder);

// With maxFiles of 1 or more and at least that many logs, deletes the oldest
// until maxFiles - 1 remain, leaving room for the log about to start.
void DRAVLog_DeleteOldLogFiles(const std::string& folder, int64_t maxFiles);

// Renumbers the logs: the newest becomes "Trace01.log", the oldest gets the
// highest number, so "Trace.log" is free for the new session.
void DRAVLog_RenameOldLogFiles(const std::string& folder);

namespace DRAVLog
{
// Prepares the folder for a new session's "Trace.log": rotates the logs there,
// or creates the folder and its parents. `name` is the new log's name, kept
// for the caller; rotation follows the names above.
void DRAVInitLogFile(const std::string& folder, const std::string& name, int64_t maxFiles);
}  // namespace DRAVLog

#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// Thin file helpers. Paths are UTF-8 with "/" as the separator. None of them
// throws: failures give false, 0 or an empty string.

int DplFileIo_Open(const char* path, int flags, int mode);
int64_t DplFileIo_Seek(int fd, int64_t offset, int whence);
// Length by seeking to the end; the position is restored. 0 for fd < 1.
int64_t DplFileIo_FileLength(int fd);

FILE* DplFile_fopen(const char* path, const char* mode, bool unused = false);
int DplFile_fseek(FILE* file, int64_t offset, int whence);
int64_t DplFile_ftell(FILE* file);
int64_t DplFile_FileLength(FILE* file);

std::string DplFile_GetLongPathWithPrefix(const std::string& path);
bool DplFile_Stat(const std::string& path, struct stat& info);
// Modification time in seconds as mktime(gmtime(mtime)); 0 on failure.
int64_t DplFile_GetFileTime(const std::string& path);
int64_t DplFile_GetFileSize(const std::string& path);
bool DplFile_FileExists(const std::string& path);
bool DplFile_FolderExists(const std::string& path);
bool DplFile_ItemExists(const std::string& path);
bool DplFile_IsNetworkDriveRoot(const std::string& path);

// True when the file is gone afterwards (or never was there).
bool DplFile_Delete(const std::string& path);
bool DplFile_Rename(const std::string& from, const std::string& to, bool createFolder);

std::string DplFile_GetFolderPath(const std::string& path);
std::string DplFile_GetFileName(const std::string& path);
// What follows the last "." of the file name; empty when there is none or the name ends with it.
std::string DplFile_GetExtension(const std::string& path);
// Replaces what follows the last "." of the file name; without one the text is appended as it stands.
std::string DplFile_SetExtension(const std::string& path, const std::string& extension);
std::string DplFile_AddPathComponent(const std::string& path, const std::string& component);
// Components in order; an absolute path starts with an empty component, so
// that joining with "/" gives the path back.
std::vector<std::string> DplFile_SplitPath(const std::string& path);
std::string DplFile_JoinComponents(const std::vector<std::string>& components, const std::string& separator);
std::string DplFile_GetURL(const std::string& path);

bool DplFile_CreateFolder(const std::string& path, bool recursive);
bool DplFile_Copy(const std::string& from, const std::string& to);
bool DplFile_CopyFolder(const std::string& from, const std::string& to);
bool DplFile_DeleteFolder(const std::string& path);
// Names of the entries of a folder ("." and ".." left out): files, and folders too when asked.
bool DplFile_EnumFilesInFolder(const std::string& path, std::vector<std::string>& files,
                               bool includeFolders = false);
// Paths of all files below a folder, relative to it.
bool DplFile_EnumFilesInFolderWithSubFolders(const std::string& path, std::vector<std::string>& files);

// Replaces the file at path with bytes so that a reader sees either the old
// or the new content: the bytes go to DplFile_TemporaryPathFor(path) (never
// through a symbolic link), are flushed to disk and renamed over path, and the
// folder is synced so the rename lasts. A failure at any step removes the
// temporary file and leaves the former file whole. False for an empty path or
// one that is not UTF-8.
bool DplFile_WriteAtomically(const std::string& path, const std::string& bytes);
// The temporary file a write of path goes through: in the same folder, named
// after the process, so two processes saving one file don't share it.
std::string DplFile_TemporaryPathFor(const std::string& path);

// Append to the file, creating it; nothing for a null path.
bool DplFile_WriteBufferToFile(const char* path, const void* buffer, size_t size);
bool DplFile_WriteTextToFile(const char* path, const char* text);

void DplFile_MakeValidFilename(std::string& name);
void DplFile_RemoveEndSpaceCharacters(std::string& text);
void DplFile_RemoveStartPeriodCharacters(std::string& text);
void DplFile_RemoveEndPeriodCharacters(std::string& text);

// $TMPDIR, else "/tmp".
std::string DplFile_GetTempFolder();
std::string DplFile_GetDefaultApplicationFolder();
// $HOME, else the home folder of the account's passwd entry; empty when neither is known.
std::string DplFile_GetHomeFolder();
// The user's configuration home: $XDG_CONFIG_HOME when it is an absolute path,
// else DplFile_GetHomeFolder() + "/.config"; empty when no home is known, never
// a shared folder such as /tmp.
std::string DplFile_GetUserConfigFolder();
// The user's: DplFile_GetUserConfigFolder() + "/Drovane/Tidemix", empty without one;
// shared: the first of $XDG_CONFIG_DIRS (default /etc/xdg) + "/Drovane/Tidemix".
std::string DplFile_GetApplicationDataFolder(bool shared);

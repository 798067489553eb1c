#include "portable-core/DplFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>

#include "portable-core/DRAVLog.h"
#include "portable-core/DplString.h"

namespace
{
const char kVendorFolder[] = "Drovane/Tidemix";

struct DirCloser
{
    void operator()(DIR* d) const { closedir(d); }
};
struct FileCloser
{
    void operator()(FILE* f) const { fclose(f); }
};

std::string StripTrailingSlashes(std::string path, size_t keepAtLeast)
{
    while (path.size() > keepAtLeast && path.back() == '/')
    {
        path.pop_back();
    }
    return path;
}

bool IsFolderEntry(const std::string& folder, const dirent* entry)
{
    if (entry->d_type == DT_DIR)
    {
        return true;
    }
    if (entry->d_type == DT_UNKNOWN)
    {
        return DplFile_FolderExists(DplFile_AddPathComponent(folder, entry->d_name));
    }
    return false;
}

bool IsDotEntry(const char* name)
{
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

void EnumRecursive(const std::string& root, const std::string& relative, std::vector<std::string>& files)
{
    const std::string folder = relative.empty() ? root : DplFile_AddPathComponent(root, relative);
    std::unique_ptr<DIR, DirCloser> dir(opendir(folder.c_str()));
    if (!dir)
    {
        return;
    }
    while (const dirent* entry = readdir(dir.get()))
    {
        if (IsDotEntry(entry->d_name))
        {
            continue;
        }
        const std::string name =
            relative.empty() ? entry->d_name : DplFile_AddPathComponent(relative, entry->d_name);
        if (IsFolderEntry(folder, entry))
        {
            EnumRecursive(root, name, files);
        }
        else
        {
            files.push_back(name);
        }
    }
}

class ScopedFd
{
public:
    explicit ScopedFd(int fd) : fd_(fd) {}
    ~ScopedFd()
    {
        if (fd_ >= 0)
        {
            close(fd_);
        }
    }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;
    int Get() const { return fd_; }
    // Closes now and tells whether the close succeeded.
    bool Close()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd < 0 || close(fd) == 0;
    }

private:
    int fd_;
};

bool WriteAll(int fd, const char* data, size_t length)
{
    while (length > 0)
    {
        const ssize_t written = write(fd, data, length);
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written <= 0)
        {
            return false;
        }
        data += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

// Two writes of one path in this process must not share the temporary file.
std::mutex& AtomicWriteMutex()
{
    static std::mutex* mutex = new std::mutex();  // lives through static destruction
    return *mutex;
}
}  // namespace

int DplFileIo_Open(const char* path, int flags, int mode)
{
    if (path == nullptr)
    {
        errno = EINVAL;
        return -1;
    }
    return open(path, flags, static_cast<mode_t>(mode));
}

int64_t DplFileIo_Seek(int fd, int64_t offset, int whence)
{
    return lseek(fd, static_cast<off_t>(offset), whence);
}

int64_t DplFileIo_FileLength(int fd)
{
    if (fd < 1)
    {
        return 0;
    }
    const off_t position = lseek(fd, 0, SEEK_CUR);
    const off_t end = lseek(fd, 0, SEEK_END);
    if (position >= 0)
    {
        lseek(fd, position, SEEK_SET);
    }
    return end < 0 ? 0 : end;
}

FILE* DplFile_fopen(const char* path, const char* mode, bool)
{
    if (path == nullptr || mode == nullptr)
    {
        return nullptr;
    }
    return fopen(path, mode);
}

int DplFile_fseek(FILE* file, int64_t offset, int whence)
{
    return file == nullptr ? -1 : fseeko(file, static_cast<off_t>(offset), whence);
}

int64_t DplFile_ftell(FILE* file)
{
    return file == nullptr ? 0 : ftello(file);
}

int64_t DplFile_FileLength(FILE* file)
{
    if (file == nullptr)
    {
        return 0;
    }
    const off_t position = ftello(file);
    fseeko(file, 0, SEEK_END);
    const off_t end = ftello(file);
    if (position >= 0)
    {
        fseeko(file, position, SEEK_SET);
    }
    return end < 0 ? 0 : end;
}

std::string DplFile_GetLongPathWithPrefix(const std::string& path)
{
    return path;
}

bool DplFile_Stat(const std::string& path, struct stat& info)
{
    return stat(path.c_str(), &info) == 0;
}

int64_t DplFile_GetFileTime(const std::string& path)
{
    struct stat info
    {
    };
    if (!DplFile_Stat(path, info))
    {
        return 0;
    }
    tm utc{};
    if (gmtime_r(&info.st_mtime, &utc) == nullptr)
    {
        return 0;
    }
    return mktime(&utc);
}

int64_t DplFile_GetFileSize(const std::string& path)
{
    struct stat info
    {
    };
    return DplFile_Stat(path, info) ? info.st_size : 0;
}

bool DplFile_FileExists(const std::string& path)
{
    struct stat info
    {
    };
    return DplFile_Stat(path, info) && !S_ISDIR(info.st_mode);
}

bool DplFile_FolderExists(const std::string& path)
{
    struct stat info
    {
    };
    return DplFile_Stat(path, info) && S_ISDIR(info.st_mode);
}

bool DplFile_ItemExists(const std::string& path)
{
    struct stat info
    {
    };
    return DplFile_Stat(path, info);
}

bool DplFile_IsNetworkDriveRoot(const std::string&)
{
    return false;
}

bool DplFile_Delete(const std::string& path)
{
    struct stat info
    {
    };
    if (lstat(path.c_str(), &info) != 0)
    {
        return true;
    }
    return unlink(path.c_str()) == 0;
}

bool DplFile_Rename(const std::string& from, const std::string& to, bool createFolder)
{
    if (from.empty() || to.empty() || !DplFile_ItemExists(from))
    {
        return false;
    }
    if (createFolder)
    {
        const std::string folder = DplFile_GetFolderPath(to);
        if (!folder.empty() && !DplFile_FolderExists(folder))
        {
            DplFile_CreateFolder(folder, true);
        }
    }
    return rename(from.c_str(), to.c_str()) == 0;
}

std::string DplFile_GetFolderPath(const std::string& path)
{
    std::string trimmed = StripTrailingSlashes(path, 1);
    const size_t slash = trimmed.rfind('/');
    if (slash == std::string::npos)
    {
        return {};
    }
    std::string folder = StripTrailingSlashes(trimmed.substr(0, slash), 1);
    if (folder.empty())
    {
        return "/";
    }
    return folder;
}

std::string DplFile_GetFileName(const std::string& path)
{
    const std::string trimmed = StripTrailingSlashes(path, 0);
    const size_t slash = trimmed.rfind('/');
    return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

std::string DplFile_GetExtension(const std::string& path)
{
    const std::string name = DplFile_GetFileName(path);
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot + 1 == name.size())
    {
        return {};
    }
    return name.substr(dot + 1);
}

std::string DplFile_SetExtension(const std::string& path, const std::string& extension)
{
    const size_t slash = path.rfind('/');
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || dot < nameStart)
    {
        return path + extension;
    }
    // An extension given with its dot replaces the old one without doubling it.
    const std::string bare = (!extension.empty() && extension[0] == '.') ? extension.substr(1) : extension;
    return path.substr(0, dot + 1) + bare;
}

std::string DplFile_AddPathComponent(const std::string& path, const std::string& component)
{
    if (path.empty())
    {
        return component;
    }
    if (component.empty())
    {
        return path;
    }
    const bool pathSlash = path.back() == '/';
    const bool componentSlash = component.front() == '/';
    if (pathSlash && componentSlash)
    {
        return path + component.substr(1);
    }
    if (!pathSlash && !componentSlash)
    {
        return path + "/" + component;
    }
    return path + component;
}

std::vector<std::string> DplFile_SplitPath(const std::string& path)
{
    std::vector<std::string> components;
    if (!path.empty() && path[0] == '/')
    {
        components.emplace_back();
    }
    for (std::string& piece : DplString_Split(path, "/"))
    {
        if (!piece.empty())
        {
            components.push_back(std::move(piece));
        }
    }
    return components;
}

std::string DplFile_JoinComponents(const std::vector<std::string>& components, const std::string& separator)
{
    std::string out;
    for (size_t i = 0; i < components.size(); ++i)
    {
        if (i > 0)
        {
            out += separator;
        }
        out += components[i];
    }
    return out;
}

std::string DplFile_GetURL(const std::string& path)
{
    std::vector<std::string> components = DplFile_SplitPath(path);
    for (std::string& component : components)
    {
        component = DplString_GetRFC3986URLEncodedString(component);
    }
    return "file://" + DplFile_JoinComponents(components, "/");
}

bool DplFile_CreateFolder(const std::string& path, bool recursive)
{
    if (path.empty())
    {
        return false;
    }
    if (mkdir(path.c_str(), 0777) == 0)
    {
        return true;
    }
    if (errno == EEXIST)
    {
        return DplFile_FolderExists(path);
    }
    if (errno == ENOENT && recursive)
    {
        const std::string parent = DplFile_GetFolderPath(path);
        if (parent.empty() || parent == path || !DplFile_CreateFolder(parent, true))
        {
            return false;
        }
        return mkdir(path.c_str(), 0777) == 0 || (errno == EEXIST && DplFile_FolderExists(path));
    }
    return false;
}

bool DplFile_Copy(const std::string& from, const std::string& to)
{
    std::unique_ptr<FILE, FileCloser> in(fopen(from.c_str(), "rb"));
    if (!in)
    {
        return false;
    }
    std::unique_ptr<FILE, FileCloser> out(fopen(to.c_str(), "wb"));
    if (!out)
    {
        return false;
    }
    char buffer[512];
    for (;;)
    {
        const size_t got = fread(buffer, 1, sizeof(buffer), in.get());
        if (got > 0 && fwrite(buffer, 1, got, out.get()) != got)
        {
            return false;
        }
        if (got < sizeof(buffer))
        {
            if (ferror(in.get()))
            {
                return false;
            }
            break;
        }
    }
    return fclose(out.release()) == 0;
}

bool DplFile_CopyFolder(const std::string& from, const std::string& to)
{
    if (!DplFile_FolderExists(from) || !DplFile_CreateFolder(to, true))
    {
        return false;
    }
    std::unique_ptr<DIR, DirCloser> dir(opendir(from.c_str()));
    if (!dir)
    {
        return false;
    }
    bool ok = true;
    while (const dirent* entry = readdir(dir.get()))
    {
        if (IsDotEntry(entry->d_name))
        {
            continue;
        }
        const std::string source = DplFile_AddPathComponent(from, entry->d_name);
        const std::string target = DplFile_AddPathComponent(to, entry->d_name);
        ok = (IsFolderEntry(from, entry) ? DplFile_CopyFolder(source, target)
                                         : DplFile_Copy(source, target)) &&
             ok;
    }
    return ok;
}

bool DplFile_DeleteFolder(const std::string& path)
{
    if (path.empty() || !DplFile_ItemExists(path))
    {
        return false;
    }
    char* roots[] = {const_cast<char*>(path.c_str()), nullptr};
    FTS* tree = fts_open(roots, FTS_NOCHDIR | FTS_PHYSICAL, nullptr);
    if (tree == nullptr)
    {
        return false;
    }
    bool ok = true;
    while (FTSENT* entry = fts_read(tree))
    {
        switch (entry->fts_info)
        {
            case FTS_D:
                break;  // removed after its contents, at FTS_DP
            case FTS_DP:
                ok = (rmdir(entry->fts_accpath) == 0) && ok;
                break;
            case FTS_DNR:
            case FTS_ERR:
            case FTS_NS:
                ok = false;
                break;
            default:
                ok = (unlink(entry->fts_accpath) == 0) && ok;
                break;
        }
    }
    fts_close(tree);
    return ok;
}

bool DplFile_EnumFilesInFolder(const std::string& path, std::vector<std::string>& files, bool includeFolders)
{
    std::unique_ptr<DIR, DirCloser> dir(opendir(path.c_str()));
    if (!dir)
    {
        return false;
    }
    while (const dirent* entry = readdir(dir.get()))
    {
        if (IsDotEntry(entry->d_name))
        {
            continue;
        }
        if (includeFolders || !IsFolderEntry(path, entry))
        {
            files.emplace_back(entry->d_name);
        }
    }
    return true;
}

bool DplFile_EnumFilesInFolderWithSubFolders(const std::string& path, std::vector<std::string>& files)
{
    if (!DplFile_FolderExists(path))
    {
        return false;
    }
    EnumRecursive(path, {}, files);
    return true;
}

bool DplFile_WriteBufferToFile(const char* path, const void* buffer, size_t size)
{
    if (path == nullptr)
    {
        return false;
    }
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "a+"));
    if (!file)
    {
        return false;
    }
    if (size > 0 && (buffer == nullptr || fwrite(buffer, 1, size, file.get()) != size))
    {
        return false;
    }
    return fclose(file.release()) == 0;
}

bool DplFile_WriteTextToFile(const char* path, const char* text)
{
    if (text == nullptr)
    {
        return path != nullptr;
    }
    return DplFile_WriteBufferToFile(path, text, strlen(text));
}

void DplFile_MakeValidFilename(std::string& name)
{
    for (char& c : name)
    {
        if (c == '/')
        {
            c = '-';
        }
        else if (c == ':')
        {
            c = '_';
        }
    }
}

void DplFile_RemoveEndSpaceCharacters(std::string& text)
{
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
    {
        text.pop_back();
    }
}

void DplFile_RemoveStartPeriodCharacters(std::string& text)
{
    text.erase(0, text.find_first_not_of('.'));
}

void DplFile_RemoveEndPeriodCharacters(std::string& text)
{
    while (!text.empty() && text.back() == '.')
    {
        text.pop_back();
    }
}

std::string DplFile_GetTempFolder()
{
    if (const char* tmp = getenv("TMPDIR"); tmp != nullptr && tmp[0] != '\0')
    {
        return tmp;
    }
    return "/tmp";
}

std::string DplFile_GetDefaultApplicationFolder()
{
    return "/opt";
}

std::string DplFile_GetHomeFolder()
{
    if (const char* home = getenv("HOME"); home != nullptr && home[0] != '\0')
    {
        return home;
    }
    // No HOME (a service, a stripped environment): the account's own entry.
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd entry = {};
    passwd* found = nullptr;
    while (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
           buffer.size() < 1048576)
    {
        buffer.resize(buffer.size() * 2);
    }
    if (found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] != '\0')
    {
        return found->pw_dir;
    }
    return {};
}

std::string DplFile_GetUserConfigFolder()
{
    // A relative XDG_CONFIG_HOME is invalid by the XDG rules and ignored.
    if (const char* config = getenv("XDG_CONFIG_HOME"); config != nullptr && config[0] == '/')
    {
        return config;
    }
    const std::string home = DplFile_GetHomeFolder();
    return home.empty() ? std::string() : DplFile_AddPathComponent(home, ".config");
}

std::string DplFile_GetApplicationDataFolder(bool shared)
{
    std::string base;
    if (shared)
    {
        const char* dirs = getenv("XDG_CONFIG_DIRS");
        base = (dirs != nullptr && dirs[0] != '\0') ? DplString_Split(dirs, ":").front() : "/etc/xdg";
    }
    else
    {
        base = DplFile_GetUserConfigFolder();
    }
    if (base.empty())
    {
        return {};
    }
    return DplFile_AddPathComponent(base, kVendorFolder);
}

std::string DplFile_TemporaryPathFor(const std::string& path)
{
    return path + ".tmp-" + std::to_string(getpid());
}

bool DplFile_WriteAtomically(const std::string& path, const std::string& bytes)
{
    // A NUL inside would cut the path short at the system call.
    if (path.empty() || path.find('\0') != std::string::npos ||
        !DplString_IsValidUtf8(path.data(), path.size()))
    {
        return false;
    }
    std::lock_guard<std::mutex> guard(AtomicWriteMutex());
    const std::string temporary = DplFile_TemporaryPathFor(path);
    bool written = false;
    {
        ScopedFd file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666));
        if (file.Get() < 0)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "Atomic write: can't create %s (%s)", temporary.c_str(),
                          strerror(errno));
            return false;
        }
        written = WriteAll(file.Get(), bytes.data(), bytes.size()) && fsync(file.Get()) == 0;
        const int error = errno;
        written = file.Close() && written;
        if (!written)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "Atomic write: can't write %s (%s)", temporary.c_str(),
                          strerror(error));
        }
    }
    if (!written || rename(temporary.c_str(), path.c_str()) != 0)
    {
        if (written)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "Atomic write: can't replace %s (%s)", path.c_str(),
                          strerror(errno));
        }
        unlink(temporary.c_str());
        return false;
    }
    // Make the rename itself durable.
    const std::string folder = DplFile_GetFolderPath(path);
    ScopedFd directory(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.Get() >= 0)
    {
        fsync(directory.Get());
    }
    return true;
}

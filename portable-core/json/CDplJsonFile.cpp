#include "portable-core/json/CDplJsonFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "portable-core/DRAVLog.h"
#include "portable-core/DplString.h"

namespace
{
bool IsValidUtf8Path(const std::string& path)
{
    // A NUL inside would cut the path short at the system call.
    return path.find('\0') == std::string::npos && DplString_IsValidUtf8(path.data(), path.size());
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
        int fd = fd_;
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
        ssize_t written = write(fd, data, length);
        if (written < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return false;
        }
        if (written == 0)
        {
            return false;
        }
        data += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

std::string FolderOf(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
    {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Two exports to one path in this process must not share the temporary file.
std::mutex& ExportMutex()
{
    static std::mutex mutex;
    return mutex;
}
}  // namespace

std::string CDplJsonFile::TemporaryPathFor(const std::string& path)
{
    return path + ".tmp";
}

bool CDplJsonFile::ExportToFile(const std::string& path, const TJSON& json)
{
    int level = 0;
    return ExportToFile(path, json, &level);
}

bool CDplJsonFile::ExportToFile(const std::string& path, const TJSON& json, int* indent)
{
    if (!IsValidUtf8Path(path))
    {
        return false;
    }
    return WriteTextAtomically(path, json.ToString(indent));
}

bool CDplJsonFile::WriteTextAtomically(const std::string& path, const std::string& text)
{
    if (path.empty() || !IsValidUtf8Path(path))
    {
        return false;
    }
    std::lock_guard<std::mutex> guard(ExportMutex());
    const std::string temporary = TemporaryPathFor(path);
    bool written = false;
    {
        ScopedFd file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666));
        if (file.Get() < 0)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "JSON file: can't create %s (%s)", temporary.c_str(),
                          strerror(errno));
            return false;
        }
        written = WriteAll(file.Get(), text.data(), text.size()) && fsync(file.Get()) == 0;
        int error = errno;
        written = file.Close() && written;
        if (!written)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "JSON file: can't write %s (%s)", temporary.c_str(),
                          strerror(error));
        }
    }
    if (!written || rename(temporary.c_str(), path.c_str()) != 0)
    {
        if (written)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "JSON file: can't replace %s (%s)", path.c_str(),
                          strerror(errno));
        }
        unlink(temporary.c_str());
        return false;
    }
    // Make the rename itself durable.
    ScopedFd folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0)
    {
        fsync(folder.Get());
    }
    return true;
}

bool CDplJsonFile::ReadWholeFile(const std::string& path, std::string& text)
{
    ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC, 0444));
    if (file.Get() < 0)
    {
        return false;
    }
    struct stat info = {};
    if (fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode))
    {
        return false;
    }
    std::string content;
    content.resize(static_cast<size_t>(info.st_size));
    size_t done = 0;
    while (done < content.size())
    {
        ssize_t got = read(file.Get(), content.data() + done, content.size() - done);
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got <= 0)
        {
            return false;  // shorter than its length said, or unreadable
        }
        done += static_cast<size_t>(got);
    }
    text = std::move(content);
    return true;
}

bool CDplJsonFile::ImportFromFile(const std::string& path, TJSON& json)
{
    if (!IsValidUtf8Path(path))
    {
        return false;
    }
    std::string text;
    if (!ReadWholeFile(path, text) || text.empty())
    {
        return false;
    }
    // The parsed document is the caller's alone.
    json = TJSON(text.c_str());
    return true;
}

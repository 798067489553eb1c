#include "portable-core/json/CDplJsonFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "portable-core/DplFile.h"
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

private:
    int fd_;
};
}  // namespace

std::string CDplJsonFile::TemporaryPathFor(const std::string& path)
{
    return DplFile_TemporaryPathFor(path);
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
    return DplFile_WriteAtomically(path, text);
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

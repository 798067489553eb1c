#include "settings/DRAVEngineFolders.h"

#include "portable-core/DplFile.h"

#include <sys/stat.h>
#include <mutex>

namespace
{
struct ProductNames
{
    std::mutex mutex;
    std::string shortName = "Tidemix";
    std::string longName = "Tidemix";
    std::string compactName = "Tidemix";
    std::string companyName = "Drovane";
    std::string appDataFolder;  // set by the application; empty: the configuration home
};

ProductNames& Names()
{
    static ProductNames* names = new ProductNames();  // lives through static destruction
    return *names;
}

// Adds a component and, with create, makes it when it is missing.
std::string AddLevel(const std::string& folder, const std::string& component, bool create)
{
    std::string path = DplFile_AddPathComponent(folder, component);
    if (create && !DplFile_FolderExists(path))
    {
        mkdir(path.c_str(), 0777);
    }
    return path;
}
}  // namespace

void DRAVSetProductNames(const char* shortName, const char* longName, const char* compactName)
{
    ProductNames& names = Names();
    std::lock_guard<std::mutex> guard(names.mutex);
    if (shortName != nullptr && shortName[0] != '\0')
    {
        names.shortName = shortName;
    }
    if (longName != nullptr && longName[0] != '\0')
    {
        names.longName = longName;
    }
    if (compactName != nullptr && compactName[0] != '\0')
    {
        names.compactName = compactName;
    }
}

std::string GetCompanyName(bool)
{
    ProductNames& names = Names();
    std::lock_guard<std::mutex> guard(names.mutex);
    return names.companyName;
}

std::string GetProductName(bool shortName)
{
    ProductNames& names = Names();
    std::lock_guard<std::mutex> guard(names.mutex);
    return shortName ? names.shortName : names.longName;
}

std::string GetProductCompactName()
{
    ProductNames& names = Names();
    std::lock_guard<std::mutex> guard(names.mutex);
    return names.compactName;
}

void DRAVSetAppDataDirectory(const std::string& folder)
{
    ProductNames& names = Names();
    std::lock_guard<std::mutex> guard(names.mutex);
    names.appDataFolder = folder;
}

std::string DRAVGetAppDataDirectory(bool create)
{
    std::string chosen;
    {
        ProductNames& names = Names();
        std::lock_guard<std::mutex> guard(names.mutex);
        chosen = names.appDataFolder;
    }
    if (!chosen.empty())
    {
        if (create)
        {
            DplFile_CreateFolder(chosen, true);
        }
        return chosen;
    }
    const std::string base = DplFile_GetUserConfigFolder();
    if (base.empty())
    {
        return std::string();
    }
    if (create)
    {
        DplFile_CreateFolder(base, true);
    }
    std::string path = AddLevel(base, GetCompanyName(false), create);
    return AddLevel(path, GetProductName(false), create);
}

std::string DRAVGetMovieDirectory(bool create)
{
    const std::string home = DplFile_GetHomeFolder();
    if (home.empty())
    {
        return std::string();
    }
    std::string path = AddLevel(home, "Videos", create);
    return AddLevel(path, GetProductName(false), create);
}

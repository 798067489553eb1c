#pragma once

#include <cstdlib>
#include <string>

#include "portable-core/DplFile.h"

// A fresh folder under the temp folder, removed with everything in it at the end of the scope.
class PortableCoreTestFolder
{
public:
    PortableCoreTestFolder()
    {
        std::string pattern = DplFile_GetTempFolder() + "/tidemix-core-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr)
        {
            path_ = pattern;
        }
    }
    ~PortableCoreTestFolder()
    {
        if (!path_.empty())
        {
            DplFile_DeleteFolder(path_);
        }
    }
    PortableCoreTestFolder(const PortableCoreTestFolder&) = delete;
    PortableCoreTestFolder& operator=(const PortableCoreTestFolder&) = delete;

    const std::string& Path() const { return path_; }
    std::string Child(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

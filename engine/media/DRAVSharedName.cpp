#include "engine/media/DRAVSharedName.h"

#include <mutex>
#include <unordered_map>

namespace
{
struct NameTable
{
    std::mutex lock;
    std::unordered_map<std::string, std::shared_ptr<const std::string>> names;
    std::shared_ptr<const std::string> empty = std::make_shared<const std::string>();
};

// Never destroyed, like the frames that may outlive static destruction.
NameTable& TheTable()
{
    static NameTable* const sTable = new NameTable();
    return *sTable;
}
}  // namespace

DRAVSharedName::DRAVSharedName() : name_(TheTable().empty) {}

DRAVSharedName::DRAVSharedName(const std::string& name)
{
    NameTable& table = TheTable();
    if (name.empty())
    {
        name_ = table.empty;
        return;
    }
    std::lock_guard<std::mutex> guard(table.lock);
    auto found = table.names.find(name);
    if (found != table.names.end())
    {
        name_ = found->second;
        return;
    }
    auto shared = std::make_shared<const std::string>(name);
    if (table.names.size() < kMaxNames)
    {
        table.names.emplace(name, shared);
    }
    name_ = std::move(shared);
}

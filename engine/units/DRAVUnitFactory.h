#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/units/DRAVUnitDescriptor.h"
#include "portable-core/DRAVResult.h"

class DRAVUnit;

// How units make and let go of helper units (sinks and filters they own)
// without knowing the engine manager, which lies above them. The manager
// installs its own functions; tests install theirs. Without a function the
// creation gives ErrUnknownUnit and the removal does nothing.
struct DRAVUnitFactory
{
    using Create = std::function<DRAVResult(int32_t type, std::shared_ptr<DRAVUnit> owner, bool init,
                                            std::shared_ptr<DRAVUnit>* out)>;
    using SourceCreate =
        std::function<DRAVResult(int32_t type, int32_t usage, std::shared_ptr<DRAVUnit> owner, bool init,
                                 std::shared_ptr<DRAVUnit>* out)>;
    using Remove = std::function<void(const std::shared_ptr<DRAVUnit>& unit)>;
    using Siblings = std::function<std::vector<DRAVUnitDescriptor>(const std::string& objectId)>;

    SourceCreate createSource;
    Create createSink;
    Create createFilter;
    Remove removeUnit;
    // The registered units that the unit with this id owns.
    Siblings listSiblings;

    // Installs `factory` and returns the former one.
    static DRAVUnitFactory Install(DRAVUnitFactory factory);
    // A copy of the installed functions, so that a call never runs under the
    // factory's lock.
    static DRAVUnitFactory Current();

    static DRAVResult CreateSource(int32_t type, int32_t usage, std::shared_ptr<DRAVUnit> owner, bool init,
                                   std::shared_ptr<DRAVUnit>* out);
    static DRAVResult CreateSink(int32_t type, std::shared_ptr<DRAVUnit> owner, bool init,
                                 std::shared_ptr<DRAVUnit>* out);
    static DRAVResult CreateFilter(int32_t type, std::shared_ptr<DRAVUnit> owner, bool init,
                                   std::shared_ptr<DRAVUnit>* out);
    static void RemoveUnit(const std::shared_ptr<DRAVUnit>& unit);
    // None without a function.
    static std::vector<DRAVUnitDescriptor> ListSiblings(const std::string& objectId);
};

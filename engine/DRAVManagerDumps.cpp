// The engine manager's dumps of its registry, for logs and diagnostics.
#include "engine/DRAVManager.h"

namespace
{
const std::string kRuleDouble(40, '=');
const std::string kRuleSingle(40, '-');

void LogLines(const std::string& text)
{
    size_t start = 0;
    while (start < text.size())
    {
        const size_t end = text.find('\n', start);
        const size_t stop = end == std::string::npos ? text.size() : end;
        DRAVLogLine(kDbgPrintLevelInfo, text.substr(start, stop - start));
        start = stop + 1;
    }
}
}  // namespace

void DRAVManager::AppendSiblingsAsString(int level, const std::shared_ptr<DRAVUnit>& unit,
                                         const std::vector<std::shared_ptr<DRAVUnit>>& list, bool details,
                                         std::string& text)
{
    if (level > kMaxOwnershipDepth)
    {
        return;
    }
    const std::string indent(static_cast<size_t>(level) * 4, ' ');
    text +=
        indent + "| " + unit->GetFriendlyName() + " (" + DRAVUnitStateToString(unit->GetUnitState()) + ")\n";
    if (details)
    {
        const std::string prefix = indent + "    ";
        const auto pinLine = [&](const std::shared_ptr<DRAVUnitPin>& pin)
        {
            DRAVQueueStatistics statistics;
            if (pin && pin->GetQueueStatistics(&statistics).Succeeded())
            {
                text += statistics.GetContentString(prefix) + "\n";
            }
        };
        for (int number = 0; number < unit->GetNumInputPins(); ++number)
        {
            pinLine(unit->GetInputPin(number));
        }
        for (int number = 0; number < unit->GetNumOutputPins(); ++number)
        {
            pinLine(unit->GetOutputPin(number));
        }
        if (KVCMap* map = unit->GetPropertyMap())
        {
            const std::string content = map->GetContentString(unit, prefix);
            if (!content.empty())
            {
                text += content;
                if (content.back() != '\n')
                {
                    text += "\n";
                }
            }
        }
    }
    const std::string& id = unit->GetObjectID();
    for (const auto& candidate : list)
    {
        if (candidate != unit && candidate->GetOwnerID() == id)
        {
            AppendSiblingsAsString(level + 1, candidate, list, details, text);
        }
    }
}

std::string DRAVManager::DumpActiveUnitListGetString(bool details)
{
    const std::vector<std::shared_ptr<DRAVUnit>> list = GetActiveUnitList();
    std::string text = kRuleDouble + " ACTIVE UNITS\n" + kRuleSingle + "\n";
    for (const auto& unit : list)
    {
        if (!unit->GetOwner())
        {
            AppendSiblingsAsString(0, unit, list, details, text);
        }
    }
    text += kRuleDouble + "\n";
    return text;
}

void DRAVManager::DumpActiveUnitList()
{
    LogLines(DumpActiveUnitListGetString(false));
}

void DRAVManager::DumpActiveUnits(const std::string& objectId)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (!unit)
    {
        return;
    }
    std::string text;
    AppendSiblingsAsString(0, unit, GetActiveUnitList(), true, text);
    LogLines(text);
}

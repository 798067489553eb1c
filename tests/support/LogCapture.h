#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "portable-core/DRAVLog.h"

namespace tidemix::test
{

// Collects every diagnostic line while it lives, then restores the former handler.
class LogCapture
{
public:
    LogCapture()
    {
        former_ = DRAVSetLogHandler(
            [this](eDbgPrintLevel level, const std::string& line)
            {
                std::lock_guard lock(mutex_);
                lines_.push_back(line);
                levels_.push_back(level);
            });
    }
    ~LogCapture() { DRAVSetLogHandler(former_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> Lines() const
    {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    // The lines with their levels.
    std::vector<std::pair<eDbgPrintLevel, std::string>> Entries() const
    {
        std::lock_guard lock(mutex_);
        std::vector<std::pair<eDbgPrintLevel, std::string>> entries;
        for (size_t i = 0; i < lines_.size(); ++i)
        {
            entries.emplace_back(levels_[i], lines_[i]);
        }
        return entries;
    }
    // Lines that contain `text`.
    size_t Count(const std::string& text) const
    {
        std::lock_guard lock(mutex_);
        return static_cast<size_t>(std::count_if(lines_.begin(), lines_.end(),
                                                 [&](const std::string& line)
                                                 { return line.find(text) != std::string::npos; }));
    }
    void Clear()
    {
        std::lock_guard lock(mutex_);
        lines_.clear();
        levels_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    std::vector<eDbgPrintLevel> levels_;
    DRAVLogHandler former_;
};

}  // namespace tidemix::test

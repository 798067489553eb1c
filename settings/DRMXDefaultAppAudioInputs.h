#pragma once

#include <string>
#include <vector>

#include "portable-core/DRAVResult.h"

// The resource "DefaultAppAudioInputs.json": the applications a new
// installation offers as inputs. Each entry names a URL whose default
// application is taken, else bundle identifiers to try in order.
class DRMXDefaultAppAudioInputs
{
public:
    struct Entry
    {
        std::string urlToOpenDefaultApp;
        std::vector<std::string> bundleIDs;
    };

    // "ErrInvalidParameter" (with the reason) for text that isn't JSON, isn't
    // an object, or whose "inputs" isn't an array. Entries of the wrong shape
    // are dropped, wrongly typed fields read as empty: one bad entry must not
    // cost the others.
    static DRAVResult Parse(const std::string& text, std::vector<Entry>& entries);
};

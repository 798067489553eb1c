#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Applications.h"

namespace tidemix::platform::desktop
{

// The installed applications as the desktop knows them: desktop entries in
// the XDG data folders ($XDG_DATA_HOME, $XDG_DATA_DIRS), their icons from the
// icon theme (hicolor, then pixmaps) and the default handler of a URL scheme
// (the "x-scheme-handler/<scheme>" association). An application's identifier
// is its desktop entry's id without ".desktop"; an identifier with no entry
// of that name is matched against the entries' program names.
class DesktopEntries
{
public:
    static std::optional<InstalledApplication> FindInstalled(const std::string& identifier);
    static std::optional<InstalledApplication> ApplicationForUrl(const std::string& url);
    // Decodes with gdk-pixbuf: PNG, SVG, XPM and whatever loaders are installed.
    static std::shared_ptr<ApplicationIcon> LoadIcon(const std::string& path, std::string* whyNot);
    // Launches the application's desktop entry.
    static bool Launch(const std::string& identifier);
};

}  // namespace tidemix::platform::desktop

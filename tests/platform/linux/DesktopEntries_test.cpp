// Installed applications of the desktop, from desktop entries in private XDG
// folders: found by id or by program name, their icons from the icon theme,
// the default handler of a URL scheme, and icons that aren't pictures.

#include "platform/desktop/DesktopEntries.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace tidemix::platform::desktop
{
namespace
{
namespace fs = std::filesystem;

// A 2 x 2 red RGBA picture.
const unsigned char kPng[] = {0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49,
                              0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02, 0x08, 0x06,
                              0x00, 0x00, 0x00, 0x72, 0xb6, 0x0d, 0x24, 0x00, 0x00, 0x00, 0x11, 0x49, 0x44,
                              0x41, 0x54, 0x78, 0x9c, 0x63, 0xf8, 0xcf, 0xc0, 0xf0, 0x1f, 0x84, 0x19, 0x60,
                              0x0c, 0x00, 0x47, 0xca, 0x07, 0xf9, 0x67, 0x59, 0x6e, 0xb7, 0x00, 0x00, 0x00,
                              0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

// The desktop's folders are read once per process: they are laid out before
// the first look-up.
class DesktopEntriesTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        root_ = fs::temp_directory_path() / ("tidemix-desktop-" + std::to_string(getpid()));
        const fs::path apps = root_ / "data" / "applications";
        const fs::path icons = root_ / "data" / "icons" / "hicolor" / "48x48" / "apps";
        fs::create_directories(apps);
        fs::create_directories(icons);
        fs::create_directories(root_ / "config");
        std::ofstream(icons / "org.example.Player.png", std::ios::binary)
            .write(reinterpret_cast<const char*>(kPng), sizeof(kPng));
        std::ofstream(root_ / "broken.png") << "this is no picture";
        launched_ = root_ / "launched";
        auto entry = [&](const std::string& id, const std::string& name, const std::string& exec,
                         const std::string& icon)
        {
            std::ofstream(apps / (id + ".desktop")) << "[Desktop Entry]\nType=Application\nName=" << name
                                                    << "\nExec=" << exec << "\nIcon=" << icon << "\n";
        };
        entry("org.example.Player", "Player", "/bin/sh -c 'touch " + launched_.string() + "'",
              "org.example.Player");
        entry("org.example.Browser", "Browser", "/bin/cat %u", "");
        entry("org.example.Smudged", "Smudged", "/bin/true", (root_ / "broken.png").string());
        std::ofstream(root_ / "config" / "mimeapps.list")
            << "[Default Applications]\nx-scheme-handler/https=org.example.Browser.desktop\n";
        setenv("XDG_DATA_HOME", (root_ / "data").c_str(), 1);
        // The system's folder stays for its MIME database, by which pictures are recognised.
        setenv("XDG_DATA_DIRS", "/usr/share", 1);
        setenv("XDG_CONFIG_HOME", (root_ / "config").c_str(), 1);
        setenv("XDG_CONFIG_DIRS", (root_ / "none").c_str(), 1);
    }
    static void TearDownTestSuite() { fs::remove_all(root_); }

    static inline fs::path root_;
    static inline fs::path launched_;
};

TEST_F(DesktopEntriesTest, ApplicationsAreFoundByIdOrProgramWithTheirIcons)
{
    struct Case
    {
        const char* identifier;
        const char* name;  // null: not installed
        bool icon;
    };
    for (const Case& c :
         {Case{"org.example.Player", "Player", true}, Case{"cat", "Browser", false},
          Case{"org.example.Smudged", "Smudged", true}, Case{"org.example.Absent", nullptr, false},
          Case{"../org.example.Player", nullptr, false}})
    {
        SCOPED_TRACE(c.identifier);
        const auto found = DesktopEntries::FindInstalled(c.identifier);
        ASSERT_EQ(found.has_value(), c.name != nullptr);
        if (found)
        {
            EXPECT_EQ(found->name, c.name);
            EXPECT_EQ(found->identifier, c.identifier);
            EXPECT_EQ(!found->iconPath.empty(), c.icon);
        }
    }
    const auto browser = DesktopEntries::ApplicationForUrl("https://example.org/");
    ASSERT_TRUE(browser.has_value());
    EXPECT_EQ(browser->identifier, "org.example.Browser");
    EXPECT_FALSE(DesktopEntries::ApplicationForUrl("nohandler:x").has_value());
    EXPECT_FALSE(DesktopEntries::ApplicationForUrl("no scheme").has_value());
}

TEST_F(DesktopEntriesTest, IconsDecodeAndScaleAndNonPicturesSayWhy)
{
    std::string why;
    const auto icon =
        DesktopEntries::LoadIcon(DesktopEntries::FindInstalled("org.example.Player")->iconPath, &why);
    ASSERT_TRUE(icon) << why;
    EXPECT_EQ(icon->Width(), 2);
    const std::vector<uint8_t> scaled = icon->EncodePng(32, 32, true);
    ASSERT_GT(scaled.size(), 24u);
    EXPECT_EQ(scaled[19], 32);  // the width in the header
    EXPECT_TRUE(icon->EncodePng(0, 0, true).empty());
    EXPECT_EQ(icon->EncodePng(32, 32, false)[19], 2);

    for (const std::string& path : {DesktopEntries::FindInstalled("org.example.Smudged")->iconPath,
                                    (root_ / "missing.png").string(), std::string()})
    {
        why.clear();
        EXPECT_FALSE(DesktopEntries::LoadIcon(path, &why)) << path;
        EXPECT_FALSE(why.empty()) << path;
    }
}

TEST_F(DesktopEntriesTest, LaunchingRunsTheEntry)
{
    EXPECT_FALSE(DesktopEntries::Launch("org.example.Absent"));
    ASSERT_TRUE(DesktopEntries::Launch("org.example.Player"));
    for (int i = 0; i < 200 && !fs::exists(launched_); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    EXPECT_TRUE(fs::exists(launched_));
}
}  // namespace
}  // namespace tidemix::platform::desktop

#include "portable-core/DplFile.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/PortableCoreTestFolder.h"

namespace
{
std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Sets (or with null, clears) an environment variable for one scope and puts the former value back.
class ScopedEnv
{
public:
    ScopedEnv(const char* name, const char* value) : name_(name), old_(getenv(name) ? getenv(name) : "")
    {
        hadOld_ = getenv(name) != nullptr;
        value == nullptr ? unsetenv(name) : setenv(name, value, 1);
    }
    ~ScopedEnv() { hadOld_ ? setenv(name_, old_.c_str(), 1) : unsetenv(name_); }

private:
    const char* name_;
    std::string old_;
    bool hadOld_;
};

TEST(DplFilePaths, FolderAndFileNames)
{
    EXPECT_EQ(DplFile_GetFolderPath("/a/b/c.txt"), "/a/b");
    EXPECT_EQ(DplFile_GetFolderPath("/a/b/"), "/a");
    EXPECT_EQ(DplFile_GetFolderPath("/a//b"), "/a");
    EXPECT_EQ(DplFile_GetFolderPath("/a"), "/");
    EXPECT_EQ(DplFile_GetFolderPath("/"), "/");
    EXPECT_EQ(DplFile_GetFolderPath("name"), "");
    EXPECT_EQ(DplFile_GetFolderPath("rel/name"), "rel");

    EXPECT_EQ(DplFile_GetFileName("/a/b/c.txt"), "c.txt");
    EXPECT_EQ(DplFile_GetFileName("c.txt"), "c.txt");
    EXPECT_EQ(DplFile_GetFileName("/a/b/"), "b");

    EXPECT_EQ(DplFile_GetExtension("a.tar.gz"), "gz");
    EXPECT_EQ(DplFile_GetExtension("dir.d/file"), "");
    EXPECT_EQ(DplFile_GetExtension("name."), "");
    EXPECT_EQ(DplFile_GetExtension("/x/y.wav"), "wav");

    EXPECT_EQ(DplFile_SetExtension("/x/a.txt", "log"), "/x/a.log");
    EXPECT_EQ(DplFile_SetExtension("/x/a.txt", ".log"), "/x/a.log");
    EXPECT_EQ(DplFile_SetExtension("dir.d/file", ".log"), "dir.d/file.log");
}

TEST(DplFilePaths, JoiningSplittingAndUrls)
{
    EXPECT_EQ(DplFile_AddPathComponent("a/", "/b"), "a/b");
    EXPECT_EQ(DplFile_AddPathComponent("a", "b"), "a/b");
    EXPECT_EQ(DplFile_AddPathComponent("a/", "b"), "a/b");
    EXPECT_EQ(DplFile_AddPathComponent("", "b"), "b");
    EXPECT_EQ(DplFile_AddPathComponent("a", ""), "a");

    EXPECT_EQ(DplFile_SplitPath("/usr//lib/x"), (std::vector<std::string>{"", "usr", "lib", "x"}));
    EXPECT_EQ(DplFile_SplitPath("rel/x"), (std::vector<std::string>{"rel", "x"}));
    EXPECT_EQ(DplFile_JoinComponents(DplFile_SplitPath("/usr/lib/x"), "/"), "/usr/lib/x");
    EXPECT_EQ(DplFile_GetURL("/my music/a#b.wav"), "file:///my%20music/a%23b.wav");
}

TEST(DplFilePaths, NameCleaning)
{
    std::string name = "a/b:c";
    DplFile_MakeValidFilename(name);
    EXPECT_EQ(name, "a-b_c");
    std::string text = "..name.. ";
    DplFile_RemoveEndSpaceCharacters(text);
    EXPECT_EQ(text, "..name..");
    DplFile_RemoveStartPeriodCharacters(text);
    EXPECT_EQ(text, "name..");
    DplFile_RemoveEndPeriodCharacters(text);
    EXPECT_EQ(text, "name");
}

TEST(DplFileSystem, FilesAndFolders)
{
    PortableCoreTestFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    const std::string file = folder.Child("f.txt");

    EXPECT_TRUE(DplFile_Delete(file)) << "a missing file counts as deleted";
    EXPECT_TRUE(DplFile_WriteTextToFile(file.c_str(), "one"));
    EXPECT_TRUE(DplFile_WriteTextToFile(file.c_str(), "two"));
    EXPECT_FALSE(DplFile_WriteTextToFile(nullptr, "x"));
    EXPECT_EQ(ReadText(file), "onetwo");
    EXPECT_EQ(DplFile_GetFileSize(file), 6);
    EXPECT_GT(DplFile_GetFileTime(file), 0);
    EXPECT_EQ(DplFile_GetFileTime(folder.Child("none")), 0);
    EXPECT_TRUE(DplFile_FileExists(file));
    EXPECT_FALSE(DplFile_FolderExists(file));
    EXPECT_TRUE(DplFile_FolderExists(folder.Path()));
    EXPECT_FALSE(DplFile_FileExists(folder.Path()));
    EXPECT_TRUE(DplFile_ItemExists(folder.Path()));
    EXPECT_FALSE(DplFile_IsNetworkDriveRoot("/"));

    const int fd = DplFileIo_Open(file.c_str(), O_RDONLY, 0444);
    ASSERT_GE(fd, 1);
    EXPECT_EQ(DplFileIo_Seek(fd, 2, SEEK_SET), 2);
    EXPECT_EQ(DplFileIo_FileLength(fd), 6);
    EXPECT_EQ(DplFileIo_Seek(fd, 0, SEEK_CUR), 2) << "the position is restored";
    close(fd);
    EXPECT_EQ(DplFileIo_FileLength(0), 0);
    EXPECT_EQ(DplFileIo_FileLength(-1), 0);

    FILE* f = DplFile_fopen(file.c_str(), "rb", true);
    ASSERT_NE(f, nullptr);
    DplFile_fseek(f, 1, SEEK_SET);
    EXPECT_EQ(DplFile_FileLength(f), 6);
    EXPECT_EQ(DplFile_ftell(f), 1);
    fclose(f);
    EXPECT_EQ(DplFile_FileLength(nullptr), 0);

    // Rename into a folder that isn't there yet.
    const std::string moved = folder.Child("deep/er/g.txt");
    EXPECT_FALSE(DplFile_Rename(file, moved, false));
    EXPECT_TRUE(DplFile_Rename(file, moved, true));
    EXPECT_FALSE(DplFile_Rename(file, moved, true)) << "the source is gone";
    EXPECT_FALSE(DplFile_Rename("", moved, true));
    EXPECT_EQ(ReadText(moved), "onetwo");

    EXPECT_FALSE(DplFile_CreateFolder("", true));
    EXPECT_FALSE(DplFile_CreateFolder(folder.Child("p/q/r"), false));
    EXPECT_TRUE(DplFile_CreateFolder(folder.Child("p/q/r"), true));
    EXPECT_TRUE(DplFile_CreateFolder(folder.Child("p/q/r"), true)) << "already there";
    EXPECT_FALSE(DplFile_CreateFolder(moved, true)) << "a file is in the way";

    // Copy a tree and list it.
    std::string big(2000, 'q');
    big[1999] = 'z';
    ASSERT_TRUE(DplFile_WriteTextToFile(folder.Child("p/q/big.bin").c_str(), big.c_str()));
    ASSERT_TRUE(DplFile_CopyFolder(folder.Child("p"), folder.Child("copy")));
    EXPECT_EQ(ReadText(folder.Child("copy/q/big.bin")), big);
    EXPECT_TRUE(DplFile_FolderExists(folder.Child("copy/q/r")));
    EXPECT_FALSE(DplFile_Copy(folder.Child("none"), folder.Child("x")));

    std::vector<std::string> names;
    ASSERT_TRUE(DplFile_EnumFilesInFolder(folder.Child("copy/q"), names));
    EXPECT_EQ(names, std::vector<std::string>{"big.bin"});
    names.clear();
    ASSERT_TRUE(DplFile_EnumFilesInFolder(folder.Child("copy/q"), names, true));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"big.bin", "r"}));
    names.clear();
    ASSERT_TRUE(DplFile_EnumFilesInFolderWithSubFolders(folder.Path(), names));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"copy/q/big.bin", "deep/er/g.txt", "p/q/big.bin"}));

    EXPECT_TRUE(DplFile_DeleteFolder(folder.Child("copy")));
    EXPECT_FALSE(DplFile_ItemExists(folder.Child("copy")));
    EXPECT_FALSE(DplFile_DeleteFolder(folder.Child("copy")));
    EXPECT_FALSE(DplFile_DeleteFolder(""));
}

TEST(DplFileSystem, StandardFoldersFollowTheEnvironment)
{
    struct Case
    {
        const char* name;
        const char* value;
        bool shared;
        std::string expected;
    };
    ScopedEnv home("HOME", "/home/someone");
    const Case cases[] = {{"XDG_CONFIG_HOME", "/cfg", false, "/cfg/Drovane/Tidemix"},
                          {"XDG_CONFIG_HOME", nullptr, false, "/home/someone/.config/Drovane/Tidemix"},
                          {"XDG_CONFIG_DIRS", "/etc/a:/etc/b", true, "/etc/a/Drovane/Tidemix"},
                          {"XDG_CONFIG_DIRS", nullptr, true, "/etc/xdg/Drovane/Tidemix"}};
    for (const Case& c : cases)
    {
        ScopedEnv variable(c.name, c.value);
        EXPECT_EQ(DplFile_GetApplicationDataFolder(c.shared), c.expected) << c.name;
    }
    for (const char* tmp : {"/var/tmp/x", static_cast<const char*>(nullptr)})
    {
        ScopedEnv variable("TMPDIR", tmp);
        EXPECT_EQ(DplFile_GetTempFolder(), tmp != nullptr ? tmp : "/tmp");
    }
}
TEST(DplFileSystem, TheUserConfigFolderFallsBackInOrderAndNeverToASharedFolder)
{
    // The account's entry is the last resort; a machine without one has no folder at all.
    const passwd* account = getpwuid(getuid());
    const std::string accountConfig =
        account != nullptr && account->pw_dir != nullptr && account->pw_dir[0] != '\0'
            ? std::string(account->pw_dir) + "/.config"
            : std::string();
    struct Case
    {
        const char* config;
        const char* home;
        std::string expected;
    };
    const Case cases[] = {{"/cfg", "/home/someone", "/cfg"},
                          {"relative", "/home/someone", "/home/someone/.config"},
                          {"", "/home/someone", "/home/someone/.config"},
                          {nullptr, "/home/someone", "/home/someone/.config"},
                          {"/cfg", nullptr, "/cfg"},
                          {nullptr, "", accountConfig},
                          {"relative", nullptr, accountConfig}};
    for (const Case& c : cases)
    {
        ScopedEnv config("XDG_CONFIG_HOME", c.config);
        ScopedEnv home("HOME", c.home);
        const std::string label =
            std::string(c.config ? c.config : "(unset)") + " / " + (c.home ? c.home : "(unset)");
        EXPECT_EQ(DplFile_GetUserConfigFolder(), c.expected) << label;
        EXPECT_EQ(DplFile_GetApplicationDataFolder(false),
                  c.expected.empty() ? std::string() : c.expected + "/Drovane/Tidemix")
            << label;
    }
}

// Replacement and failure half-way are covered through CDplJsonFile's tests.
TEST(DplFileSystem, AnAtomicWriteNeverFollowsALinkAtItsTemporaryFile)
{
    PortableCoreTestFolder folder;
    const std::string path = folder.Child("settings.json");
    ASSERT_TRUE(DplFile_WriteAtomically(path, "before"));
    const std::string target = folder.Child("elsewhere");
    ASSERT_EQ(symlink(target.c_str(), DplFile_TemporaryPathFor(path).c_str()), 0);
    EXPECT_FALSE(DplFile_WriteAtomically(path, "after"));
    EXPECT_FALSE(DplFile_ItemExists(target));
    EXPECT_EQ(ReadText(path), "before");
    EXPECT_FALSE(DplFile_WriteAtomically("", "x")) << "no path is no file in the working folder";
}
}  // namespace

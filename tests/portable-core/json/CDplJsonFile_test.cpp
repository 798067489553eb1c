#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "portable-core/json/CDplJsonFile.h"
#include "support/PortableCoreTestFolder.h"

namespace fs = std::filesystem;

namespace
{
class CDplJsonFileTest : public ::testing::Test
{
protected:
    std::string Path(const char* name) const { return folder_.Child(name); }
    static std::string Read(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    static void Write(const std::string& path, const std::string& text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }

    PortableCoreTestFolder folder_;
};
}  // namespace

TEST_F(CDplJsonFileTest, ExportWritesPrettyTextAndImportReadsItBack)
{
    ASSERT_FALSE(folder_.Path().empty());
    TJSON doc;
    doc.AddInt("a", 1);
    doc.AddString("b", "x");
    std::string path = Path("doc.json");
    ASSERT_TRUE(CDplJsonFile::ExportToFile(path, doc));
    EXPECT_EQ(Read(path), "{\n\t\"a\":1,\n\t\"b\":\"x\"\n}");
    EXPECT_FALSE(fs::exists(CDplJsonFile::TemporaryPathFor(path)));

    TJSON back = TJSONArray();
    TJSON formerHandle = back;
    ASSERT_TRUE(CDplJsonFile::ImportFromFile(path, back));
    EXPECT_TRUE(back == doc);
    EXPECT_TRUE(formerHandle.IsArray()) << "the former node is left to its other holders";

    ASSERT_TRUE(CDplJsonFile::ExportToFile(path, doc, nullptr));
    EXPECT_EQ(Read(path), "{\"a\":1,\"b\":\"x\"}");
}

TEST_F(CDplJsonFileTest, ImportFailuresLeaveTheDocument)
{
    TJSON doc;
    doc.AddInt("keep", 1);
    EXPECT_FALSE(CDplJsonFile::ImportFromFile(Path("missing.json"), doc));
    Write(Path("empty.json"), "");
    EXPECT_FALSE(CDplJsonFile::ImportFromFile(Path("empty.json"), doc));
    EXPECT_FALSE(CDplJsonFile::ImportFromFile(folder_.Path(), doc));
    EXPECT_FALSE(CDplJsonFile::ImportFromFile(Path("bad\xFF.json"), doc));
    EXPECT_EQ(doc.ToString(), "{\"keep\":1}");

    // Damaged text is no failure: it gives what could be read.
    Write(Path("cut.json"), "{\"a\":1,\"b\":[1,2");
    ASSERT_TRUE(CDplJsonFile::ImportFromFile(Path("cut.json"), doc));
    EXPECT_EQ(doc.ToString(), "{\"a\":1,\"b\":[1,2]}");
}

TEST_F(CDplJsonFileTest, FailedExportLeavesTheFormerFileWhole)
{
    std::string path = Path("settings.json");
    Write(path, "{\"old\":true}");
    TJSON doc;
    doc.AddInt("new", 1);

    // The temporary file can't be made: its name is taken by a folder.
    fs::create_directories(CDplJsonFile::TemporaryPathFor(path));
    EXPECT_FALSE(CDplJsonFile::ExportToFile(path, doc));
    EXPECT_EQ(Read(path), "{\"old\":true}");
    fs::remove_all(CDplJsonFile::TemporaryPathFor(path));

    // A path below a regular file can't be written at all.
    EXPECT_FALSE(CDplJsonFile::ExportToFile(path + "/below.json", doc));
    EXPECT_FALSE(CDplJsonFile::ExportToFile(Path("bad\xC0\x80.json"), doc));
    EXPECT_FALSE(fs::exists(Path("bad\xC0\x80.json")));
    EXPECT_EQ(Read(path), "{\"old\":true}");

    ASSERT_TRUE(CDplJsonFile::ExportToFile(path, doc));
    EXPECT_EQ(Read(path), "{\n\t\"new\":1\n}");
}

TEST_F(CDplJsonFileTest, WriteThatFailsHalfWayLeavesTheFormerFileWhole)
{
    std::string path = Path("big.json");
    Write(path, "{\"old\":true}");
    TJSON doc = TJSONArray();
    for (int i = 0; i < 20000; ++i)
    {
        doc.AddString("a line of text that makes the document long");
    }

    // Files of this process may grow to 4 KiB only: the write stops half-way,
    // as on a full disk.
    rlimit former = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    auto formerHandler = signal(SIGXFSZ, SIG_IGN);
    rlimit small = former;
    small.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    bool written = CDplJsonFile::ExportToFile(path, doc);
    setrlimit(RLIMIT_FSIZE, &former);
    signal(SIGXFSZ, formerHandler);

    EXPECT_FALSE(written);
    EXPECT_EQ(Read(path), "{\"old\":true}");
    EXPECT_FALSE(fs::exists(CDplJsonFile::TemporaryPathFor(path))) << "the partial file is removed";
    EXPECT_TRUE(CDplJsonFile::ExportToFile(path, doc));
    EXPECT_TRUE(TJSON(Read(path)) == doc);
}

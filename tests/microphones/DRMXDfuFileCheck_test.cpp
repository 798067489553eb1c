// Files made by Debian's dfu-suffix (package dfu-util), so that the suffix
// is read as another tool writes it, then damaged one rule at a time.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <vector>

#include "microphones/DRMXDfuFileCheck.h"
#include "support/DfuFileTestSupport.h"
#include "support/PortableCoreTestFolder.h"

namespace
{
using Problem = DRMXDfuFileCheck::Problem;

const DRMXDfuFileCheck kReed1(0x7E11, 0x0B21, 0x0B22);

using tidemix::test::MakeDfuFile;
using tidemix::test::ReadAll;
using tidemix::test::WriteAll;

class DRMXDfuFileCheckTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(std::system("command -v dfu-suffix >/dev/null 2>&1"), 0)
            << "dfu-suffix is missing: install the package dfu-util (scripts/setup-debian.sh)";
        ASSERT_FALSE(folder.Path().empty());
    }

    PortableCoreTestFolder folder;
};

TEST_F(DRMXDfuFileCheckTest, FilesFromDfuSuffix)
{
    struct Case
    {
        const char* name;
        size_t imageSize;
        uint16_t vendor;
        uint16_t product;
        Problem expected;
    };
    const Case cases[] = {
        {"run-time id", 65, 0x7E11, 0x0B21, Problem::None},
        {"DFU id", 65, 0x7E11, 0x0B22, Problem::None},
        {"any vendor, any product", 65, 0xFFFF, 0xFFFF, Problem::None},
        {"suffix alone", 0, 0x7E11, 0x0B21, Problem::None},
        {"image larger than a CRC piece", 200000, 0x7E11, 0x0B21, Problem::None},
        {"another vendor", 65, 0x1234, 0x0B21, Problem::WrongVendor},
        {"another model", 65, 0x7E11, 0x0B23, Problem::WrongProduct},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const std::string path = MakeDfuFile(folder, "firmware.dfu", c.imageSize, c.vendor, c.product);
        ASSERT_EQ(ReadAll(path).size(), c.imageSize + 16);
        EXPECT_EQ(kReed1.Check(path), c.expected) << DRMXDfuFileCheck::Describe(kReed1.Check(path));
    }
}

TEST_F(DRMXDfuFileCheckTest, DamagedFilesAreRefusedWithTheirReason)
{
    const std::vector<uint8_t> valid = ReadAll(MakeDfuFile(folder, "valid.dfu", 65, 0x7E11, 0x0B21));
    ASSERT_EQ(valid.size(), 81u);
    const size_t suffix = valid.size() - 16;
    struct Case
    {
        const char* name;
        std::function<void(std::vector<uint8_t>&)> damage;
        Problem expected;
    };
    const Case cases[] = {
        {"empty", [](auto& b) { b.clear(); }, Problem::TooShort},
        {"15 bytes", [](auto& b) { b.resize(15); }, Problem::TooShort},
        {"signature reversed", [&](auto& b) { std::swap(b[suffix + 8], b[suffix + 10]); },
         Problem::BadSignature},
        {"bLength 15", [&](auto& b) { b[suffix + 11] = 15; }, Problem::BadLength},
        {"bLength beyond the file", [&](auto& b) { b[suffix + 11] = 200; }, Problem::BadLength},
        {"image byte changed", [](auto& b) { b[40] ^= 0x01; }, Problem::BadCrc},
        {"vendor changed", [&](auto& b) { b[suffix + 4] ^= 0x01; }, Problem::BadCrc},
        {"CRC changed", [&](auto& b) { b[suffix + 15] ^= 0x80; }, Problem::BadCrc},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> bytes = valid;
        c.damage(bytes);
        const std::string path = folder.Child("damaged.dfu");
        WriteAll(path, bytes);
        EXPECT_EQ(kReed1.Check(path), c.expected) << DRMXDfuFileCheck::Describe(kReed1.Check(path));
    }
    EXPECT_EQ(kReed1.Check(folder.Child("missing.dfu")), Problem::CannotOpen);
}
}  // namespace

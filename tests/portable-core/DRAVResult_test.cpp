#include "portable-core/DRAVResult.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "portable-core/DRAVLog.h"
#include "support/LogCapture.h"

namespace
{
TEST(DRAVResultTest, CodeTexts)
{
    // The ends of the dense run of codes, a sparse one, and the gaps around them.
    for (const auto& [code, text] : std::vector<std::pair<int, std::string>>{
             {4, "OkButIncomplete"}, {-15, "ErrTimeOut"}, {-300, "ErrInvalidOperation"}})
    {
        EXPECT_EQ(DRAVResult(code).GetResultCodeString(), text) << code;
    }
    for (int code : {-16, -17, -18, 5, 100, -301})
    {
        EXPECT_EQ(DRAVResult::GetResultCodeString(code), "UNKNOWN") << code;
    }
}

TEST(DRAVResultTest, SucceededFollowsSignAndCustomFields)
{
    // Code 0 (custom results): only the families 3 and 4 with value 0 succeed.
    const std::pair<DRAVResult, bool> cases[] = {{DRAVResult(), true},
                                                 {DRAVResult(kDRAVResultOkButIncomplete), true},
                                                 {DRAVResult(kDRAVResultErrNotFound), false},
                                                 {DRAVResult(-18), false},
                                                 {DRAVResult(kDRAVResultCustomTypeIOKit, 0), true},
                                                 {DRAVResult(kDRAVResultCustomTypeVideo, 0), true},
                                                 {DRAVResult(kDRAVResultCustomTypeIOKit, 2), false},
                                                 {DRAVResult(kDRAVResultCustomTypeVideo, -1), false},
                                                 {DRAVResult(kDRAVResultCustomTypeNone, 0), false},
                                                 {DRAVResult(static_cast<DRAVResultCustomType>(5), 0), false},
                                                 {DRAVResult(kDRAVResultErrCustom), false}};
    for (const auto& [result, succeeded] : cases)
    {
        EXPECT_EQ(result.Succeeded(), succeeded) << result.toString() << " " << result.GetCustomValue();
    }

    const DRAVResult custom(kDRAVResultCustomTypeIOKit, 2);
    EXPECT_EQ(custom.GetCode(), 0);
    EXPECT_EQ(custom.GetCustomType(), kDRAVResultCustomTypeIOKit);
    EXPECT_EQ(custom.GetCustomValue(), 2);
}

TEST(DRAVResultTest, ComparisonAndAssignment)
{
    EXPECT_TRUE(DRAVResult(2) != 1);
    EXPECT_TRUE(DRAVResult(2) == 2);

    // The message doesn't count; code, custom type and value do.
    EXPECT_TRUE(DRAVResult(-8, "first") == DRAVResult(-8, "second"));
    EXPECT_FALSE(DRAVResult(-8) == DRAVResult(-9));
    EXPECT_TRUE(DRAVResult(kDRAVResultCustomTypeIOKit, 2) == DRAVResult(kDRAVResultCustomTypeIOKit, 2));
    EXPECT_TRUE(DRAVResult(kDRAVResultCustomTypeIOKit, 2) != DRAVResult(kDRAVResultCustomTypeIOKit, 3));
    EXPECT_TRUE(DRAVResult(kDRAVResultCustomTypeIOKit, 0) != DRAVResult(kDRAVResultCustomTypeVideo, 0));
    // Compared with a code, the custom fields don't count.
    EXPECT_TRUE(DRAVResult(kDRAVResultCustomTypeIOKit, 2) == 0);

    // Assigning a code keeps message and value.
    DRAVResult result(kDRAVResultCustomTypeIOKit, 7, "device %d", 3);
    result = kDRAVResultErrTimeOut;
    EXPECT_EQ(result.GetCode(), kDRAVResultErrTimeOut);
    EXPECT_EQ(result.GetCustomType(), kDRAVResultCustomTypeNone);
    EXPECT_EQ(result.GetCustomValue(), 7);
    EXPECT_EQ(result.GetMessage(), "device 3");

    const DRAVResult other(kDRAVResultCustomTypeVideo, 9, "other");
    result = other;
    EXPECT_TRUE(result == other);
    EXPECT_EQ(result.GetMessage(), "other");
}

TEST(DRAVResultTest, TextsAndMessages)
{
    EXPECT_EQ(DRAVResult(kDRAVResultErrNotFound).toString(), "DRAVResult -13: ErrNotFound");
    EXPECT_EQ(DRAVResult(-17).toString(), "DRAVResult -17: UNKNOWN");
    // Without a message GetMessage falls back to toString.
    EXPECT_EQ(DRAVResult(kDRAVResultOk).GetMessage(), "DRAVResult 1: Ok");

    DRAVResult firmware(kDRAVResultCustomTypeIOKit, 2);
    EXPECT_EQ(firmware.toString(), "");
    EXPECT_EQ(firmware.GetMessage(), "");
    firmware.SetMessage("status %s", "stalled");
    EXPECT_EQ(firmware.GetMessage(), "status stalled");
    EXPECT_EQ(firmware.toString(), "");

    // A null format leaves the message alone.
    firmware.SetMessage(nullptr);
    EXPECT_EQ(firmware.GetMessage(), "status stalled");

    EXPECT_EQ(DRAVResult(-8, "bad %s %d", "value", 42).GetMessage(), "bad value 42");
}

TEST(DRAVResultTest, MessagesAndLoggedTextsAreCutAt511Characters)
{
    const std::string longText(600, 'x');
    DRAVResult result(kDRAVResultErrInvalidParameter);
    result.SetMessage("%s", longText.c_str());
    EXPECT_EQ(result.GetMessage(), std::string(511, 'x'));

    const DRAVResult constructed(kDRAVResultErrInvalidParameter, "%s!", longText.c_str());
    EXPECT_EQ(constructed.GetMessage(), std::string(511, 'x'));

    const DRAVResult custom(kDRAVResultCustomTypeIOKit, 1, "%s", longText.c_str());
    EXPECT_EQ(custom.GetMessage().size(), 511u);

    tidemix::test::LogCapture capture;
    DRAVResult(kDRAVResultErrUnknown).LogError("%s", std::string(700, 'y').c_str());
    ASSERT_EQ(capture.Entries().size(), 1u);
    EXPECT_EQ(capture.Entries()[0].second, std::string(511, 'y') + " (DRAVResult -1: ErrUnknown)");
}

TEST(DRAVResultTest, LogErrorIsSilentOnSuccessButLogWritesAlways)
{
    tidemix::test::LogCapture capture;
    DRAVResult(kDRAVResultOk).LogError("<%s> never logged", "unit");
    DRAVResult(kDRAVResultCustomTypeIOKit, 0).LogError("never logged either");
    EXPECT_TRUE(capture.Entries().empty());

    DRAVResult(kDRAVResultErrNotFound).LogError("<%s> Set child unit <%s> failed.", "mixer", "meter");
    DRAVResult(kDRAVResultErrInvalidState, "state was %d", 2).LogError("Start");
    DRAVResult(kDRAVResultCustomTypeIOKit, 2, "stalled").LogError("Firmware");
    ASSERT_EQ(capture.Entries().size(), 3u);
    EXPECT_EQ(capture.Entries()[0].first, kDbgPrintLevelError);
    EXPECT_EQ(capture.Entries()[0].second,
              "<mixer> Set child unit <meter> failed. (DRAVResult -13: ErrNotFound)");
    EXPECT_EQ(capture.Entries()[1].second, "Start (state was 2)");
    EXPECT_EQ(capture.Entries()[2].second, "Firmware (stalled)");

    DRAVResult(kDRAVResultOkNoDataChanged).Log("saved %d", 3);
    DRAVResult(kDRAVResultErrNoData).Log("loaded");
    ASSERT_EQ(capture.Entries().size(), 5u);
    EXPECT_EQ(capture.Entries()[3].second, "saved 3 (DRAVResult 2: OkNoDataChanged)");
    EXPECT_EQ(capture.Entries()[4].second, "loaded (DRAVResult -12: ErrNoData)");
    EXPECT_EQ(capture.Entries()[4].first, kDbgPrintLevelError);
}
}  // namespace

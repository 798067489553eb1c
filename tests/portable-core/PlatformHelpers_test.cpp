#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <typeinfo>

#include "portable-core/DPLResult.h"
#include "portable-core/DplSocket.h"
#include "portable-core/DplTime.h"
#include "portable-core/DplUuid.h"
#include "portable-core/UPProcessor.h"
#include "portable-core/USRHelpers.h"
#include "support/PortableCoreTestFolder.h"

namespace
{
TEST(DPLResult, ThrowAndNames)
{
    EXPECT_NO_THROW(DPLThrow(0));
    try
    {
        DPLThrow(-39);
        ADD_FAILURE() << "nothing thrown";
    }
    catch (int thrown)
    {
        EXPECT_EQ(thrown, -39);
    }
    EXPECT_STREQ(DPLGetResultName(0), "Success");
    EXPECT_STREQ(DPLGetResultName(static_cast<int>(0x80070002u)), "File not found");
    for (unsigned unknown : {0xFFFFFFFFu, 42u, 0xA0070002u /* bit 29 set */, 0x80070003u})
    {
        EXPECT_STREQ(DPLGetResultName(static_cast<int>(unknown)), "UnknownError") << std::hex << unknown;
    }
}

// A provider registered late, covering every facility, answers after the others.
class LateProvider : public DPLResultNameProvider
{
public:
    LateProvider() : DPLResultNameProvider(-1, -1) {}
    const char* GetResultName(int result) override
    {
        return result == static_cast<int>(0x8C000001u) ? "late name" : nullptr;
    }
};

TEST(DPLResult, ProvidersRegisterAtAnyTime)
{
    static LateProvider late;
    EXPECT_TRUE(late.CoversFacility(0));
    EXPECT_TRUE(late.CoversFacility(8191));
    EXPECT_STREQ(DPLGetResultName(static_cast<int>(0x8C000001u)), "late name");
    EXPECT_STREQ(DPLGetResultName(static_cast<int>(0x80070002u)), "File not found");

    struct Single : DPLResultNameProvider
    {
        Single() : DPLResultNameProvider(5, -1) {}
        const char* GetResultName(int) override { return nullptr; }
    };
    static Single single;
    EXPECT_TRUE(single.CoversFacility(5));
    EXPECT_FALSE(single.CoversFacility(6));
    EXPECT_FALSE(single.CoversFacility(4));
}

TEST(DplTime, EpochsClocksAndTimeStrings)
{
    EXPECT_EQ(DplTime_GetEpoch(), kDplTimeEpoch2001);
    EXPECT_EQ(DplTime_GetDistanceToEpoch(DplTime_GetEpoch()), 0);
    EXPECT_EQ(DplTime_GetDistanceToEpoch(kDplTimeEpoch1970), -978307200LL);
    DplTime_SetEpoch(kDplTimeEpoch1970);
    EXPECT_EQ(DplTime_GetDistanceToEpoch(kDplTimeEpoch1601), -11644473600LL);
    EXPECT_EQ(DplTime_GetDistanceToEpoch(9), 0) << "outside the table counts as 1970";
    DplTime_SetEpoch(kDplTimeEpoch2001);

    EXPECT_NEAR(static_cast<double>(DplTime_GetSeconds()), static_cast<double>(time(nullptr)), 2.0);

    char text[32];
    EXPECT_STREQ(DplTime_GetCurrentTimeString(nullptr, 0), "---");
    EXPECT_STREQ(DplTime_GetCurrentDateTimeString(nullptr, 0), "---");
    ASSERT_EQ(DplTime_GetCurrentTimeString(text, sizeof(text)), text);
    const std::string shape = "dd:dd:dd.dddd ";
    ASSERT_EQ(strlen(text), shape.size()) << text;
    for (size_t i = 0; i < shape.size(); ++i)
    {
        EXPECT_TRUE(shape[i] == 'd' ? isdigit(text[i]) != 0 : text[i] == shape[i]) << text;
    }
    char small[6];
    DplTime_GetCurrentTimeString(small, sizeof(small));
    EXPECT_EQ(strlen(small), 5u);
    EXPECT_GT(strlen(DplTime_GetCurrentDateTimeString(text, sizeof(text))), 5u);
}

TEST(USRHelpers, TimeZoneStrings)
{
    // Out-of-range minutes and malformed texts give no offset.
    const std::pair<const char*, int> cases[] = {
        {"+0100", 3600}, {"-0130", -5400}, {"0545", 20700}, {"2358", (23 * 60 + 58) * 60},
        {"2359", 0},     {"+0160", 0},     {"+01:00", 0},   {"+100", 0},
        {"+01000", 0},   {"+0a00", 0},     {"", 0}};
    for (const auto& [text, seconds] : cases)
    {
        EXPECT_EQ(USRTimeZoneStringToSecondsOffset(text), seconds) << text;
    }
    EXPECT_EQ(USRTimeZoneStringToSecondsOffset(nullptr), 0);
}

TEST(USRHelpers, CompilerDatesRoundTrip)
{
    int64_t seconds = 0;
    ASSERT_TRUE(USRMacroDateAndTimeToUnixSeconds("Nov  9 2026", "01:54:10", &seconds));
    EXPECT_EQ(seconds, 1794189250);
    char date[12];
    char time[9];
    ASSERT_TRUE(USRUnixSecondsToMacroDateAndTime(seconds, date, time));
    EXPECT_STREQ(date, "Nov  9 2026");
    EXPECT_STREQ(time, "01:54:10");
    EXPECT_EQ(USRUnixSecondsToYear(seconds), 2026);
    EXPECT_FALSE(USRMacroDateAndTimeToUnixSeconds("Foo  9 2026", "01:54:10", &seconds));
    EXPECT_FALSE(USRMacroDateAndTimeToUnixSeconds("Nov 9 2026", "01:54:10", &seconds));
    EXPECT_FALSE(USRMacroDateAndTimeToUnixSeconds("Nov  9 2026", "1:54:10", &seconds));
    EXPECT_FALSE(USRMacroDateAndTimeToUnixSeconds("Nov  9 2026", "25:54:10", &seconds));
    EXPECT_GT(USRGetCompilationUnixSeconds(), 1700000000);
}

TEST(USRHelpers, IndentAndTypeNames)
{
    EXPECT_STREQ(USRIndent(0), "");
    EXPECT_STREQ(USRIndent(2), "        ");
    EXPECT_EQ(strlen(USRIndent(1000)), 256u);
    EXPECT_STREQ(USRIndent(-3), "");

    for (const char* name : {"12CSoundSocket", "class CSoundSocket", "struct CSoundSocket", "CSoundSocket"})
    {
        EXPECT_STREQ(USRFixTypeIDName(name), "CSoundSocket") << name;
    }
    int length = 0;
    EXPECT_STREQ(USRFixTypeIDNameWithLength(typeid(PortableCoreTestFolder).name(), &length),
                 "PortableCoreTestFolder");
    EXPECT_EQ(length, 22);
    EXPECT_EQ(USRRemovePrefix("kPropertyName", "kProperty"), "Name");
    EXPECT_EQ(USRRemovePrefix("Name", "kProperty"), "Name");
    EXPECT_EQ(USRRemoveSuffix("Trace.log", ".log"), "Trace");
}

TEST(USRHelpers, StackAddresses)
{
    int local = 0;
    EXPECT_EQ(USRIsAddressOnStack(&local), 1);
    auto* heap = new int(0);
    EXPECT_EQ(USRIsAddressOnStack(heap), 0);
    delete heap;
    static int global = 0;
    EXPECT_EQ(USRIsAddressOnStack(&global), 0);
    // Another thread's stack isn't this thread's.
    int result = -2;
    std::thread([&] { result = USRIsAddressOnStack(&local); }).join();
    EXPECT_EQ(result, 0);
}

TEST(UPProcessor, DetectionIsConsistent)
{
    const __UP_StaticVars fresh = _UP_ForceDetectCPU();
    EXPECT_GE(UPGetCPUCount_C(), 1);
    EXPECT_EQ(UPGetCPUCount_C(), fresh.cpuCount);
    EXPECT_EQ(UPHaveFeature_C(kUPFeatureTwoOrMoreCPUs), UPGetCPUCount_C() >= 2);
    EXPECT_EQ(UPHaveFeature_C(kUPFeatureFourOrMoreCPUs), UPGetCPUCount_C() >= 4);
    EXPECT_TRUE(UPHaveFeature_C(0));
    EXPECT_GE(UPGetCPUSpeed_C(), 0);
#if defined(__x86_64__)
    // Every x86-64 processor has these.
    EXPECT_TRUE(UPHaveFeature_C(kUPFeatureSSE2 | kUPFeature64Bit | kUPFeatureCMPXCHG8B));
    EXPECT_EQ(UPHaveFeature_C(kUPFeatureAVX2), __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(UPHaveFeature_C(kUPFeatureSSE42), __builtin_cpu_supports("sse4.2") != 0);
#endif
    EXPECT_DOUBLE_EQ(UP_ParseCpuInfoMHz("processor\t: 0\ncpu MHz\t\t: 2994.374\n"), 2994.374);
    EXPECT_DOUBLE_EQ(UP_ParseCpuInfoMHz("processor\t: 0\n"), 0.0);
}

// Number parsing must not follow the process locale: under a locale with a
// decimal comma, "2994.374" is still 2994.374. The locale is generated into a
// private folder with localedef (from the `locales` package) and found
// through LOCPATH.
TEST(LocaleIndependence, ParsingUnderADecimalCommaLocale)
{
    PortableCoreTestFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    const std::string command =
        "localedef -i de_DE -f UTF-8 '" + folder.Child("de_DE.UTF-8") + "' >/dev/null 2>&1";
    if (system(command.c_str()) != 0)
    {
        GTEST_SKIP() << "localedef could not build de_DE.UTF-8 (install the `locales` package)";
    }
    const std::string formerLocPath = getenv("LOCPATH") != nullptr ? getenv("LOCPATH") : "";
    const bool hadLocPath = getenv("LOCPATH") != nullptr;
    setenv("LOCPATH", folder.Path().c_str(), 1);
    const std::string previous = setlocale(LC_ALL, nullptr);
    ASSERT_NE(setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    EXPECT_STREQ(localeconv()->decimal_point, ",") << "the locale really uses a decimal comma";
    EXPECT_DOUBLE_EQ(strtod("2994.374", nullptr), 2994.0) << "the C library does follow it";

    const double mhz = UP_ParseCpuInfoMHz("cpu MHz\t\t: 2994.374\n");
    const int zone = USRTimeZoneStringToSecondsOffset("-0130");
    int64_t seconds = 0;
    const bool parsed = USRMacroDateAndTimeToUnixSeconds("Nov  9 2026", "01:54:10", &seconds);

    setlocale(LC_ALL, previous.c_str());
    hadLocPath ? setenv("LOCPATH", formerLocPath.c_str(), 1) : unsetenv("LOCPATH");
    EXPECT_DOUBLE_EQ(mhz, 2994.374);
    EXPECT_EQ(zone, -5400);
    EXPECT_TRUE(parsed);
    EXPECT_EQ(seconds, 1794189250);
}

TEST(DplUuid, CreateParseAndPrint)
{
    unsigned char a[16];
    unsigned char b[16];
    DplUuid_Create(a);
    DplUuid_Create(b);
    EXPECT_NE(memcmp(a, b, 16), 0);
    const std::string text = DplUuid_ToString(a);
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text.find_first_of("ABCDEF"), std::string::npos) << "lower case";
    unsigned char parsed[16] = {};
    ASSERT_TRUE(DplUuid_Parse(text.c_str(), parsed));
    EXPECT_EQ(memcmp(a, parsed, 16), 0);
    EXPECT_FALSE(DplUuid_Parse("not-a-uuid", parsed));
    EXPECT_FALSE(DplUuid_Parse(nullptr, parsed));
    const std::string upper = DplUuid_GenerateUUIDString();
    ASSERT_EQ(upper.size(), 36u);
    EXPECT_EQ(upper.find_first_of("abcdef"), std::string::npos) << "upper case";
    EXPECT_TRUE(DplUuid_Parse(upper.c_str(), parsed));
    char cText[37];
    EXPECT_STREQ(DplUuid_ToCString(a, cText), text.c_str());
}

TEST(DplSocket, AddressesAndNonBlocking)
{
    sockaddr_in address{};
    memset(&address, 0x55, sizeof(address));
    ASSERT_TRUE(DplSocket_MakeIPv4Address("127.0.0.1", 8080, &address));
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_port, htons(8080));
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(address.sin_zero[0], 0);
    EXPECT_FALSE(DplSocket_MakeIPv4Address("localhost", 80, &address));
    EXPECT_FALSE(DplSocket_MakeIPv4Address("1.2.3.4", 80, nullptr));

    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(DplSocket_SetNonBlocking(fd));
    EXPECT_NE(fcntl(fd, F_GETFL, 0) & O_NONBLOCK, 0);
    close(fd);
    EXPECT_FALSE(DplSocket_SetNonBlocking(-1));
}
}  // namespace

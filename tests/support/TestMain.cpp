#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

int main(int argc, char** argv)
{
    // Tests run on the simulated platform unless a test says otherwise.
    setenv("TIDEMIX_PLATFORM", "sim", 0);

    // Nothing a test does may reach the user's own settings: the application
    // data folder lives in a private temporary folder for this run.
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/tidemix-test-XXXXXX";
    std::string home;
    if (mkdtemp(pattern.data()) != nullptr)
    {
        home = pattern;
        setenv("XDG_CONFIG_HOME", home.c_str(), 1);
    }
    else
    {
        fprintf(stderr, "could not make a temporary settings folder\n");
        return 1;
    }

    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();

    std::error_code ignored;
    std::filesystem::remove_all(home, ignored);
    return result;
}

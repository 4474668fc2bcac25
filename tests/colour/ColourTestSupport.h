// Shared by the colour tests: a fresh child process per test with a
// controlled environment, and the scalar references of the transfer curves.
//
// The colour configuration loads once per process, so every colour test
// starts with COLOUR_CASE({...}): in the test program as started, the test
// re-executes the program for just this test with the listed environment
// (every OCIO and IMB_ colour variable of the parent removed first) and fails
// when the child fails; in the child, the test body runs.
#pragma once

#include <IMB/platform/BAS_StringArray.h>

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

extern char **environ;

namespace colour_test
{
using EnvList = std::vector<std::pair<std::string, std::string>>;

inline std::string dataPath(const char *name)
{
    return std::string(IMB_TEST_DATA_DIR) + "/ocio/" + name;
}

// A possibly null answer as a comparable string.
inline std::string orNull(const char *s)
{
    return s ? s : "<null>";
}

// The names of a list joined by commas.
inline std::string joined(const BAS_StringArray &names)
{
    std::string out;
    for (const BAS_StringHolder &n : names)
        out += (out.empty() ? "" : ",") + std::string(n.c_str());
    return out;
}

// The sRGB transfer function, both ways.
inline double srgbDecode(double v)
{
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}
inline double srgbEncode(double v)
{
    return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
}

inline const char *const kControlled[] = {"OCIO=", "OCIO_", "IMB_OCIO_", "IMB_VERBOSE=", "IMB_COLOUR_CHILD="};

// True in the child (run the body); in the parent, runs the child and returns
// false.
inline bool enterCase(const EnvList &vars)
{
    if (std::getenv("IMB_COLOUR_CHILD"))
        return true;
    const ::testing::TestInfo *info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string filter = std::string("--gtest_filter=") + (info->value_param() ? "*" : "") +
                         info->test_suite_name() + "." + info->name();
    std::vector<std::string> env;
    for (char **e = environ; *e; ++e)
        if (std::none_of(std::begin(kControlled), std::end(kControlled),
                         [e](const char *p) { return std::strncmp(*e, p, std::strlen(p)) == 0; }))
            env.emplace_back(*e);
    for (const auto &[name, value] : vars)
        env.push_back(name + "=" + value);
    env.emplace_back("IMB_COLOUR_CHILD=1");
    std::vector<char *> envp;
    for (std::string &s : env)
        envp.push_back(s.data());
    envp.push_back(nullptr);

    std::string exe = "/proc/self/exe", brief = "--gtest_brief=1";
    std::vector<char *> argv{exe.data(), filter.data(), brief.data(), nullptr};
    pid_t pid = 0;
    int status = -1;
    if (posix_spawn(&pid, exe.c_str(), nullptr, nullptr, argv.data(), envp.data()) == 0)
        waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child process failed (status " << status << ")";
    return false;
}
} // namespace colour_test

// Not wrapped in do/while: the return must leave the test body.
#define COLOUR_CASE(...)                                                                                               \
    if (!colour_test::enterCase(colour_test::EnvList __VA_ARGS__))                                                     \
    return

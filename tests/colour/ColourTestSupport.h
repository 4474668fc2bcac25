// Runs a colour test in a fresh child process with a controlled environment.
//
// The colour configuration loads once per process, so every colour test
// starts with COLOUR_CASE({...}): in the test program as started, the test
// re-executes the program for just this test with the listed environment
// (every OCIO and IMB_ colour variable of the parent removed first) and fails
// when the child fails; in the child, the test body runs.
#pragma once

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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

inline bool isControlledVariable(const char *entry)
{
    static const char *const prefixes[] = {"OCIO=", "OCIO_", "IMB_OCIO_", "IMB_VERBOSE=", "IMB_COLOUR_CHILD="};
    for (const char *p : prefixes)
        if (std::strncmp(entry, p, std::strlen(p)) == 0)
            return true;
    return false;
}

// True in the child (run the body); in the parent, runs the child and returns
// false.
inline bool enterCase(const EnvList &vars)
{
    if (std::getenv("IMB_COLOUR_CHILD"))
        return true;
    const ::testing::TestInfo *info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string filter = std::string("--gtest_filter=") + info->test_suite_name() + "." + info->name();
    if (info->value_param())
        filter = std::string("--gtest_filter=*") + info->test_suite_name() + "." + info->name();

    std::vector<std::string> env;
    for (char **e = environ; *e; ++e)
        if (!isControlledVariable(*e))
            env.emplace_back(*e);
    for (const auto &[name, value] : vars)
        env.push_back(name + "=" + value);
    env.emplace_back("IMB_COLOUR_CHILD=1");
    std::vector<char *> envp;
    for (std::string &s : env)
        envp.push_back(s.data());
    envp.push_back(nullptr);

    std::string exe = "/proc/self/exe";
    std::string brief = "--gtest_brief=1";
    std::vector<char *> argv{exe.data(), filter.data(), brief.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv.data(), envp.data()) != 0)
    {
        ADD_FAILURE() << "cannot start the child process";
        return false;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child process failed (status " << status
                                                               << ")";
    return false;
}
} // namespace colour_test

#define COLOUR_CASE(...)                                                                                               \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!colour_test::enterCase(colour_test::EnvList __VA_ARGS__))                                                 \
            return;                                                                                                    \
    } while (0)

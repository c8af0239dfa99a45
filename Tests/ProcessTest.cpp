// What only a process of its own shows: the order of exit, and modules that are loaded and unloaded.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace
{

/// What a child prints, with its exit status as the last line.
std::string OutputOf(std::string const& name)
{
    std::string output;
    std::FILE* const pipe = ::popen(("'" VOK_TEST_CHILDREN "/" + name + "'").c_str(), "r");
    for (int c; (c = std::fgetc(pipe)) != EOF;)
        output.push_back(static_cast<char>(c));
    int const status = ::pclose(pipe);
    return output + "status " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}

} // namespace

TEST(Process, NothingIsDeliveredBehindTheTeardownAndNothingFails)
{
    EXPECT_EQ(OutputOf("ExitOrder"), "delivered from main\n"
                                     "delivered from an exit handler\n"
                                     "delivered from an early static\n"
                                     "ShouldLog 0\n"
                                     "still VokCom\n"
                                     "end\n"
                                     "status 0");
}

TEST(Process, ModulesShareOneChannelAndTheirErrors)
{
    EXPECT_EQ(OutputOf("TwoModules"), "heard speaking\n"
                                      "caught VokCom, same category 1\n"
                                      "end\n"
                                      "status 0");
}

TEST(Process, EndsWithoutItsTimers)
{
    EXPECT_EQ(OutputOf("ExitWithTimers"), "end\n"
                                          "late\n"
                                          "status 0");
}

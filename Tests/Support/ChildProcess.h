// A child process that runs a part of a test. The child's function gets a channel on which it says that it is ready and
// may wait until it is killed or its parent is gone; its result is the child's exit status.
//
//     ChildProcess child([&](ChildProcess::Channel& channel) { …; channel.Ready(); channel.Wait(); return 0; });
//     child.WaitUntilReady();
//     …
//     child.Kill();               // unless it ends by itself
//     EXPECT_EQ(child.Join(), -SIGKILL);
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <grp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Brindle::Vok::Testing
{

class ChildProcess
{
public:
    class Channel
    {
    public:
        explicit Channel(int socket) : socket(socket) {}
        void Ready() const { Say(); }
        /// Gives false when the parent is gone.
        bool Wait() const
        {
            char byte;
            return ::read(socket, &byte, 1) == 1;
        }
        void Say() const { EXPECT_EQ(::send(socket, "x", 1, MSG_NOSIGNAL), 1); }

    private:
        int socket;
    };

    template <class Run>
    explicit ChildProcess(Run run)
    {
        int sockets[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
        process = ::fork();
        if (process == 0)
        {
            ::close(sockets[0]);
            Channel channel(sockets[1]);
            ::_exit(run(channel));
        }
        ::close(sockets[1]);
        socket = sockets[0];
    }
    ~ChildProcess()
    {
        if (process > 0)
        {
            Kill();
            Join();
        }
        ::close(socket);
    }
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    void WaitUntilReady() const { EXPECT_TRUE(Channel(socket).Wait()) << "the child ended early"; }
    pid_t Process() const { return process; }
    void Kill() const { ::kill(process, SIGKILL); }

    /// Waits for its end. The exit status, or minus the signal that ended it.
    int Join()
    {
        int status = 0;
        EXPECT_EQ(::waitpid(process, &status, 0), process);
        process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    pid_t process = -1;
    int socket = -1;
};

/// A process that holds what a call gives, from now on until it may go.
struct HoldingProcess : ChildProcess
{
    template <class Open>
    explicit HoldingProcess(Open open)
        : ChildProcess(
              [&](Channel const& channel)
              {
                  [[maybe_unused]] auto const held = open();
                  return channel.Ready(), channel.Wait() ? 0 : 1;
              })
    {
        WaitUntilReady();
    }
};

/// Runs it in a child, and gives how that ended: 1 where something wasn't as expected.
template <class Run>
int InChild(Run run)
{
    return ChildProcess([&](ChildProcess::Channel const&) { return run(), testing::Test::HasFailure() ? 1 : 0; })
        .Join();
}

/// Runs it in a child. What it expects counts.
template <class Run>
void RunInChild(Run run)
{
    EXPECT_EQ(InChild(run), 0);
}

/// The same as an ordinary user: nobody, where these tests run as the superuser.
template <class Run>
void RunAsOrdinaryUser(Run run)
{
    RunInChild(
        [&]
        {
            constexpr unsigned nobody = 65534;
            if (::geteuid() == 0)
            {
                ASSERT_TRUE(::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 && ::setuid(nobody) == 0);
            }
            run();
        });
}

} // namespace Brindle::Vok::Testing

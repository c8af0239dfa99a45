// The one seam between the stand-in and the host's kernel: every system call goes through a name of this file. In the
// shipped library each name is a constant function pointer, so a call costs what a direct call costs. In the build
// that the tests link (VOK_SYSTEM_CALL_SEAM) a test can put a function of its own in its place, call by call:
//
//     SystemCalls::Redirection fail(SystemCalls::Write, [](int, void const*, size_t) { errno = ENOSPC; return -1; });
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/securebits.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <type_traits>
#include <unistd.h>

#ifdef VOK_SYSTEM_CALL_SEAM
#include <functional>
#include <utility>
#endif

namespace Brindle::Vok::Platform::SystemCalls
{

#ifdef VOK_SYSTEM_CALL_SEAM

template <class Signature>
class Call;

/// A system call that tests redirect. Redirecting while another thread calls is the test's own business.
template <class Result, class... Arguments>
class Call<Result(Arguments...)>
{
public:
    using Function = std::function<Result(Arguments...)>;

    Call(Result (*host)(Arguments...)) : host(host) {}

    Result operator()(Arguments... arguments) const
    {
        return replacement ? replacement(arguments...) : host(arguments...);
    }

    /// The host's own call, for a replacement that passes on.
    Result (*host)(Arguments...);
    Function replacement;
};

/// Puts a function in the place of a system call for one scope.
template <class Signature>
class Redirection
{
public:
    Redirection(Call<Signature>& call, typename Call<Signature>::Function function)
        : call(call), previous(std::exchange(call.replacement, std::move(function)))
    {
    }
    ~Redirection() { call.replacement = std::move(previous); }
    Redirection(Redirection const&) = delete;
    Redirection& operator=(Redirection const&) = delete;

private:
    Call<Signature>& call;
    typename Call<Signature>::Function previous;
};

template <class Signature, class Function>
Redirection(Call<Signature>&, Function) -> Redirection<Signature>;

#define VOK_SYSTEM_CALL(name, signature, host) inline Call<signature> name(host)

#else

#define VOK_SYSTEM_CALL(name, signature, host) inline constexpr std::add_pointer_t<signature> name = host

#endif

VOK_SYSTEM_CALL(Open, int(int, char const*, int, mode_t),
                [](int directory, char const* path, int flags, mode_t mode)
                { return ::openat(directory, path, flags, mode); });
VOK_SYSTEM_CALL(ReadDirectory, long(int, void*, size_t),
                [](int directory, void* buffer, size_t size)
                { return ::syscall(SYS_getdents64, directory, buffer, size); });
VOK_SYSTEM_CALL(Close, int(int), [](int descriptor) { return ::close(descriptor); });
VOK_SYSTEM_CALL(Read, ssize_t(int, void*, size_t),
                [](int descriptor, void* buffer, size_t count) { return ::read(descriptor, buffer, count); });
VOK_SYSTEM_CALL(ReadAt, ssize_t(int, void*, size_t, off_t),
                [](int descriptor, void* buffer, size_t count, off_t offset)
                { return ::pread(descriptor, buffer, count, offset); });
VOK_SYSTEM_CALL(Write, ssize_t(int, void const*, size_t),
                [](int descriptor, void const* buffer, size_t count) { return ::write(descriptor, buffer, count); });
VOK_SYSTEM_CALL(Status, int(int, struct stat*),
                [](int descriptor, struct stat* status) { return ::fstat(descriptor, status); });
VOK_SYSTEM_CALL(StatusAt, int(int, char const*, struct stat*, int),
                [](int directory, char const* path, struct stat* status, int flags)
                { return ::fstatat(directory, path, status, flags); });
VOK_SYSTEM_CALL(ExtendedStatusAt, int(int, char const*, int, unsigned, struct statx*),
                [](int directory, char const* path, int flags, unsigned mask, struct statx* status)
                { return ::statx(directory, path, flags, mask, status); });
VOK_SYSTEM_CALL(CheckAccess, int(char const*, int),
                [](char const* path, int mode) { return ::faccessat(AT_FDCWD, path, mode, AT_EACCESS); });
VOK_SYSTEM_CALL(StatusOfFileSystem, int(int, struct statfs*),
                [](int descriptor, struct statfs* status) { return ::fstatfs(descriptor, status); });
VOK_SYSTEM_CALL(LockWhole, int(int, int), [](int descriptor, int operation) { return ::flock(descriptor, operation); });
VOK_SYSTEM_CALL(LockRange, int(int, int, struct flock*),
                [](int descriptor, int command, struct flock* range) { return ::fcntl(descriptor, command, range); });
VOK_SYSTEM_CALL(SetStatusFlags, int(int, int),
                [](int descriptor, int flags) { return ::fcntl(descriptor, F_SETFL, flags); });
VOK_SYSTEM_CALL(Truncate, int(int, off_t), [](int descriptor, off_t size) { return ::ftruncate(descriptor, size); });
VOK_SYSTEM_CALL(ChangeModeAt, int(int, char const*, mode_t, int),
                [](int directory, char const* path, mode_t mode, int flags)
                {
                    // Linux has it with flags since 6.6, by the same number everywhere; before that the C library does
                    // it by way of a descriptor and /proc.
                    constexpr long fchmodat2 = 452;
                    if (flags != 0)
                    {
                        long const result = ::syscall(fchmodat2, directory, path, mode, flags);
                        if (result == 0 ||
                            (errno != ENOSYS && errno != EPERM)) // the latter from filters that don't know it
                            return static_cast<int>(result);
                    }
                    return ::fchmodat(directory, path, mode, flags);
                });
VOK_SYSTEM_CALL(ChangeModeOf, int(int, mode_t), [](int descriptor, mode_t mode) { return ::fchmod(descriptor, mode); });
VOK_SYSTEM_CALL(MakeDirectory, int(char const*, mode_t),
                [](char const* path, mode_t mode) { return ::mkdir(path, mode); });
VOK_SYSTEM_CALL(UnlinkAt, int(int, char const*, int),
                [](int directory, char const* path, int flags) { return ::unlinkat(directory, path, flags); });
VOK_SYSTEM_CALL(GetWorkingDirectory, char*(char*, size_t),
                [](char* buffer, size_t size) { return ::getcwd(buffer, size); });
VOK_SYSTEM_CALL(GetLimit, int(int, rlimit*),
                [](int resource, rlimit* limit)
                { return ::getrlimit(static_cast<__rlimit_resource>(resource), limit); });
VOK_SYSTEM_CALL(GetHostNames, int(utsname*), [](utsname* names) { return ::uname(names); });
// Of the calling thread, as the kernel has it.
VOK_SYSTEM_CALL(GetEffectiveUser, uid_t(), [] { return ::geteuid(); });
// An errno or zero; no user for a number that nobody has.
VOK_SYSTEM_CALL(FindUser, int(uid_t, passwd*, char*, size_t, passwd**),
                [](uid_t number, passwd* user, char* texts, size_t size, passwd** found)
                { return ::getpwuid_r(number, user, texts, size, found); });
VOK_SYSTEM_CALL(FindUserNamed, int(char const*, passwd*, char*, size_t, passwd**),
                [](char const* name, passwd* entry, char* texts, size_t size, passwd** found)
                { return ::getpwnam_r(name, entry, texts, size, found); });
VOK_SYSTEM_CALL(FindGroupsOf, int(char const*, gid_t, gid_t*, int*),
                [](char const* user, gid_t group, gid_t* groups, int* count)
                { return ::getgrouplist(user, group, groups, count); });
VOK_SYSTEM_CALL(OpenLibrary, void*(char const*, int), [](char const* name, int mode) { return ::dlopen(name, mode); });
// Room for that many bytes of a process, private and not used yet.
VOK_SYSTEM_CALL(ReserveMemory, void*(size_t),
                [](size_t size)
                { return ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0); });
VOK_SYSTEM_CALL(ReleaseMemory, int(void*, size_t), [](void* memory, size_t size) { return ::munmap(memory, size); });
VOK_SYSTEM_CALL(MakeEventDescriptor, int(unsigned, int),
                [](unsigned count, int flags) { return ::eventfd(count, flags); });
VOK_SYSTEM_CALL(MakeWatcher, int(int), [](int flags) { return ::inotify_init1(flags); });
VOK_SYSTEM_CALL(AddWatch, int(int, char const*, std::uint32_t),
                [](int watcher, char const* path, std::uint32_t mask)
                { return ::inotify_add_watch(watcher, path, mask); });
VOK_SYSTEM_CALL(CountReadable, int(int, int*),
                [](int descriptor, int* byteCount) { return ::ioctl(descriptor, FIONREAD, byteCount); });
VOK_SYSTEM_CALL(RemoveWatch, int(int, int), [](int watcher, int watch) { return ::inotify_rm_watch(watcher, watch); });
VOK_SYSTEM_CALL(ReadLink, ssize_t(char const*, char*, size_t),
                [](char const* path, char* text, size_t size) { return ::readlink(path, text, size); });
VOK_SYSTEM_CALL(Poll, int(pollfd*, nfds_t, timespec const*),
                [](pollfd* descriptors, nfds_t count, timespec const* time)
                { return ::ppoll(descriptors, count, time, nullptr); });
VOK_SYSTEM_CALL(MakeTimer, int(clockid_t, int),
                [](clockid_t clock, int flags) { return ::timerfd_create(clock, flags); });
VOK_SYSTEM_CALL(SetTimer, int(int, int, itimerspec const*),
                [](int timer, int flags, itimerspec const* time)
                { return ::timerfd_settime(timer, flags, time, nullptr); });
VOK_SYSTEM_CALL(MakePoll, int(int), [](int flags) { return ::epoll_create1(flags); });
VOK_SYSTEM_CALL(ChangePoll, int(int, int, int, epoll_event*),
                [](int poll, int operation, int descriptor, epoll_event* event)
                { return ::epoll_ctl(poll, operation, descriptor, event); });
VOK_SYSTEM_CALL(WaitForPoll, int(int, epoll_event*, int, int),
                [](int poll, epoll_event* events, int count, int milliseconds)
                { return ::epoll_wait(poll, events, count, milliseconds); });
VOK_SYSTEM_CALL(StartThread, int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*),
                [](pthread_t* thread, pthread_attr_t const* attributes, void* (*run)(void*), void* argument)
                { return ::pthread_create(thread, attributes, run, argument); });
VOK_SYSTEM_CALL(GetProcessors, int(pid_t, std::size_t, cpu_set_t*),
                [](pid_t thread, std::size_t size, cpu_set_t* allowed)
                { return ::sched_getaffinity(thread, size, allowed); });
// Of the calling thread, by numbers, as older C libraries have no names for them.
VOK_SYSTEM_CALL(GetScheduling, long(void*, unsigned),
                [](void* scheduling, unsigned size) { return ::syscall(SYS_sched_getattr, 0, scheduling, size, 0); });
VOK_SYSTEM_CALL(SetScheduling, long(void*),
                [](void* scheduling) { return ::syscall(SYS_sched_setattr, 0, scheduling, 0); });
VOK_SYSTEM_CALL(GetTime, int(clockid_t, timespec*),
                [](clockid_t clock, timespec* time) { return ::clock_gettime(clock, time); });
VOK_SYSTEM_CALL(Sleep, int(timespec const*), [](timespec const* time) { return ::nanosleep(time, nullptr); });
VOK_SYSTEM_CALL(ChangeSignalMask, int(int, sigset_t const*, sigset_t*),
                [](int how, sigset_t const* set, sigset_t* previous) { return ::pthread_sigmask(how, set, previous); });
VOK_SYSTEM_CALL(PendingSignals, int(sigset_t*), [](sigset_t* set) { return ::sigpending(set); });
VOK_SYSTEM_CALL(TakeSignal, int(sigset_t const*, timespec const*),
                [](sigset_t const* set, timespec const* time) { return ::sigtimedwait(set, nullptr, time); });
VOK_SYSTEM_CALL(GetUsers, int(uid_t*, uid_t*, uid_t*),
                [](uid_t* real, uid_t* effective, uid_t* saved) { return ::getresuid(real, effective, saved); });
VOK_SYSTEM_CALL(GetGroups, int(gid_t*, gid_t*, gid_t*),
                [](gid_t* real, gid_t* effective, gid_t* saved) { return ::getresgid(real, effective, saved); });
VOK_SYSTEM_CALL(GetOtherGroups, int(int, gid_t*), [](int size, gid_t* groups) { return ::getgroups(size, groups); });
// Of the calling thread alone: the C library's functions set those of all threads.
VOK_SYSTEM_CALL(SetUsers, long(uid_t, uid_t, uid_t),
                [](uid_t real, uid_t effective, uid_t saved)
                { return ::syscall(SYS_setresuid, real, effective, saved); });
VOK_SYSTEM_CALL(SetGroups, long(gid_t, gid_t, gid_t),
                [](gid_t real, gid_t effective, gid_t saved)
                { return ::syscall(SYS_setresgid, real, effective, saved); });
VOK_SYSTEM_CALL(SetOtherGroups, long(size_t, gid_t const*),
                [](size_t count, gid_t const* groups) { return ::syscall(SYS_setgroups, count, groups); });
VOK_SYSTEM_CALL(GetCapabilities, long(__user_cap_header_struct*, __user_cap_data_struct*),
                [](__user_cap_header_struct* header, __user_cap_data_struct* data)
                { return ::syscall(SYS_capget, header, data); });
VOK_SYSTEM_CALL(SetCapabilities, long(__user_cap_header_struct*, __user_cap_data_struct const*),
                [](__user_cap_header_struct* header, __user_cap_data_struct const* data)
                { return ::syscall(SYS_capset, header, data); });
VOK_SYSTEM_CALL(ChangeAmbient, int(int, unsigned long),
                [](int operation, unsigned long capability)
                { return ::prctl(PR_CAP_AMBIENT, operation, capability, 0UL, 0UL); });
VOK_SYSTEM_CALL(SetFileSystemUser, int(uid_t),
                [](uid_t user) { return static_cast<int>(::syscall(SYS_setfsuid, user)); });
VOK_SYSTEM_CALL(SetFileSystemGroup, int(gid_t),
                [](gid_t group) { return static_cast<int>(::syscall(SYS_setfsgid, group)); });
VOK_SYSTEM_CALL(GetDumpable, int(), [] { return ::prctl(PR_GET_DUMPABLE, 0UL, 0UL, 0UL, 0UL); });
VOK_SYSTEM_CALL(SetDumpable, int(int),
                [](int is) { return ::prctl(PR_SET_DUMPABLE, static_cast<unsigned long>(is), 0UL, 0UL, 0UL); });
VOK_SYSTEM_CALL(GetDeathSignal, int(int*),
                [](int* signal) { return ::prctl(PR_GET_PDEATHSIG, signal, 0UL, 0UL, 0UL); });
VOK_SYSTEM_CALL(SetDeathSignal, int(int),
                [](int signal)
                { return ::prctl(PR_SET_PDEATHSIG, static_cast<unsigned long>(signal), 0UL, 0UL, 0UL); });
VOK_SYSTEM_CALL(GetSecureBits, int(), [] { return ::prctl(PR_GET_SECUREBITS, 0UL, 0UL, 0UL, 0UL); });
VOK_SYSTEM_CALL(SetSecureBits, int(int),
                [](int bits) { return ::prctl(PR_SET_SECUREBITS, static_cast<unsigned long>(bits), 0UL, 0UL, 0UL); });
VOK_SYSTEM_CALL(GetProcess, pid_t(), [] { return ::getpid(); });
VOK_SYSTEM_CALL(GetSession, pid_t(pid_t), [](pid_t process) { return ::getsid(process); });
VOK_SYSTEM_CALL(OpenProcess, int(pid_t),
                [](pid_t process)
                {
                    constexpr long pidfdOpen = 434; // by the same number everywhere
                    return static_cast<int>(::syscall(pidfdOpen, process, 0));
                });
VOK_SYSTEM_CALL(GetRandom, ssize_t(void*, size_t, unsigned),
                [](void* buffer, size_t count, unsigned flags) { return ::getrandom(buffer, count, flags); });

} // namespace Brindle::Vok::Platform::SystemCalls

// The monitor of directories and what it knows of each, with the platform behind virtual functions that tests replace.
#pragma once

#include <Brindle/Vok/DirectoryMonitor.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Overlapped.h>
#include <Brindle/Vok/Synchronization.h>

#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Brindle::Vok
{

/// One watched directory, with one reading in progress. Works on the monitor's thread alone.
struct DirInfo
{
    DirInfo(Path path, bool watchSubtree, DWORD notifyFilter);
    DirInfo(DirInfo const&) = delete;
    DirInfo& operator=(DirInfo const&) = delete;
    virtual ~DirInfo() = default;

    /// Opens the directory and begins to read. Throws WindowsError.
    void Start();
    /// Begins the next reading. Throws WindowsError.
    void RefreshWatch();
    /// Once the reading's event is set: tells of what was read, and begins the next one. Throws WindowsError and what
    /// the callback throws; the rest of what was read is lost then.
    void ProcessNotifications(DirectoryChangeCallback const& callback);

    // The platform.

    virtual HANDLE OpenDirectory(std::wstring const& text);
    virtual bool ReadChanges(DWORD* bytesReturned);
    virtual DWORD LastError();
    /// Leaves the count at 0 when nothing was read.
    virtual BOOL OverlappedResult(DWORD* bytesTransferred);
    virtual std::unique_ptr<Overlapped> MakeOverlapped(HandleOwner<Detail::InvalidHandleTraits> file);

    Path path;
    /// Null until Start. Waits for the end of the reading when it goes, so that nobody writes into the buffer any more.
    std::unique_ptr<Overlapped> overlapped;
    alignas(8) unsigned char buffer[4096] = {};
    bool watchSubtree;
    DWORD notifyFilter;
};

class DirectoryMonitorImpl : public DirectoryMonitor
{
public:
    DirectoryMonitorImpl(DirectoryChangeCallback callback, std::vector<Path> directories);
    /// What can't be handled here ends the process, as required.
    ~DirectoryMonitorImpl() override; // NOLINT(bugprone-exception-escape)

    /// Starts the thread; returns when all directories are watched, or throws why one isn't.
    void Start();
    /// The thread. What can't be handled here ends the process, as required.
    void Run() noexcept; // NOLINT(bugprone-exception-escape)

    virtual std::unique_ptr<DirInfo> MakeDirInfo(Path directory, bool watchSubtree, DWORD notifyFilter);

private:
    std::vector<Path> const directories;
    bool const watchSubtree = false;
    DWORD const notifyFilter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE;
    DirectoryChangeCallback const callback;
    Event started;
    std::exception_ptr startupException;
    std::thread thread;
    Event stop;
};

class DirectoryMonitorFactoryImpl : public DirectoryMonitorFactory
{
public:
    std::unique_ptr<DirectoryMonitor> MakeDirectoryMonitor(std::vector<Path> const& directories,
                                                           DirectoryChangeCallback callback) override;
    std::unique_ptr<DirectoryMonitor> MakeDirectoryMonitor(Path directory, DirectoryChangeCallback callback) override;
};

} // namespace Brindle::Vok

#include "DirectoryMonitorImpl.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Log.h>

#include "PathText.h"

#include <utility>

namespace Brindle::Vok
{

std::wstring ToString(DirectoryAction action)
{
    switch (action)
    {
    case DirectoryAction::overflow:
        return L"overflow";
    case DirectoryAction::added:
        return L"added";
    case DirectoryAction::removed:
        return L"removed";
    case DirectoryAction::modified:
        return L"modified";
    case DirectoryAction::renamedOldName:
        return L"renamedOldName";
    case DirectoryAction::renamedNewName:
        return L"renamedNewName";
    }
    return L"unexpected DirectoryAction";
}

std::unique_ptr<DirectoryMonitorFactory> MakeDirectoryMonitorFactory()
{
    return std::make_unique<DirectoryMonitorFactoryImpl>();
}

// One directory

DirInfo::DirInfo(Path path, bool watchSubtree, DWORD notifyFilter)
    : path(std::move(path)), watchSubtree(watchSubtree), notifyFilter(notifyFilter)
{
}

void DirInfo::Start()
{
    HANDLE const directory = OpenDirectory(path.ToString());
    if (directory == INVALID_HANDLE_VALUE)
        VOK_THROW_LAST_ERROR(L"Failed to open directory to monitor {}", path.ToString());
    overlapped = MakeOverlapped(HandleOwner<Detail::InvalidHandleTraits>(directory));
    RefreshWatch();
}

void DirInfo::RefreshWatch()
{
    DWORD unused = 0;
    if (!ReadChanges(&unused))
        VOK_THROW_LAST_ERROR(L"Failed to ReadDirectoryChanges {}", path.ToString());
}

void DirInfo::ProcessNotifications(DirectoryChangeCallback const& callback)
{
    DWORD byteCount = 0;
    if (!OverlappedResult(&byteCount))
    {
        DWORD const code = LastError();
        if (code == ERROR_IO_PENDING) // required: this code alone means that the reading goes on
            return;
        VOK_LOG(error, "Unhandled GetOverlappedResult error [{}]", code);
    }
    if (byteCount == 0)
        callback({path, DirectoryAction::overflow}); // also when the reading failed
    else
    {
        for (unsigned char const* place = buffer;;)
        {
            auto const& record = *reinterpret_cast<FILE_NOTIFY_INFORMATION const*>(place);
            auto const* const begin = record.FileName;
            std::wstring name(begin, begin + record.FileNameLength / 2);
            callback({Path::Join(path, Path(std::move(name))), static_cast<DirectoryAction>(record.Action)});
            if (record.NextEntryOffset == 0)
                break;
            place += record.NextEntryOffset;
        }
    }
    RefreshWatch();
}

HANDLE DirInfo::OpenDirectory(std::wstring const& text)
{
    if (Detail::RefuseNul(text))
        return INVALID_HANDLE_VALUE;
    // Without FILE_SHARE_DELETE on purpose: what is watched stays where it is.
    return CreateFileW(text.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
}

bool DirInfo::ReadChanges(DWORD* bytesReturned)
{
    return ReadDirectoryChangesW(overlapped->file.Get(), buffer, sizeof buffer, watchSubtree, notifyFilter,
                                 bytesReturned, &overlapped->overlapped, nullptr) != FALSE;
}

DWORD DirInfo::LastError()
{
    return GetLastError();
}

BOOL DirInfo::OverlappedResult(DWORD* bytesTransferred)
{
    return GetOverlappedResult(overlapped->file.Get(), &overlapped->overlapped, bytesTransferred, FALSE);
}

std::unique_ptr<Overlapped> DirInfo::MakeOverlapped(HandleOwner<Detail::InvalidHandleTraits> file)
{
    return std::make_unique<Overlapped>(std::move(file));
}

// The monitor

DirectoryMonitorImpl::DirectoryMonitorImpl(DirectoryChangeCallback callback, std::vector<Path> directories)
    : directories(std::move(directories)), callback(std::move(callback)), started(L"", false), stop(L"", true)
{
}

DirectoryMonitorImpl::~DirectoryMonitorImpl() // NOLINT(bugprone-exception-escape): see the declaration
{
    stop.Set();
    if (thread.joinable())
        thread.join();
}

void DirectoryMonitorImpl::Start()
{
    thread = std::thread(&DirectoryMonitorImpl::Run, this);
    WaitForSingleObject(started.Handle(), INFINITE);
    if (startupException)
        std::rethrow_exception(startupException);
}

void DirectoryMonitorImpl::Run() noexcept // NOLINT(bugprone-exception-escape): see the declaration
{
    RevertToSelf(); // a thread of a host may begin with the impersonation of its maker
    std::vector<HANDLE> handles;
    std::vector<std::unique_ptr<DirInfo>> infos;
    try
    {
        handles.reserve(directories.size() + 1);
        infos.reserve(directories.size());
        for (Path const& directory : directories)
        {
            infos.push_back(MakeDirInfo(directory, watchSubtree, notifyFilter));
            infos.back()->Start();
            handles.push_back(infos.back()->overlapped->event.Handle());
        }
    }
    catch (std::exception const&)
    {
        startupException = std::current_exception();
    }
    bool goesOn = !startupException; // the caller may take the exception as soon as it may go on
    started.Set();
    if (goesOn)
        handles.push_back(stop.Handle()); // last: directories go first when both are ready, so it is also polled
    while (goesOn && stop.WaitOrTimeout(0) != EventWaitResult::signalled)
    {
        try
        {
            auto const count = static_cast<DWORD>(handles.size());
            DWORD const first = WaitForMultipleObjects(count, handles.data(), FALSE, INFINITE);
            if (first >= count)
                VOK_THROW_LAST_ERROR(L"Unexpected WaitForMultipleObjects exit code {}", first);
            goesOn = first != count - 1;
            if (goesOn)
                infos[first]->ProcessNotifications(callback);
        }
        catch (std::exception const& exception)
        {
            VOK_LOG(error, "Exception [{}] in directory monitor thread proc, exiting", exception.what());
            goesOn = false;
        }
    }
    for (std::unique_ptr<DirInfo>& info : infos) // in this order, which a vector doesn't promise
        info.reset();
}

std::unique_ptr<DirInfo> DirectoryMonitorImpl::MakeDirInfo(Path directory, bool subtree, DWORD filter)
{
    return std::make_unique<DirInfo>(std::move(directory), subtree, filter);
}

// The factory

std::unique_ptr<DirectoryMonitor>
DirectoryMonitorFactoryImpl::MakeDirectoryMonitor(std::vector<Path> const& directories,
                                                  DirectoryChangeCallback callback)
{
    auto monitor = std::make_unique<DirectoryMonitorImpl>(std::move(callback), directories);
    monitor->Start();
    return monitor;
}

std::unique_ptr<DirectoryMonitor> DirectoryMonitorFactoryImpl::MakeDirectoryMonitor(Path directory,
                                                                                    DirectoryChangeCallback callback)
{
    return MakeDirectoryMonitor(std::vector<Path>{std::move(directory)}, std::move(callback));
}

} // namespace Brindle::Vok

// Directory monitoring: a callback hears of each change in some directories, on a thread of the monitor's own.
//
//     std::unique_ptr<DirectoryMonitorFactory> const factory = MakeDirectoryMonitorFactory();
//     std::unique_ptr<DirectoryMonitor> const monitor =
//         factory->MakeDirectoryMonitor(L"C:\\tmp\\inbox", [](DirectoryChange const& change)
//                                       { std::wcout << ToString(change.action) << L' ' << change.path.ToString(); });
//     …                                                        // from here on
//     // Destroying the monitor ends it: no callback runs after that.
//
// What is told: files that are made, deleted, renamed, moved in or out, and written to, directly in a directory.
// Nothing of directories in it, or of what happens in those. A renaming comes as two changes next to each other,
// renamedOldName and renamedNewName. What happens to a name before the monitor is made isn't told, and all that happens
// after it is; or else there comes an `overflow` with the directory's own path, and the callback's owner has to look at
// the directory itself. On Linux that is when fs.inotify.max_queued_events changes wait. `modified` comes at once for a
// file, and at most every 5 milliseconds while it is written on and no name changes, with one after the last write;
// writes through a mapping aren't told of.
//
// The callback:
// - runs on the monitor's thread, one call at a time over all of its directories, with no lock held;
// - must copy what it wants to keep, as the change is gone when it returns;
// - should return soon: meanwhile nothing is read, and the monitor's destructor waits for it;
// - must not destroy its monitor, or wait for a thread that does, which ends the process;
// - ends the monitor when it throws something derived from std::exception: a statement at error tells so ("Exception
//   [...] in directory monitor thread proc, exiting"), and nothing more is told. Anything else ends the process.
// An empty one ends the monitor at the first change.
//
// A monitor that has ended early, because of its callback or because a directory of its has gone or got another name,
// can't be asked about it; it is to be destroyed and made anew. Of a directory that has gone an `overflow` comes first.
// (On Linux that isn't seen where the directory's parent can't be read. One that is renamed along with a directory
// above it, or covered by a mount, is watched on, with the paths of before.) One monitor watches up to 63 directories;
// one with more is made and ends at once, which is required. On Linux each takes two descriptors, one of the user's
// inotify instances (fs.inotify.max_user_instances) and two watches; the monitor takes one descriptor more, and all
// monitors of a process together one with an instance.
//
// Factories and monitors may be used from any thread; a monitor is destroyed on any but its own. A child process made
// by fork has no monitor's thread: it leaves its parent's monitors alone.
#pragma once

#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/Platform.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Brindle::Vok
{

/// What happened. Values that the platform adds are passed on as they are.
enum class DirectoryAction : std::uint32_t
{
    overflow = 0, ///< changes were lost
    added = 1,
    removed = 2,
    modified = 3,
    renamedOldName = 4, ///< renamedNewName comes next
    renamedNewName = 5
};

/// The enumerator's name; "unexpected DirectoryAction" for any other value.
VOK_EXPORT std::wstring ToString(DirectoryAction action);

/// One change.
struct DirectoryChange
{
    /// The watched directory joined with the name of what changed; of an overflow the watched directory itself.
    Path path;
    DirectoryAction action;
};

using DirectoryChangeCallback = std::function<void(DirectoryChange const& change)>;

/// Watches for as long as it lives.
class VOK_EXPORT_TYPE DirectoryMonitor
{
public:
    DirectoryMonitor() = default;
    DirectoryMonitor(DirectoryMonitor const&) = delete;
    DirectoryMonitor& operator=(DirectoryMonitor const&) = delete;
    /// Waits for a callback that is running. None runs after this.
    virtual ~DirectoryMonitor() = default;
};

class VOK_EXPORT_TYPE DirectoryMonitorFactory
{
public:
    DirectoryMonitorFactory() = default;
    DirectoryMonitorFactory(DirectoryMonitorFactory const&) = delete;
    DirectoryMonitorFactory& operator=(DirectoryMonitorFactory const&) = delete;
    virtual ~DirectoryMonitorFactory() = default;

    /// Watches from its return on. The factory may go then. A directory that comes twice is told of twice; none at all
    /// is nothing to tell of. Throws WindowsError if one can't be watched, and watches none then: 2 or 3 for a missing
    /// one, 5 without the right to read it, 32 while it is open and not shared, 87 for what is no directory, 4 and 1450
    /// when the host has no descriptor, instance or watch left; std::system_error if no thread can be started.
    virtual std::unique_ptr<DirectoryMonitor> MakeDirectoryMonitor(std::vector<Path> const& directories,
                                                                   DirectoryChangeCallback callback) = 0;
    /// The same for one directory.
    virtual std::unique_ptr<DirectoryMonitor> MakeDirectoryMonitor(Path directory,
                                                                   DirectoryChangeCallback callback) = 0;
};

/// On the real platform.
VOK_EXPORT std::unique_ptr<DirectoryMonitorFactory> MakeDirectoryMonitorFactory();

} // namespace Brindle::Vok

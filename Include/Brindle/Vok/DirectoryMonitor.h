// Directory monitoring: a callback hears of each change in some directories, on a thread of the monitor's own.
//
//     std::unique_ptr<DirectoryMonitor> const monitor = MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
//         L"C:\\tmp\\inbox", [](DirectoryChange const& change)
//         { std::cout << WideToUtf8(ToString(change.action)) << ' ' << change.path.ToStringA() << std::endl; });
//     ...                                                      // from here on
//     // Destroying the monitor ends it: no callback runs after that.
//
// Not guaranteed: that every change is told one by one (an `overflow` tells that some were lost); how many `modified`
// come for a file; anything of what lies in subdirectories, or is written through a mapping; that a monitor goes on
// when its callback throws or one of its directories goes, which the log alone tells. At most 63 directories each.
//
// Factories and monitors may be used from any thread; a monitor is destroyed on any but its own. A child process made
// by fork has no monitor's thread: it leaves its parent's monitors alone, and ends with _exit or exec.
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
    overflow = 0,       ///< changes were lost
    added = 1,          ///< made, linked or moved in
    removed = 2,        ///< deleted or moved out
    modified = 3,       ///< written to or truncated
    renamedOldName = 4, ///< renamedNewName comes next
    renamedNewName = 5  ///< the file of the change before, by its name of now
};

/// The enumerator's name; "unexpected DirectoryAction" for any other value. Any thread may call it.
VOK_EXPORT std::wstring ToString(DirectoryAction action);

/// One change.
struct DirectoryChange
{
    /// The watched directory joined with the name of what changed; of an overflow the watched directory itself.
    Path path;
    /// What happened to it.
    DirectoryAction action;
};

/// Who hears of changes. An empty one ends the monitor at the first change. The callback:
/// - runs on the monitor's thread, one call at a time over all of its directories, with no lock held and with the
///   signal mask of the thread that made the monitor;
/// - must copy what it wants to keep, as the change is gone when it returns;
/// - should return soon, and leave long work to another thread: meanwhile nothing is read, and the monitor's destructor
///   waits for it. A directory of which there is always something to tell keeps those behind it in the list waiting;
/// - must not destroy its monitor, which ends the process, nor wait for a thread that does, which lasts for ever;
/// - ends the monitor when it throws something derived from std::exception. Anything else ends the process.
using DirectoryChangeCallback = std::function<void(DirectoryChange const& change)>;

/// Watches for as long as it lives, unless it ends early.
///
/// What is told: files that are made, deleted, renamed, moved in or out, and written to, directly in a directory.
/// Nothing of directories in it, or of what happens in those; but links, also to directories, FIFOs and sockets are
/// files here. A renaming comes as two changes next to each other, renamedOldName and renamedNewName; of what it
/// replaced nothing is told. (Two files whose names are exchanged in one step, as renameat2 can, are told as two
/// renamings, which isn't what is left.) What happens to a name before the monitor is made isn't told, and all that
/// happens after it is; or else there comes an `overflow` with the directory's own path, behind what was told before
/// the loss. On Linux that is when fs.inotify.max_queued_events changes wait.
///
/// `modified` comes at once for a file, and at most every 5 milliseconds while it is written on and no name changes,
/// with one after the last write. Writes through a mapping, or by another name of the file in another directory, or by
/// who opened it by a name that it has no more, aren't told of, nor is a mode that is set, nor both times at once as
/// touch does, nor what a file system changes by itself or on another machine.
///
/// To keep a list of a directory: make the monitor, list the directory, then apply what was told, which the list may
/// know already. After an overflow destroy the monitor, and make it and the list anew: it may have ended. Keep names by
/// their text: Path takes names that differ in case alone for the same, and the host doesn't.
///
/// A monitor ends early because of its callback, or because one of its directories has gone or got another name: then
/// nothing more is told of any of them, and it can't be asked about it; destroy it and make another one. The last of
/// the statements at error that tell so is "Exception [...] in directory monitor thread proc, exiting". Of a directory
/// that has gone, an `overflow` with its path comes first, and its code is 5, access denied. (On Linux that isn't seen
/// where the directory's parent can't be read. One that is renamed along with a directory above it, or covered by a
/// mount, is watched on, with the paths of before; so is what a link led to when the monitor was made.) This library
/// itself deletes or renames no directory that is watched: that fails with 32, a deletion when all that was in it is
/// gone.
class VOK_EXPORT_TYPE DirectoryMonitor
{
public:
    DirectoryMonitor() = default;
    DirectoryMonitor(DirectoryMonitor const&) = delete;
    DirectoryMonitor& operator=(DirectoryMonitor const&) = delete;
    /// Waits for a callback that is running. None runs after this. Pure, as a monitor of this class watches nothing.
    virtual ~DirectoryMonitor() = 0;
};

inline DirectoryMonitor::~DirectoryMonitor() = default;

/// Makes monitors. An implementation is used from any thread.
class VOK_EXPORT_TYPE DirectoryMonitorFactory
{
public:
    DirectoryMonitorFactory() = default;
    DirectoryMonitorFactory(DirectoryMonitorFactory const&) = delete;
    DirectoryMonitorFactory& operator=(DirectoryMonitorFactory const&) = delete;
    virtual ~DirectoryMonitorFactory() = default;

    /// Watches from its return on. The factory may go then. A directory that comes twice is told of twice; none at all
    /// is nothing to tell of. Throws WindowsError if one can't be watched, and watches none then: 2 or 3 for a missing
    /// one, 3 for an empty path, 5 without the right to read it, 32 while it is open and not shared, 53 for an unknown
    /// server, 267 for what is no directory, 123 for a text with a NUL, 4 when the host has no descriptor or no inotify
    /// instance left, 1450 for no watch; std::system_error if no thread can be started.
    ///
    /// One monitor watches up to 63 directories. One with more is made, and ends at once with a statement as
    /// DirectoryMonitor has it. On Linux each directory takes two descriptors, one of the user's inotify instances
    /// (fs.inotify.max_user_instances) and two watches; the monitor takes one descriptor more, and all monitors of a
    /// process together one with an instance.
    virtual std::unique_ptr<DirectoryMonitor> MakeDirectoryMonitor(std::vector<Path> const& directories,
                                                                   DirectoryChangeCallback callback) = 0;
    /// The same for one directory.
    virtual std::unique_ptr<DirectoryMonitor> MakeDirectoryMonitor(Path directory,
                                                                   DirectoryChangeCallback callback) = 0;
};

/// The factory of monitors that watch the real platform. It touches nothing and may be called from any thread.
VOK_EXPORT std::unique_ptr<DirectoryMonitorFactory> MakeDirectoryMonitorFactory();

} // namespace Brindle::Vok

// A monitor that a test owns, and what it has told of.
//
//     WatchedDirectory watched(drive.Path(L"in"));
//     drive.Write("in/a");
//     EXPECT_THAT(watched.Until(2), ElementsAre("added a", "modified a"));
#pragma once

#include <Brindle/Vok/DirectoryMonitor.h>
#include <Brindle/Vok/FormatString.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace Brindle::Vok::Testing
{

/// Collects changes as "action name", of an overflow without the name. The callback of a monitor goes before this does.
class ChangeRecorder
{
public:
    DirectoryChangeCallback Callback()
    {
        return [this](DirectoryChange const& change) { Add(change); };
    }

    /// What has been told once it is so many changes; what there is after ten seconds.
    std::vector<std::string> Until(std::size_t count)
    {
        std::unique_lock lock(mutex);
        arrived.wait_for(lock, std::chrono::seconds(10), [&] { return changes.size() >= count; });
        return changes;
    }
    /// What has been told once it ends with that.
    std::vector<std::string> Until(std::string const& last)
    {
        std::unique_lock lock(mutex);
        arrived.wait_for(lock, std::chrono::seconds(10), [&] { return !changes.empty() && changes.back() == last; });
        return changes;
    }

private:
    void Add(DirectoryChange const& change)
    {
        std::string text = WideToUtf8(ToString(change.action));
        if (change.action != DirectoryAction::overflow)
            text += ' ' + WideToUtf8(change.path.NameWithExtension());
        std::lock_guard const lock(mutex);
        changes.push_back(std::move(text));
        arrived.notify_all();
    }

    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::string> changes;
};

class WatchedDirectory : public ChangeRecorder
{
public:
    explicit WatchedDirectory(Path const& directory)
        : monitor(MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(directory, Callback()))
    {
    }

private:
    std::unique_ptr<DirectoryMonitor> monitor;
};

} // namespace Brindle::Vok::Testing

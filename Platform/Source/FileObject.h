// What stands behind a file's handle.
#pragma once

#include "HandleTable.h"
#include "Sharing.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace Brindle::Vok::Platform
{

class DirectoryWatch;

class FileObject final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::file);
    static constexpr std::int64_t noSize = -1;

    enum class Type
    {
        plain,
        directory,
        link, // A symbolic link that was opened itself.
        other // A FIFO, a device, a terminal.
    };

    FileObject() noexcept : Object(Kind::file) {}
    ~FileObject() override
    {
        if (watch)
            EndWatch();
    }

    int Descriptor() const noexcept { return shared.Get(); }

    SharedDescriptor shared;
    Type type = Type::plain;
    bool reads = false;
    bool writes = false;
    bool overlapped = false;
    /// The process's files may not grow without limit, so that the host may answer a write with a signal.
    std::atomic<bool> mayMeetLimit{false};
    /// The size that opening found, noSize once it has been asked for or may have changed. Kept only while this handle
    /// shares nothing: nobody else can then open the file to change it.
    std::atomic<std::int64_t> sizeAtOpening{noSize};
    /// Of a directory whose changes have been read. It may only be looked at with the lock in Changes.cpp.
    std::shared_ptr<DirectoryWatch> watch;

private:
    void EndWatch() noexcept;
};

} // namespace Brindle::Vok::Platform

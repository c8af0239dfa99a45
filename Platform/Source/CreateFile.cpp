#include "FileObject.h"
#include "FileStatus.h"
#include "HostErrors.h"
#include "Names.h"
#include "OtherProcesses.h"
#include "QuickDeletion.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>

#include <chrono>
#include <sys/resource.h>

namespace Brindle::Vok::Platform
{
namespace
{

// The generic rights, the standard ones that every object has, and a file's own. Whatever else a caller asks for, such
// as the most that it is allowed, is refused instead of being left out.
constexpr DWORD knownAccess = 0xF01F'01FFU;
// The attributes that a creation may ask for; only FILE_ATTRIBUTE_READONLY has an effect on the host.
constexpr DWORD knownAttributes = 0x0000'FFFFU;
// What a client allows a server to do in its name concerns pipes alone.
constexpr DWORD securityFlags = 0x001F'0000U;
constexpr DWORD knownFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_SEQUENTIAL_SCAN | FILE_FLAG_RANDOM_ACCESS |
                             FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_OVERLAPPED | FILE_FLAG_WRITE_THROUGH |
                             securityFlags | knownAttributes;

// A file that is deleted between opening and locking is looked for anew, this often at most, and so is one that another
// opening is about to create.
constexpr int mostAttempts = 16;

// A file whose creation is under way bears this bit, which means nothing for plain files on the host, until its creator
// has its share modes. Another opening that gets in between withdraws, so that the creator never loses its own file.
constexpr mode_t creationMark = S_ISVTX;
// A mark older than this was left by a creator that died.
constexpr std::chrono::seconds longestCreation{2};
// How long a new and empty file that somebody else holds may be one that was just created here.
constexpr std::chrono::milliseconds longestGlance{20};

// The arguments of one opening, taken apart.
struct Opening
{
    Opening(DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
            HANDLE templateFile) noexcept
        : access(access), share(share), disposition(disposition), flags(flags),
          describesNew((security && security->lpSecurityDescriptor) || templateFile),
          reads((access & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA)) != 0),
          executes((access & (GENERIC_EXECUTE | GENERIC_ALL | FILE_EXECUTE)) != 0),
          overwrites((access & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA)) != 0),
          appends((access & FILE_APPEND_DATA) != 0), deletes((access & (DELETE | GENERIC_ALL)) != 0)
    {
    }

    bool Has(DWORD flag) const noexcept { return (flags & flag) != 0; }
    bool Writes() const noexcept { return overwrites || appends; }
    bool Empties() const noexcept { return disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING; }
    bool Creates() const noexcept { return disposition != OPEN_EXISTING && disposition != TRUNCATE_EXISTING; }
    // How a caller opens a directory to read its changes. The right by itself is FILE_READ_DATA too.
    bool WatchesDirectory() const noexcept
    {
        return disposition == OPEN_EXISTING && access == FILE_LIST_DIRECTORY && Has(FILE_FLAG_BACKUP_SEMANTICS) &&
               Has(FILE_FLAG_OVERLAPPED);
    }
    // Rights to attributes alone take part in no sharing and need no permission of the file's own.
    bool AttributesOnly() const noexcept { return !reads && !executes && !Writes() && !deletes && !Empties(); }
    // To have a file emptied is to write to it.
    bool WritesOrEmpties() const noexcept { return Writes() || Empties(); }

    ShareTerms Terms(int hostFlags) const noexcept
    {
        DWORD const uses = (reads || executes ? FILE_SHARE_READ : 0) | (WritesOrEmpties() ? FILE_SHARE_WRITE : 0) |
                           (deletes ? FILE_SHARE_DELETE : 0);
        return {uses, share, (hostFlags & O_ACCMODE) != O_WRONLY};
    }

    int HostFlags() const noexcept
    {
        // Opening must not wait for a FIFO's other end or a terminal's line.
        int hostFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
        if (WritesOrEmpties())
            hostFlags |= reads || executes ? O_RDWR : O_WRONLY;
        if (appends && !overwrites)
            hostFlags |= O_APPEND;
        if (Has(FILE_FLAG_WRITE_THROUGH))
            hostFlags |= O_DSYNC;
        if (Has(FILE_FLAG_OPEN_REPARSE_POINT))
            hostFlags |= O_NOFOLLOW;
        return hostFlags;
    }

    mode_t CreationMode() const noexcept { return Has(FILE_ATTRIBUTE_READONLY) ? 0444 : 0666; }

    DWORD access;
    DWORD share;
    DWORD disposition;
    DWORD flags;
    // A security descriptor or a template says what a new file is to be like.
    bool describesNew;
    bool reads;
    bool executes;
    bool overwrites;
    bool appends;
    bool deletes;
};

bool CheckArguments(Opening const& opening) noexcept
{
    if (opening.disposition < CREATE_NEW || opening.disposition > TRUNCATE_EXISTING)
        return FailWith(ERROR_INVALID_PARAMETER);
    if ((opening.share & ~allShares) != 0 || (opening.disposition == TRUNCATE_EXISTING && !opening.overwrites))
        return FailWith(ERROR_INVALID_PARAMETER);
    if ((opening.flags & ~knownFlags) != 0 || (opening.access & ~knownAccess) != 0)
        return FailWith(ERROR_NOT_SUPPORTED);
    // Neither a security descriptor nor the attributes of a template can be given to what is created.
    if (opening.Creates() && opening.describesNew)
        return FailWith(ERROR_NOT_SUPPORTED);
    return true;
}

// One opening in progress.
class Opener
{
public:
    Opener(HostPath const& path, Opening const& opening, FileObject& file) noexcept
        : path(path), opening(opening), file(file)
    {
    }

    bool Run() noexcept
    {
        if (path.NamesDirectory() && (opening.disposition == CREATE_NEW || opening.disposition == CREATE_ALWAYS))
            return FailWith(ERROR_INVALID_NAME);
        for (int attempt = 1;; ++attempt)
        {
            if (!OpenByDisposition())
                return false;
            // A file that has no name after so many attempts is one that is reached by another way.
            Admission const admission = Admit(attempt == mostAttempts);
            if (admission != Admission::again)
                return admission == Admission::granted;
        }
    }

private:
    enum class Admission
    {
        granted,
        refused,
        again
    };

    bool OpenByDisposition() noexcept
    {
        created = false;
        hostFlags = opening.HostFlags();
        if (!opening.Creates())
            return OpenExisting() || FailOnPath(path, hostError);
        if (opening.disposition == CREATE_NEW)
            return Create(O_EXCL) || FailOnCreation();
        // A file that is made read-only may still be written by this handle, but one that was there may not: so it
        // must be known which it is.
        if (opening.Has(FILE_ATTRIBUTE_READONLY) || opening.AttributesOnly() || path.NamesDirectory())
            return OpenOrCreate() || FailOnCreation();
        return Create(0) || FailOnCreation();
    }

    bool OpenOrCreate() noexcept
    {
        for (int attempt = 0; attempt < mostAttempts; ++attempt)
        {
            hostFlags = opening.HostFlags();
            if (OpenExisting())
                return true;
            if (hostError != ENOENT || path.NamesDirectory() || Create(O_EXCL))
                return hostError == 0;
            if (hostError != EEXIST)
                return false;
        }
        // A link whose target is missing is there and isn't.
        return Create(0);
    }

    bool Create(int exclusive) noexcept
    {
        if (TryOpen(hostFlags | O_CREAT | exclusive, exclusive ? creationMark : 0))
        {
            created = exclusive != 0;
            return true;
        }
        if (exclusive)
            return false;
        // A directory is not created, and in a directory with the sticky bit the host denies creation also where
        // another user's file is there.
        int const error = hostError;
        if ((error == EISDIR && opening.disposition == OPEN_ALWAYS) || error == EACCES || error == ELOOP)
            if (OpenExisting())
                return true;
        hostError = error;
        return false;
    }

    bool OpenExisting() noexcept
    {
        if (opening.AttributesOnly())
            return TryOpen(O_PATH | O_CLOEXEC | (hostFlags & O_NOFOLLOW));
        if (TryOpen(hostFlags))
            return true;
        int const error = hostError;
        // Directories can't be opened for writing there; nothing of the handle needs it.
        if (error == EISDIR && opening.Has(FILE_FLAG_BACKUP_SEMANTICS) && !opening.Empties())
            return TryOpen(O_RDONLY | O_DIRECTORY | O_CLOEXEC | (hostFlags & O_NOFOLLOW));
        if (error == EACCES && (hostFlags & O_ACCMODE) == O_RDONLY && !opening.reads && !opening.executes)
            return TryOpen(hostFlags | O_WRONLY);
        // The link itself, which has nothing to read, to write or to lock.
        if (error == ELOOP && opening.Has(FILE_FLAG_OPEN_REPARSE_POINT) && !opening.Empties())
            return TryOpen(O_PATH | O_CLOEXEC | O_NOFOLLOW);
        return false;
    }

    bool TryOpen(int flags, mode_t mark = 0) noexcept
    {
        int const descriptor = Uninterrupted(
            [&] { return SystemCalls::Open(AT_FDCWD, path.Text(), flags, opening.CreationMode() | mark); });
        hostError = descriptor < 0 ? errno : 0;
        if (descriptor < 0)
            return false;
        hostFlags = flags;
        file.shared = SharedDescriptor(descriptor);
        return true;
    }

    bool FailOnCreation() noexcept
    {
        if (hostError == EEXIST)
            return FailWith(ERROR_FILE_EXISTS);
        if (hostError == ENOENT && path.NamesDirectory())
            return FailWith(ERROR_INVALID_NAME);
        return FailOnPath(path, hostError);
    }

    // Whether what was opened may be had on the terms of the opening, and the last steps to it.
    Admission Admit(bool last) noexcept
    {
        bool const locks = (hostFlags & O_PATH) == 0 && !opening.AttributesOnly();
        DWORD const lockCode = locks ? Lock() : ERROR_SUCCESS;
        struct stat status;
        if (!(locks ? CountAndLook(status) : SystemCalls::Status(file.Descriptor(), &status) == 0))
            return Refuse(CodeFromHost(errno));
        if (DWORD const code = CheckKind(status.st_mode))
            return Refuse(code);
        // Everybody has the same device and each end of a FIFO its own handle: share modes are for files on disk.
        if (file.type == FileObject::Type::other || file.type == FileObject::Type::link)
            return AdmitOther();
        if (created)
            EndCreation(status);
        else if (locks && !last && IsInTransit(status, lockCode))
            return Withdraw(true);
        if (lockCode == ERROR_SHARING_VIOLATION && opening.disposition == CREATE_NEW)
            return Refuse(ERROR_FILE_EXISTS); // Somebody opened it before its creation was complete.
        if (lockCode != ERROR_SUCCESS)
            return Refuse(lockCode);
        if (!created && locks && IsAbandoned(status))
            EndCreation(status);
        if (locks && status.st_nlink == 0 && !last)
            return Withdraw(false);
        if (opening.Empties() && !created && !Empty(status))
            return Refuse(CodeFromHost(errno));
        if (opening.share == 0 && locks && !opening.WritesOrEmpties() && file.type == FileObject::Type::plain)
            file.sizeAtOpening.store(status.st_size, std::memory_order_relaxed);
        return Admission::granted;
    }

    // The order matters: the number of deletions, the look, the count, the question. A quick deletion says that it
    // relies on the counters before it reads one. So either it sees this handle, or this opening sees the deletion,
    // waits for its end, and looks again whether the file still has a name.
    bool CountAndLook(struct stat& status) noexcept
    {
        std::uint64_t const before = QuickDeletionsSoFar();
        if (SystemCalls::Status(file.Descriptor(), &status) != 0)
            return false;
        if (!IsCounted(status.st_mode))
            return true;
        file.shared.CountOn(status.st_ino);
        return !MayHaveMetQuickDeletion(before) || SystemCalls::Status(file.Descriptor(), &status) == 0;
    }

    // Who opens a file that is being created gives way, so its creator needs patience only.
    DWORD Lock() noexcept
    {
        DWORD code = file.shared.Lock(opening.Terms(hostFlags));
        for (int attempt = 0; created && code == ERROR_SHARING_VIOLATION && attempt < mostAttempts; ++attempt)
        {
            PauseForOthers(attempt);
            code = file.shared.Lock(opening.Terms(hostFlags));
        }
        return code;
    }

    // Another opening is about to create it, or lets go of it soon: one that came between this one's creating and
    // locking and found nothing in it.
    bool IsInTransit(struct stat const& status, DWORD lockCode) const noexcept
    {
        if (created || !S_ISREG(status.st_mode) || status.st_size != 0)
            return false;
        if ((status.st_mode & creationMark) != 0)
            return IsYoungerThan(longestCreation, status);
        return opening.Creates() && lockCode == ERROR_SHARING_VIOLATION && IsYoungerThan(longestGlance, status);
    }

    // Its creator died before it could take the mark away.
    static bool IsAbandoned(struct stat const& status) noexcept
    {
        return S_ISREG(status.st_mode) && (status.st_mode & creationMark) != 0 && status.st_size == 0 &&
               !IsYoungerThan(longestCreation, status);
    }

    static bool IsYoungerThan(std::chrono::nanoseconds limit, struct stat const& status) noexcept
    {
        timespec now{};
        SystemCalls::GetTime(CLOCK_REALTIME, &now);
        std::chrono::nanoseconds const age = std::chrono::seconds(now.tv_sec - status.st_ctim.tv_sec) +
                                             std::chrono::nanoseconds(now.tv_nsec - status.st_ctim.tv_nsec);
        // The clock of files runs behind by a tick at most; a time far ahead was set, or the clock was.
        return age > -limit && age < limit;
    }

    // File systems that don't keep the mark, or let nobody take it away, lose the protection and nothing else.
    void EndCreation(struct stat& status) noexcept
    {
        if ((status.st_mode & creationMark) == 0)
            return;
        status.st_mode &= ~creationMark;
        SystemCalls::ChangeModeOf(file.Descriptor(), status.st_mode & 07777);
    }

    Admission Withdraw(bool pauses) noexcept
    {
        file.shared = SharedDescriptor();
        if (pauses)
            PauseForOthers(withdrawals++);
        return Admission::again;
    }

    DWORD CheckKind(mode_t mode) noexcept
    {
        file.type = S_ISREG(mode)   ? FileObject::Type::plain
                    : S_ISDIR(mode) ? FileObject::Type::directory
                    : S_ISLNK(mode) ? FileObject::Type::link
                                    : FileObject::Type::other;
        bool const isDirectory = file.type == FileObject::Type::directory;
        if (path.NamesDirectory() && !isDirectory)
            return ERROR_INVALID_NAME;
        if (!isDirectory && opening.WatchesDirectory())
            return ERROR_DIRECTORY;
        if (isDirectory && (!opening.Has(FILE_FLAG_BACKUP_SEMANTICS) || opening.Empties()))
            return ERROR_ACCESS_DENIED;
        if (!isDirectory && opening.WritesOrEmpties() && !created && IsReadOnly(mode))
            return ERROR_ACCESS_DENIED;
        return ERROR_SUCCESS;
    }

    Admission AdmitOther() noexcept
    {
        file.shared.Unlock();
        // From here on transfers wait as they do for any program.
        if ((hostFlags & O_PATH) == 0 &&
            SystemCalls::SetStatusFlags(file.Descriptor(), hostFlags & (O_APPEND | O_DSYNC)) != 0)
            return Refuse(CodeFromHost(errno));
        return Admission::granted;
    }

    bool Empty(struct stat const& status) noexcept
    {
        // The mode first: only the owner may change it, and who is refused must not find the file emptied.
        mode_t const mode = status.st_mode & 07777;
        bool const becomesReadOnly = opening.disposition == CREATE_ALWAYS && opening.Has(FILE_ATTRIBUTE_READONLY);
        if (becomesReadOnly && SystemCalls::ChangeModeOf(file.Descriptor(), mode & ~writeBits) != 0)
            return false;
        if (status.st_size == 0 || Uninterrupted([&] { return SystemCalls::Truncate(file.Descriptor(), 0); }) == 0)
            return true;
        int const error = errno;
        if (becomesReadOnly)
            SystemCalls::ChangeModeOf(file.Descriptor(), mode);
        errno = error;
        return false;
    }

    static Admission Refuse(DWORD code) noexcept
    {
        FailWith(code);
        return Admission::refused;
    }

    HostPath const& path;
    Opening const& opening;
    FileObject& file;
    int hostFlags = 0;
    int hostError = 0;
    int withdrawals = 0;
    bool created = false;
};

bool FilesHaveSizeLimit() noexcept
{
    rlimit limit;
    return SystemCalls::GetLimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

HANDLE OpenForCaller(LPCWSTR text, Opening const& opening) noexcept
{
    HostPath path;
    if (!path.Assign(text))
        return INVALID_HANDLE_VALUE;
    // First: an opening that creates or empties the file must not fail for want of a handle after that.
    auto file = HandleTable::Make<FileObject>();
    if (!file)
        return INVALID_HANDLE_VALUE;
    if (DWORD const code = opening.AttributesOnly() ? ERROR_SUCCESS : OtherProcesses::Announce())
    {
        FailWith(code);
        return INVALID_HANDLE_VALUE;
    }
    if (!Opener(path, opening, *file).Run())
        return INVALID_HANDLE_VALUE;
    file->reads = opening.reads;
    file->writes = opening.Writes();
    file->overlapped = opening.Has(FILE_FLAG_OVERLAPPED);
    if (file->writes && file->type == FileObject::Type::plain)
        file->mayMeetLimit.store(FilesHaveSizeLimit(), std::memory_order_relaxed);
    return file.Open();
}

} // namespace
} // namespace Brindle::Vok::Platform

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flags, HANDLE templateFile) noexcept
{
    using namespace Brindle::Vok::Platform;
    Opening const opening(access, share, security, disposition, flags, templateFile);
    return CheckArguments(opening) ? OpenForCaller(path, opening) : INVALID_HANDLE_VALUE;
}

#include "HostErrors.h"

namespace Brindle::Vok::Platform
{

DWORD CodeFromHost(int error) noexcept
{
    switch (error)
    {
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
        return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EISDIR:
        return ERROR_ACCESS_DENIED;
    case EBADF:
        return ERROR_INVALID_HANDLE;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EXDEV:
        return ERROR_NOT_SAME_DEVICE;
    case EROFS:
        return ERROR_WRITE_PROTECT;
    case EAGAIN: // Somebody holds a lease or a lock.
    case ETXTBSY:
        return ERROR_SHARING_VIOLATION;
    case EDEADLK:
        return ERROR_POSSIBLE_DEADLOCK;
    case EOPNOTSUPP:
        return ERROR_NOT_SUPPORTED;
    case ENODEV:
    case ENXIO:
        return ERROR_DEV_NOT_EXIST;
    case EEXIST:
        return ERROR_ALREADY_EXISTS;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    case EPIPE:
        return ERROR_NO_DATA;
    case ENOSPC:
        return ERROR_DISK_FULL;
    case ENOSYS:
        return ERROR_CALL_NOT_IMPLEMENTED;
    case ETIMEDOUT:
        return ERROR_SEM_TIMEOUT;
    case ESPIPE:
        return ERROR_SEEK;
    case ENOTEMPTY:
        return ERROR_DIR_NOT_EMPTY;
    case EBUSY:
        return ERROR_BUSY;
    case EILSEQ:
        return ERROR_INVALID_NAME;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case EFBIG:
    case EOVERFLOW:
        return ERROR_FILE_TOO_LARGE;
    case ECANCELED:
        return ERROR_OPERATION_ABORTED;
    case EFAULT:
        return ERROR_NOACCESS;
    case EIO:
        return ERROR_IO_DEVICE;
    case EMLINK:
        return ERROR_TOO_MANY_LINKS;
    case EDQUOT:
        return ERROR_DISK_QUOTA_EXCEEDED;
    case ENOLCK:
    case ENOBUFS:
        return ERROR_NO_SYSTEM_RESOURCES;
    case ELOOP:
        return ERROR_CANT_RESOLVE_FILENAME;
    default:
        return ERROR_GEN_FAILURE;
    }
}

} // namespace Brindle::Vok::Platform

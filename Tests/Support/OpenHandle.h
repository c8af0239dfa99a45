// A handle that a test owns, and what a call left as last error.
#pragma once

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Files.h>
#include <Brindle/Platform/Handles.h>
#include <Brindle/Platform/Security.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace Brindle::Vok::Testing
{

inline constexpr DWORD allShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class OpenHandle
{
public:
    explicit OpenHandle(HANDLE handle = INVALID_HANDLE_VALUE) : handle(handle) {}
    OpenHandle(OpenHandle&& other) noexcept : handle(std::exchange(other.handle, INVALID_HANDLE_VALUE)) {}
    OpenHandle& operator=(OpenHandle&& other) noexcept
    {
        std::swap(handle, other.handle);
        return *this;
    }
    ~OpenHandle() { Close(); }

    void Close()
    {
        if (*this)
            CloseHandle(std::exchange(handle, INVALID_HANDLE_VALUE));
    }
    explicit operator bool() const { return handle != INVALID_HANDLE_VALUE && handle != nullptr; }
    HANDLE Get() const { return handle; }

private:
    HANDLE handle;
};

inline OpenHandle Open(std::wstring const& path, DWORD access, DWORD share = 0, DWORD disposition = OPEN_EXISTING,
                       DWORD flags = FILE_ATTRIBUTE_NORMAL)
{
    return OpenHandle(CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr));
}

/// A token of the calling process; none, with the last error set, where that is refused.
inline OpenHandle OwnToken(DWORD access)
{
    HANDLE token = nullptr;
    OpenProcessToken(GetCurrentProcess(), access, &token);
    return OpenHandle(token);
}

/// Made before a call, it gives ERROR_SUCCESS if the call's result is true, otherwise the last error that it set.
class LastErrorOf
{
public:
    LastErrorOf() { SetLastError(untouched); }

    DWORD Call(bool hasSucceeded) const
    {
        DWORD const code = GetLastError();
        // A success must leave the last error alone.
        if (hasSucceeded)
            return code == untouched ? static_cast<DWORD>(ERROR_SUCCESS) : 0xFFFFFFFF;
        return code;
    }

private:
    static constexpr DWORD untouched = 0xABCD;
};

/// The same of a call that is yet to be made.
template <class Call>
DWORD CodeOf(Call call)
{
    return LastErrorOf().Call(static_cast<bool>(call()));
}

} // namespace Brindle::Vok::Testing

/// Expects that a call ends with this code, as CodeOf gives it.
#define VOK_EXPECT_CODE(code, ...)                                                                                     \
    EXPECT_EQ(::Brindle::Vok::Testing::LastErrorOf().Call(static_cast<bool>(__VA_ARGS__)), static_cast<DWORD>(code))

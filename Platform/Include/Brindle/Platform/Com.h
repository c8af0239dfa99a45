// The COM names that the library uses: task memory, identifiers, BSTRs, error information and _com_error.
//
//     catch (_com_error const& error)
//     {
//         std::wcerr << error.ErrorMessage() << L'\n';
//     }
//
// Task memory and BSTRs come from one heap of the process and may be freed on another thread than the one that asked
// for them. Nothing here starts or needs a COM apartment.
#pragma once

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Types.h>

#include <atomic>
#include <memory>
#include <new>

/// Text that knows its length: it stands in front of the first character, in bytes, and a NUL behind the last one.
using BSTR = wchar_t*;
using LPOLESTR = wchar_t*;
using REFIID = IID const&;

extern "C"
{
    /// Null when memory is short. 0 bytes give a pointer that must be freed like any other.
    VOK_PLATFORM_EXPORT LPVOID WINAPI CoTaskMemAlloc(SIZE_T size) noexcept;
    /// A null argument does nothing.
    VOK_PLATFORM_EXPORT void WINAPI CoTaskMemFree(LPVOID memory) noexcept;

    /// A fresh identifier from the kernel's random source, version 4. E_INVALIDARG for null, and the host's failure as
    /// 0x8007 and a Win32 code; the identifier is left alone then.
    VOK_PLATFORM_EXPORT HRESULT WINAPI CoCreateGuid(GUID* guid) noexcept;
    /// {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX} in upper case, to be released with CoTaskMemFree. E_INVALIDARG for null,
    /// E_OUTOFMEMORY when memory is short.
    VOK_PLATFORM_EXPORT HRESULT WINAPI StringFromCLSID(REFCLSID id, LPOLESTR* text) noexcept;

    /// Null for a null text and when memory is short.
    VOK_PLATFORM_EXPORT BSTR WINAPI SysAllocString(wchar_t const* text) noexcept;
    /// The length in characters; NUL is one like any other, and a null text leaves them unset.
    VOK_PLATFORM_EXPORT BSTR WINAPI SysAllocStringLen(wchar_t const* text, UINT length) noexcept;
    /// A null argument does nothing.
    VOK_PLATFORM_EXPORT void WINAPI SysFreeString(BSTR text) noexcept;
    /// Characters without the terminator; 0 for null.
    VOK_PLATFORM_EXPORT UINT WINAPI SysStringLen(BSTR text) noexcept;
}

/// Every COM object. An object ends with its last reference, so nobody deletes one through this type.
struct VOK_PLATFORM_EXPORT IUnknown
{
    virtual HRESULT QueryInterface(REFIID id, void** object) = 0;
    /// Both give the new count, which serves tests alone.
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    ~IUnknown() = default;
};

/// What a failed call left for its caller. Texts belong to the caller, who frees them with SysFreeString.
struct VOK_PLATFORM_EXPORT IErrorInfo : IUnknown
{
    virtual HRESULT GetGUID(GUID* guid) = 0;
    virtual HRESULT GetSource(BSTR* source) = 0;
    virtual HRESULT GetDescription(BSTR* description) = 0;
    virtual HRESULT GetHelpFile(BSTR* helpFile) = 0;
    virtual HRESULT GetHelpContext(DWORD* helpContext) = 0;

protected:
    ~IErrorInfo() = default;
};

/// Owner of a BSTR that its copies share. Copies may be used on several threads.
class _bstr_t
{
public:
    _bstr_t() noexcept = default;

    /// A copy of the text; null gives an empty object. Throws std::bad_alloc when memory is short.
    _bstr_t(wchar_t const* source) : _bstr_t(Checked(SysAllocString(source), source), false) {}

    /// Takes the BSTR over, or copies it. Throws std::bad_alloc when memory is short, and what was to be taken over is
    /// freed then.
    _bstr_t(BSTR source, bool copy) : text(copy ? Checked(CopyOf(source), source) : source, SysFreeString) {}

    /// Null for an empty object.
    operator wchar_t const*() const noexcept { return text.get(); }

    /// Characters without the terminator.
    unsigned length() const noexcept { return SysStringLen(text.get()); }

private:
    static BSTR CopyOf(BSTR source)
    {
        return source != nullptr ? SysAllocStringLen(source, SysStringLen(source)) : nullptr;
    }

    static BSTR Checked(BSTR made, wchar_t const* source)
    {
        if (made == nullptr && source != nullptr)
            throw std::bad_alloc();
        return made;
    }

    std::shared_ptr<wchar_t> text;
};

/// The exception of failed COM calls: an HRESULT and, where the callee gave some, error information. One object may be
/// read on several threads.
class VOK_PLATFORM_EXPORT _com_error
{
public:
    /// Takes over the caller's reference to the information, or with addRef one of its own. Null is allowed.
    _com_error(HRESULT code, IErrorInfo* errorInfo = nullptr, bool addRef = false) noexcept;
    _com_error(_com_error const& other) noexcept;
    _com_error& operator=(_com_error const& other) noexcept;
    virtual ~_com_error();

    HRESULT Error() const noexcept { return code; }

    /// The information, or null. The caller owns a reference to it and releases it.
    IErrorInfo* ErrorInfo() const noexcept;

    /// The system's text of the code without its line end; for a code that has none "IDispatch error #" and a number
    /// (0x80040201 to 0x8004FFFF) or "Unknown error 0x" and the code. Never null; valid as long as the object, and
    /// empty when memory is short. Codes with inserts keep them as they stand.
    wchar_t const* ErrorMessage() const noexcept;

    /// Texts of the error information; empty without any.
    _bstr_t Source() const;
    _bstr_t Description() const;

private:
    HRESULT code;
    IErrorInfo* errorInfo;
    /// Made when it is first asked for.
    mutable std::atomic<wchar_t*> message = nullptr;
};

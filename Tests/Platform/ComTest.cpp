#include <Brindle/Platform/Atl.h>
#include <Brindle/Platform/Com.h>

#include "SystemCalls.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace
{

namespace SystemCalls = Brindle::Vok::Platform::SystemCalls;
using namespace std::string_view_literals;

std::wstring TextOf(GUID const& guid)
{
    wchar_t* text = nullptr;
    EXPECT_EQ(StringFromCLSID(guid, &text), S_OK);
    std::wstring const result = text;
    CoTaskMemFree(text);
    return result;
}

TEST(Identifiers, HaveOneTextForm)
{
    EXPECT_EQ(TextOf({0x12345678, 0xABCD, 0xEF01, {0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x01}}),
              L"{12345678-ABCD-EF01-2345-6789ABCDEF01}");
    EXPECT_EQ(TextOf({}), L"{00000000-0000-0000-0000-000000000000}");
    EXPECT_EQ(StringFromCLSID({}, nullptr), E_INVALIDARG);
}

TEST(Identifiers, AreFreshAndRandom)
{
    std::set<std::wstring> texts;
    for (int i = 0; i < 1000; ++i)
    {
        GUID guid;
        ASSERT_EQ(CoCreateGuid(&guid), S_OK);
        EXPECT_EQ(guid.Data3 >> 12, 4) << "version";
        EXPECT_EQ(guid.Data4[0] >> 6, 2) << "variant";
        texts.insert(TextOf(guid));
    }
    EXPECT_EQ(texts.size(), 1000U);
    EXPECT_EQ(CoCreateGuid(nullptr), E_INVALIDARG);
}

TEST(Identifiers, SurviveShortAndInterruptedReadsOfTheRandomSource)
{
    int calls = 0;
    SystemCalls::Redirection const redirection(SystemCalls::GetRandom,
                                               [&](void* buffer, std::size_t count, unsigned) -> ssize_t
                                               {
                                                   if (++calls % 2 == 1)
                                                   {
                                                       errno = EINTR;
                                                       return -1;
                                                   }
                                                   auto const part = std::min<std::size_t>(count, 5);
                                                   std::memset(buffer, calls, part);
                                                   return static_cast<ssize_t>(part);
                                               });
    GUID guid;
    ASSERT_EQ(CoCreateGuid(&guid), S_OK);
    EXPECT_EQ(calls, 8);
    EXPECT_EQ(TextOf(guid), L"{02020202-0402-4404-8404-060606060608}");
}

TEST(Identifiers, FailWithTheHostsCode)
{
    struct
    {
        ssize_t result;
        int error;
        HRESULT expected;
    } const cases[] = {
        {-1, ENOSYS, static_cast<HRESULT>(0x80070078)},
        {-1, ENOMEM, static_cast<HRESULT>(0x80070008)},
        {0, 0, static_cast<HRESULT>(0x80070026)},
    };
    for (auto const& c : cases)
    {
        SystemCalls::Redirection const redirection(SystemCalls::GetRandom,
                                                   [&](void*, std::size_t, unsigned) -> ssize_t
                                                   {
                                                       errno = c.error;
                                                       return c.result;
                                                   });
        GUID guid{1, 2, 3, {}};
        EXPECT_EQ(CoCreateGuid(&guid), c.expected);
        EXPECT_EQ(guid, (GUID{1, 2, 3, {}})) << "left alone";
    }
}

TEST(Bstrs, KnowTheirLength)
{
    BSTR const text = SysAllocString(L"a\u20AC");
    EXPECT_EQ(SysStringLen(text), 2U);
    EXPECT_STREQ(text, L"a\u20AC");
    SysFreeString(text);
    BSTR const withNul = SysAllocStringLen(L"a\0b", 3);
    EXPECT_EQ(std::wstring_view(withNul, SysStringLen(withNul) + 1), L"a\0b\0"sv);
    SysFreeString(withNul);
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysAllocStringLen(L"", 0xFFFFFFFF), nullptr) << "its bytes don't fit into the length";
    EXPECT_EQ(SysStringLen(nullptr), 0U);
    SysFreeString(nullptr);
}

TEST(Bstrs, AreSharedByTheirOwners)
{
    _bstr_t const empty;
    EXPECT_EQ(static_cast<wchar_t const*>(empty), nullptr);
    EXPECT_EQ(empty.length(), 0U);
    _bstr_t copy;
    {
        _bstr_t const owner(SysAllocString(L"text"), false);
        copy = owner;
    }
    EXPECT_STREQ(copy, L"text");
    BSTR const kept = SysAllocStringLen(L"a\0b", 3);
    EXPECT_EQ(_bstr_t(kept, true).length(), 3U);
    SysFreeString(kept);
}

/// Error information that lives on the stack and counts who holds it.
class Information final : public IErrorInfo
{
public:
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override { return --references; }
    HRESULT GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT GetSource(BSTR* source) override
    {
        *source = SysAllocString(L"the source");
        return S_OK;
    }
    HRESULT GetDescription(BSTR* description) override
    {
        *description = nullptr;
        return E_FAIL;
    }
    HRESULT GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT GetHelpContext(DWORD*) override { return E_NOTIMPL; }

    ULONG references = 1;
};

TEST(ComError, CountsItsReferences)
{
    Information information;
    {
        _com_error const taken(E_FAIL, &information);
        EXPECT_EQ(information.references, 1U);
        _com_error assigned(E_ABORT);
        assigned = taken;
        _com_error const copy(assigned);
        EXPECT_EQ(information.references, 3U);
        copy.ErrorInfo()->Release();
        EXPECT_EQ(information.references, 3U);
        EXPECT_EQ(assigned.Error(), E_FAIL);
        assigned = *&assigned;
        EXPECT_EQ(information.references, 3U);
    }
    EXPECT_EQ(information.references, 0U);
    {
        _com_error const added(E_FAIL, &information, true);
        EXPECT_EQ(information.references, 1U);
    }
    EXPECT_EQ(information.references, 0U);
    EXPECT_EQ(_com_error(E_FAIL).ErrorInfo(), nullptr);
}

TEST(ComError, HasASourceWhereItHasInformation)
{
    Information information;
    _com_error const error(E_FAIL, &information);
    EXPECT_STREQ(error.Source(), L"the source");
    EXPECT_EQ(error.Description().length(), 0U);
    EXPECT_EQ(static_cast<wchar_t const*>(_com_error(E_FAIL).Source()), nullptr);
}

TEST(ComError, HasATextForEveryCode)
{
    struct
    {
        std::uint32_t code;
        std::wstring_view expected;
    } const cases[] = {
        {0, L"The operation was successful."},       {0x80070005, L"Access is denied."},
        {0x800700C1, L"%1 is not a valid program."}, {0x80040200, L"Unknown error 0x80040200"},
        {0x80040201, L"IDispatch error #1"},         {0x80040205, L"IDispatch error #5"},
        {0x8004FFFF, L"IDispatch error #65023"},     {0x80050000, L"Unknown error 0x80050000"},
        {0x00012345, L"Unknown error 0x12345"},      {0xFFFFFFFF, L"Unknown error 0xFFFFFFFF"},
    };
    for (auto const& c : cases)
    {
        _com_error const error(static_cast<HRESULT>(c.code));
        EXPECT_EQ(error.ErrorMessage(), c.expected);
        EXPECT_EQ(error.ErrorMessage(), error.ErrorMessage()) << "it is made once";
        EXPECT_EQ(_com_error(error).ErrorMessage(), c.expected);
    }
}

TEST(AtlStrings, HoldTheirText)
{
    ATL::CStringW const empty(nullptr);
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_STREQ(empty.GetString(), L"");
    ATL::CStringA text("abc");
    EXPECT_EQ(text.GetLength(), 3);
    ATL::CStringA const moved = std::move(text);
    EXPECT_STREQ(moved, "abc");
    ATL::CAtlStringW assigned(L"abcdef", 2);
    EXPECT_STREQ(assigned, L"ab");
    assigned = assigned.GetString() + 1;
    EXPECT_STREQ(assigned, L"b");
    assigned = nullptr;
    EXPECT_TRUE(assigned.IsEmpty());
}

TEST(AtlException, IsItsCode)
{
    EXPECT_EQ(ATL::CAtlException(), E_FAIL);
    EXPECT_EQ(ATL::CAtlException(E_ABORT).m_hr, E_ABORT);
}

} // namespace

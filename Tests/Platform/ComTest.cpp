#include <Brindle/Platform/Atl.h>
#include <Brindle/Platform/Com.h>

#include "Support/ErrorInformation.h"
#include "Support/HostFaults.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace
{

using Brindle::Vok::Testing::ErrorInformation;
using Brindle::Vok::Testing::FailingWith;
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
    auto const haltingRandom = [&](void* buffer, std::size_t count, unsigned) -> ssize_t
    {
        if (++calls % 2 == 1)
            return FailingWith(EINTR)();
        auto const part = std::min<std::size_t>(count, 5);
        std::memset(buffer, calls, part);
        return static_cast<ssize_t>(part);
    };
    SystemCalls::Redirection const redirection(SystemCalls::GetRandom, haltingRandom);
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
    for (auto const& each : cases)
    {
        auto const failingRandom = [&](void*, std::size_t, unsigned) { return errno = each.error, each.result; };
        SystemCalls::Redirection const redirection(SystemCalls::GetRandom, failingRandom);
        GUID guid{1, 2, 3, {}};
        EXPECT_EQ(CoCreateGuid(&guid), each.expected);
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
    EXPECT_EQ(static_cast<wchar_t const*>(_bstr_t()), nullptr);
    _bstr_t copy;
    {
        _bstr_t const owner(SysAllocStringLen(L"a\0b", 3), false);
        copy = owner;
    }
    EXPECT_EQ(std::wstring_view(copy, copy.length()), L"a\0b"sv);
}

TEST(ComError, CountsItsReferences)
{
    ErrorInformation information;
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

TEST(ComError, MakesItsTextOnceForEachObject)
{
    _com_error error(E_ACCESSDENIED);
    EXPECT_STREQ(error.ErrorMessage(), L"Access is denied.");
    EXPECT_EQ(error.ErrorMessage(), error.ErrorMessage());
    _com_error const copy(error);
    error = _com_error(static_cast<HRESULT>(0x80040201));
    EXPECT_STREQ(error.ErrorMessage(), L"IDispatch error #1");
    EXPECT_STREQ(copy.ErrorMessage(), L"Access is denied.");
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

} // namespace

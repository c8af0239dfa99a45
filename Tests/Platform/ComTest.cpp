#include <Brindle/Platform/Com.h>

#include "Support/ErrorInformation.h"
#include "Support/HostFaults.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string_view>

namespace
{

using namespace Brindle::Vok::Testing;

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
    wchar_t* text = nullptr;
    ASSERT_EQ(StringFromCLSID(guid, &text), S_OK);
    EXPECT_STREQ(text, L"{02020202-0402-4404-8404-060606060608}") << "version 4, variant 2, the rest as it came";
    CoTaskMemFree(text);
}

TEST(Identifiers, AreLeftAloneByAFailure)
{
    EXPECT_EQ(CoCreateGuid(nullptr), E_INVALIDARG);
    GUID guid{1, 2, 3, {}};
    SystemCalls::Redirection const failing(SystemCalls::GetRandom, FailingWith(ENOMEM));
    EXPECT_EQ(CoCreateGuid(&guid), static_cast<HRESULT>(0x80070008));
    EXPECT_EQ(guid, (GUID{1, 2, 3, {}}));
}

TEST(Bstrs, KnowTheirLengthAndAreSharedByTheirOwners)
{
    _bstr_t copy;
    {
        _bstr_t const owner(SysAllocStringLen(L"a\0b", 3), false);
        copy = owner;
    }
    EXPECT_EQ(std::wstring_view(copy, copy.length() + 1), std::wstring_view(L"a\0b\0", 4));
    EXPECT_EQ(static_cast<wchar_t const*>(_bstr_t()), nullptr);
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysAllocStringLen(L"", 0xFFFFFFFF), nullptr) << "its bytes don't fit into the length";
    SysFreeString(nullptr);
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
        assigned = *&assigned;
        copy.ErrorInfo()->Release();
        EXPECT_EQ(information.references, 3U);
        EXPECT_EQ(assigned.Error(), E_FAIL);
    }
    EXPECT_EQ(information.references, 0U);
}

TEST(ComError, MakesItsTextOnceForEachObject)
{
    _com_error error(E_ACCESSDENIED);
    EXPECT_EQ(error.ErrorMessage(), error.ErrorMessage());
    _com_error const copy(error);
    error = _com_error(static_cast<HRESULT>(0x80040201));
    EXPECT_STREQ(error.ErrorMessage(), L"IDispatch error #1");
    EXPECT_STREQ(copy.ErrorMessage(), L"Access is denied.");
}

} // namespace

#include "Support/ErrorInformation.h"
#include "Support/StandIn.h"

namespace
{

using namespace Brindle::Vok::Testing;

TEST(Identifiers, AreRandomOnes)
{
    GUID guid;
    EXPECT_EQ(CoCreateGuid(nullptr), E_INVALIDARG);
    ASSERT_EQ(CoCreateGuid(&guid), S_OK);
    EXPECT_EQ(guid.Data3 >> 12, 4) << "the version";
    EXPECT_EQ(guid.Data4[0] >> 6, 2) << "the variant";
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
    EXPECT_EQ(SysAllocStringLen(L"", 0xFFFFFFFF), nullptr) << "its bytes don't fit into the length";
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
        EXPECT_EQ(assigned.Error(), E_FAIL);
    }
    EXPECT_EQ(information.references, 0U);
}

} // namespace

// String conversion, identifiers and handle owners.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Guid.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/String.h>

#include "SystemCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr int noSuchPage = 77777;

} // namespace

TEST(StringConversion, ConvertsBothWays)
{
    struct
    {
        std::string narrow;
        std::wstring wide;
    } const cases[] = {
        {"", L""},
        {"abc", L"abc"},
        {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
        {"\xC3\xA9", L"\u00E9"},
        {"\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
        {std::string(10000, 'x') + "\xE2\x82\xAC", std::wstring(10000, L'x') + L"\u20AC"},
    };
    for (auto const& each : cases)
    {
        EXPECT_EQ(String::StringToWstring(each.narrow, CP_UTF8), each.wide);
        EXPECT_EQ(String::WstringToString(each.wide, CP_UTF8), each.narrow);
        EXPECT_EQ(String::StringToWstring(each.narrow.c_str(), CP_UTF8), std::wstring(each.wide.c_str()));
        EXPECT_EQ(String::WstringToString(each.wide.c_str(), CP_UTF8), std::string(each.narrow.c_str()));
    }
    EXPECT_EQ(String::StringToWstring("\xE9", 1252), L"\u00E9");
    EXPECT_EQ(String::WstringToString(L"\u00E9\u4E00", 1252), "\xE9?");
}

TEST(StringConversion, NothingIsNothingWhateverThePage)
{
    EXPECT_EQ(String::StringToWstring(std::string(), noSuchPage), L"");
    EXPECT_EQ(String::StringToWstring("", noSuchPage), L"");
    EXPECT_EQ(String::StringToWstring(nullptr, noSuchPage), L"");
    EXPECT_EQ(String::WstringToString(std::wstring(), noSuchPage), "");
    EXPECT_EQ(String::WstringToString(static_cast<wchar_t const*>(nullptr), noSuchPage), "");
}

TEST(StringConversion, AnUnknownPageFailsInTheFirstPass)
{
    LogRecorder recorder;
    auto const expect = [&](auto convert, char const* function, char const* text)
    {
        try
        {
            convert();
            ADD_FAILURE() << "nothing thrown";
        }
        catch (WindowsError const& error)
        {
            EXPECT_EQ(error.code().value(), ERROR_INVALID_PARAMETER);
            EXPECT_TRUE(error.Message().starts_with("Source/Vok/String.cpp("));
            EXPECT_TRUE(error.Message().ends_with("(Windows Error 87). " + std::string(text))) << error.Message();
            EXPECT_EQ(recorder.LinesWithFunction().back(),
                      std::string(function) + ": Throwing last error " + error.Message());
        }
    };
    expect([] { String::StringToWstring("x", noSuchPage); }, "Brindle::Vok::String::StringToWstring",
           "MultiByteToWideChar length calculation");
    expect([] { String::WstringToString(L"x", noSuchPage); }, "Brindle::Vok::String::WstringToString",
           "WideCharToMultiByte length calculation");
}

TEST(Guid, HasOneTextForm)
{
    GUID const value{0x12345678, 0xABCD, 0xEF01, {0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x01}};
    EXPECT_EQ(Guid(value).ToString(), L"{12345678-ABCD-EF01-2345-6789ABCDEF01}");
    EXPECT_EQ(Guid().ToString(), L"{00000000-0000-0000-0000-000000000000}");
    EXPECT_EQ(FormatString("{}", Guid(value)), "{12345678-ABCD-EF01-2345-6789ABCDEF01}");
    EXPECT_EQ(FormatStringW(L"{}", Guid(value)), L"{12345678-ABCD-EF01-2345-6789ABCDEF01}");
}

TEST(Guid, NewOnesDiffer)
{
    std::wstring const first = Guid::NewGuid();
    EXPECT_EQ(first.size(), 38U);
    EXPECT_EQ(first[15], L'4'); // random, version 4
    EXPECT_NE(first, Guid::NewGuid());
}

TEST(Guid, AFailureOfThePlatformIsThrown)
{
    using namespace Brindle::Vok::Platform;
    SystemCalls::Redirection const redirect(SystemCalls::GetRandom,
                                            [](void*, size_t, unsigned) -> ssize_t
                                            {
                                                errno = ENOSYS;
                                                return -1;
                                            });
    LogRecorder recorder;
    EXPECT_THROW(Guid::NewGuid(), ComError);
    ASSERT_EQ(recorder.Statements().size(), 1U);
    EXPECT_STREQ(recorder.Statements()[0].function, "Brindle::Vok::Guid::NewGuid");
    EXPECT_STREQ(recorder.Statements()[0].file, "Include/Brindle/Vok/Guid.h");
    EXPECT_TRUE(recorder.Statements()[0].message.ends_with("CoCreateGuid failed"));
}

namespace
{

/// Handles are numbers; 0 is none.
struct RecordingTraits
{
    using Raw = int;
    static constexpr int InvalidValue = 0;
    static void Close(int raw) noexcept { closed.push_back(raw); }
    static inline std::vector<int> closed;
};

using Owner = HandleOwner<RecordingTraits>;

std::vector<int> Closed()
{
    return std::exchange(RecordingTraits::closed, {});
}

} // namespace

TEST(HandleOwner, ClosesWhatItOwnsOnce)
{
    {
        Owner const nothing;
        Owner const invalid(0);
        EXPECT_FALSE(nothing.IsValid());
    }
    EXPECT_THAT(Closed(), IsEmpty());
    {
        Owner first(1);
        Owner second(std::move(first));
        EXPECT_FALSE(first.IsValid());
        EXPECT_EQ(second.Get(), 1);
        Owner third(3);
        third = std::move(second);
        EXPECT_THAT(Closed(), ElementsAre(3));
        Owner& same = third;
        third = std::move(same);
        EXPECT_EQ(third.Get(), 1);
        EXPECT_THAT(Closed(), IsEmpty());
    }
    EXPECT_THAT(Closed(), ElementsAre(1));
}

TEST(HandleOwner, ResetClosesAnotherValueOnly)
{
    Owner owner(1);
    owner.Reset(1);
    EXPECT_THAT(Closed(), IsEmpty());
    owner.Reset(2);
    EXPECT_THAT(Closed(), ElementsAre(1));
    owner.Reset();
    EXPECT_THAT(Closed(), ElementsAre(2));
    EXPECT_FALSE(owner.IsValid());
}

TEST(HandleOwner, TheTraitsSayWhatIsNoHandle)
{
    EXPECT_TRUE(HandleOwner<Detail::InvalidHandleTraits>(nullptr).IsValid());
    EXPECT_FALSE(HandleOwner<Detail::InvalidHandleTraits>(INVALID_HANDLE_VALUE).IsValid());
    EXPECT_TRUE(HandleOwner<Detail::NullHandleTraits>(INVALID_HANDLE_VALUE).IsValid());
    EXPECT_FALSE(HandleOwner<Detail::NullHandleTraits>().IsValid());
    static_assert(sizeof(HandleOwner<Detail::NullHandleTraits>) == sizeof(HANDLE));
    static_assert(!std::is_copy_constructible_v<Owner> && !std::is_copy_assignable_v<Owner>);
}

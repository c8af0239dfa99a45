// Paths hold against their oracle for random texts over an alphabet that is made of what the rules look at.
#include "Support/PathAgreement.h"

#include <gtest/gtest.h>

#include <random>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::PathAgreement;

namespace
{

#ifdef NDEBUG
constexpr int rounds = 1'000'000;
#else
constexpr int rounds = 100'000;
#endif

class RandomText
{
public:
    std::wstring Make(std::size_t maximumLength)
    {
        static std::vector<std::wstring> const parts = {L"a",      L"b",
                                                        L"A",      L"Z",
                                                        L"_",      L".",
                                                        L".",      L"..",
                                                        L"\\",     L"\\",
                                                        L"\\",     L"/",
                                                        L":",      L"?",
                                                        L"U",      L"N",
                                                        L"C",      L"\\..\\",
                                                        L"\\..",   L"..\\",
                                                        L"\\.\\",  L".\\",
                                                        L"C:",     L"C:\\",
                                                        L"[",      std::wstring(1, 0),
                                                        L"\u00C9", L"\xD83D",
                                                        L"\xDE00"};
        static std::vector<std::wstring> const beginnings = {
            L"", L"", L"", L"\\", L"\\\\", L"\\\\?\\", L"\\\\.\\", L"\\\\?\\UNC\\", L"C:", L"C:\\"};
        std::wstring text = beginnings[random() % beginnings.size()];
        std::size_t const length = random() % (maximumLength + 1);
        while (text.size() < length)
            text += parts[random() % parts.size()];
        return text.substr(0, length);
    }

private:
    std::minstd_rand random{20240229};
};

} // namespace

TEST(PathOracle, AgreesForRandomTexts)
{
    RandomText random;
    for (int round = 0; round < rounds; ++round)
    {
        std::wstring const text = random.Make(40);
        std::string const report =
            round % 20 == 0 ? PathAgreement::Check(text, random.Make(12)) : PathAgreement::CheckResults(text);
        ASSERT_EQ(report, "");
    }
}

TEST(PathOracle, AgreesForLongTexts)
{
    RandomText random;
    for (std::size_t const length : {510, 513, 32'768, 40'000})
    {
        std::wstring const piece = random.Make(40) + L"a";
        std::wstring text = L"C:";
        while (text.size() < length)
            text += L"\\" + piece;
        ASSERT_EQ(PathAgreement::Check(text.substr(0, length), L"..\\b"), "") << length;
    }
}

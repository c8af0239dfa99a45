// Paths hold against their oracle for random texts over an alphabet that is made of what the rules look at.
#include "Support/PathAgreement.h"

#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>
#include <string_view>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::PathAgreement;
using namespace std::string_view_literals;

namespace
{

class RandomText
{
public:
    std::wstring Make(std::size_t maximumLength)
    {
        std::wstring text(OneOf(beginnings));
        std::size_t const length = random() % (maximumLength + 1);
        while (text.size() < length)
        {
            if (random() % 4 == 0)
                text += OneOf(pieces);
            else
                text += OneOf(units);
        }
        return text.substr(0, length);
    }

private:
    template <class Choices>
    auto OneOf(Choices const& choices) -> decltype(choices[0])
    {
        return choices[random() % std::size(choices)];
    }

    // What the rules look at, the more often the more they do.
    static constexpr std::wstring_view units = L"aabAZ_UNC[\u00C9\xD83D\xDE00\0.....\\\\\\\\\\//:?"sv;
    static constexpr std::wstring_view pieces[] = {L"..",    L"\\..\\", L"\\..", L"..\\",
                                                   L"\\.\\", L".\\",    L"C:",   L"C:\\"};
    static constexpr std::wstring_view beginnings[] = {
        L"", L"", L"", L"\\", L"\\\\", L"\\\\?\\", L"\\\\.\\", L"\\\\?\\UNC\\", L"\\\\?\\unc\\", L"C:", L"C:\\"};

    std::minstd_rand random{20240229};
};

} // namespace

TEST(PathOracle, AgreesForRandomTextsAndPairs)
{
    RandomText random;
    PathAgreement::Log log;
    for (int round = 0; round < 100'000; ++round)
    {
        std::wstring const a = random.Make(40);
        ASSERT_EQ(PathAgreement::Check(a, random.Make(12), log), "");
    }
}

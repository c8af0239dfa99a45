// UTF-8 to wide text and back, beside ICU, Qt and Boost. Each row makes a fresh string from the same text. Bytes per
// second count the UTF-8 side in both directions. Ours holds a unit in 4 bytes, the peers theirs in 2; Qt is there
// once more with our type at the wide end.
#include <Brindle/Vok/FormatString.h>

#include <QByteArray>
#include <QString>
#include <benchmark/benchmark.h>
#include <boost/locale/encoding_utf.hpp>
#include <unicode/unistr.h>

#include <random>
#include <string>
#include <vector>

namespace
{

struct Kind
{
    char const* name;
    /// Words that the text is made of, in UTF-8.
    std::vector<std::string> words;
};

std::vector<Kind> const& Kinds()
{
    static std::vector<Kind> const kinds = {
        {"Ascii", {"the ", "log ", "file ", "C:\\Program Files\\", "opened ", "0123456789 ", "for ", "writing\n"}},
        {"LatinCyrillic", {"съешь ", "ещё ", "этих ", "мягких ", "булок ", "élève ", "garçon ", "naïve ", "über "}},
        {"Cjk", {"我能吞下玻璃", "而不伤身体", "吾輩は猫である", "名前はまだ無い", "모든 인간은 ", "자유로운"}},
        {"EmojiMix", {"well done ", "😀", "🚀🚀 ", "größe ", "👍 ", "日本 ", "🎉🎊"}},
    };
    return kinds;
}

/// Whole words up to the size, and spaces behind the last one.
std::string MakeText(Kind const& kind, std::size_t size)
{
    std::mt19937 random(1);
    std::string text;
    for (;;)
    {
        auto const& word = kind.words[random() % kind.words.size()];
        if (text.size() + word.size() > size)
            return text.append(size - text.size(), ' ');
        text += word;
    }
}

template <class Convert>
void Measure(benchmark::State& state, std::size_t bytes, Convert convert)
{
    for (auto _ : state)
    {
        auto result = convert();
        benchmark::DoNotOptimize(result);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

template <class Convert>
void Register(std::string const& name, std::size_t bytes, Convert convert)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [bytes, convert](benchmark::State& state) { Measure(state, bytes, convert); });
}

void RegisterToWide(std::string const& row, std::string const& text)
{
    auto const size = text.size();
    auto const length = static_cast<int>(size);
    Register("ToWide/" + row + "/Vok", size, [text] { return Brindle::Vok::Utf8ToWide(text); });
    Register("ToWide/" + row + "/ICU", size,
             [text, length] { return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), length)); });
    Register("ToWide/" + row + "/Qt", size, [text, length] { return QString::fromUtf8(text.data(), length); });
    Register("ToWide/" + row + "/QtToStdWstring", size,
             [text, length] { return QString::fromUtf8(text.data(), length).toStdWString(); });
    Register("ToWide/" + row + "/Boost", size, [text] { return boost::locale::conv::utf_to_utf<char16_t>(text); });
}

void RegisterToUtf8(std::string const& row, std::string const& text)
{
    auto const size = text.size();
    Register("ToUtf8/" + row + "/Vok", size,
             [wide = Brindle::Vok::Utf8ToWide(text)] { return Brindle::Vok::WideToUtf8(wide); });
    Register("ToUtf8/" + row + "/ICU", size,
             [wide = icu::UnicodeString::fromUTF8(text)]
             {
                 std::string result;
                 wide.toUTF8String(result);
                 return result;
             });
    Register("ToUtf8/" + row + "/Qt", size, [wide = QString::fromStdString(text)] { return wide.toUtf8(); });
    Register("ToUtf8/" + row + "/QtFromStdWstring", size,
             [wide = Brindle::Vok::Utf8ToWide(text)] { return QString::fromStdWString(wide).toUtf8(); });
    Register("ToUtf8/" + row + "/Boost", size,
             [wide = boost::locale::conv::utf_to_utf<char16_t>(text)]
             { return boost::locale::conv::utf_to_utf<char>(wide); });
}

[[maybe_unused]] bool const registered = []
{
    struct
    {
        char const* name;
        std::size_t bytes;
    } const sizes[] = {{"64B", 64}, {"4KB", 4096}, {"1MB", 1 << 20}};
    for (auto const& kind : Kinds())
        for (auto const& size : sizes)
        {
            auto const text = MakeText(kind, size.bytes);
            auto const row = std::string(kind.name) + "/" + size.name;
            RegisterToWide(row, text);
            RegisterToUtf8(row, text);
        }
    return true;
}();

} // namespace

// How fmt prints the arguments of FormatArguments.h, and the format that the log and error macros call. FormatString.h
// ends with this header, which needs its functions.
#pragma once

#include <Brindle/Vok/Detail/FormatArguments.h>
#include <Brindle/Vok/FormatString.h>

#include <fmt/ostream.h>

#include <string>
#include <string_view>
#include <type_traits>

namespace Brindle::Vok::Detail
{

/// What the log and error macros call: the form of the literal decides.
template <class... Arguments>
std::string FormatText(char const* format, Arguments const&... arguments)
{
    return FormatString(format, arguments...);
}

template <class... Arguments>
std::string FormatText(wchar_t const* format, Arguments const&... arguments)
{
    return FormatLogMessage(format, arguments...);
}

} // namespace Brindle::Vok::Detail

template <>
struct fmt::formatter<Brindle::Vok::Detail::WideArgument, char> : fmt::formatter<std::string_view, char>
{
    template <class Context>
    auto format(Brindle::Vok::Detail::WideArgument const& argument, Context& context) const
    {
        return fmt::formatter<std::string_view, char>::format(Brindle::Vok::WideToUtf8(argument.text), context);
    }
};

template <>
struct fmt::formatter<Brindle::Vok::Detail::NarrowArgument, wchar_t> : fmt::formatter<std::wstring_view, wchar_t>
{
    template <class Context>
    auto format(Brindle::Vok::Detail::NarrowArgument const& argument, Context& context) const
    {
        std::wstring wide;
        wide.reserve(argument.text.size());
        for (char c : argument.text)
            wide.push_back(static_cast<unsigned char>(c));
        return fmt::formatter<std::wstring_view, wchar_t>::format(wide, context);
    }
};

template <class T, class Char>
struct fmt::formatter<Brindle::Vok::Detail::ForeignArgument<T>, Char>
    : fmt::formatter<std::basic_string_view<Char>, Char>
{
    template <class Context>
    auto format(Brindle::Vok::Detail::ForeignArgument<T> const& argument, Context& context) const
    {
        using Text = fmt::formatter<std::basic_string_view<Char>, Char>;
        if constexpr (!Brindle::Vok::Detail::ForeignString<T>)
            return Text::format(FromWide(Brindle::Vok::Detail::TextOrNull<wchar_t>(argument.value)), context);
        else if constexpr (std::is_same_v<Char, char>)
            return Text::format(Brindle::Vok::Detail::FormatParameter(argument.value), context);
        else
            return Text::format(Brindle::Vok::Detail::FormatParameterW(argument.value), context);
    }

private:
    static auto FromWide(std::wstring_view text)
    {
        if constexpr (std::is_same_v<Char, char>)
            return Brindle::Vok::WideToUtf8(text);
        else
            return text;
    }
};

/// A type that streams only in the other width is converted behind its operator.
template <class T, class Char>
struct fmt::formatter<Brindle::Vok::Detail::StreamedArgument<T>, Char> : fmt::basic_ostream_formatter<Char>
{
    template <class Context>
    auto format(Brindle::Vok::Detail::StreamedArgument<T> const& argument, Context& context) const
    {
        using Stream = fmt::basic_ostream_formatter<Char>;
        using Text = fmt::formatter<fmt::basic_string_view<Char>, Char>;
        if constexpr (Brindle::Vok::Detail::PrintsItself<T, Char>)
            return Stream::format(argument.value, context);
        else if constexpr (std::is_same_v<Char, char>)
            return Text::format(Brindle::Vok::WideToUtf8(fmt::format(L"{}", argument)), context);
        else
            return Text::format(Brindle::Vok::Utf8ToWide(fmt::format("{}", argument)), context);
    }
};

// The scoped name of the function that a statement stands in, made at compile time from the compiler's pretty function
// text. Both compilers give the same name:
//
//     Brindle::Vok::Path::Prefix                                   a member function
//     Brindle::Vok::operator <                                     an operator, with its blank
//     Brindle::Vok::ThreadPoolTimer::Impl::~Impl                   a destructor
//     Brindle::Vok::V2::PathInfoImpl<class Brindle::Vok::V2::IFile>::Load    a member of a class template
//     Brindle::Vok::V2::File::ReadAllText::<lambda_1>::operator ()           a lambda; the number is always 1
//     Brindle::Vok::`anonymous-namespace'::SessionIdFromToken      a function of an unnamed namespace
//
// Arguments of a function template are left out. A conversion to an alias is named as the compiler names its target.
// There is no run-time work: VOK_FUNCTION_NAME is a pointer to one static string for each function.
#pragma once

#include <Brindle/Vok/Detail/RequireCpp20.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

/// The name of the enclosing function as a `char const*` with static lifetime.
#define VOK_FUNCTION_NAME                                                                                              \
    (::Brindle::Vok::Detail::functionName<::Brindle::Vok::Detail::PrettyFunction{__PRETTY_FUNCTION__}>.data())

namespace Brindle::Vok::Detail
{

/// A compiler's pretty function text as a template argument. A longer text is cut.
struct PrettyFunction
{
    consteval PrettyFunction(char const* source)
    {
        for (std::size_t i = 0; i + 1 < std::size(text) && source[i] != 0; ++i)
            text[i] = source[i];
    }
    constexpr std::string_view View() const { return text; }

    char text[2048] = {};
};

/// Turns one pretty function text into a scoped name. It is used by the compiler alone.
class FunctionNameParser
{
public:
    static constexpr std::size_t maximumLength = 767;
    static constexpr std::string_view unnamedNamespace = "`anonymous-namespace'";

    explicit constexpr FunctionNameParser(std::string_view pretty)
        : text(WithoutTemplateClause(pretty)), clause(pretty.substr(text.size()))
    {
        SkipToName();
        while (position < text.size())
            ReadComponent();
    }

    constexpr std::string_view Name() const { return {name, length}; }

private:
    static constexpr bool IsIdentifier(char c)
    {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$';
    }

    static constexpr std::string_view Trimmed(std::string_view part)
    {
        while (part.starts_with(' '))
            part.remove_prefix(1);
        while (part.ends_with(' '))
            part.remove_suffix(1);
        return part;
    }

    /// Without " [with T = X]" (GCC) or " [T = X]" (Clang) at its end.
    static constexpr std::string_view WithoutTemplateClause(std::string_view pretty)
    {
        if (!pretty.ends_with(']'))
            return pretty;
        std::size_t depth = 0;
        for (std::size_t i = pretty.size(); i-- > 0;)
        {
            if (pretty[i] == ']')
                ++depth;
            else if (pretty[i] == '[' && --depth == 0)
                return i > 0 && pretty[i - 1] == ' ' ? pretty.substr(0, i - 1) : pretty;
        }
        return pretty;
    }

    constexpr bool At(std::string_view word) const { return text.substr(position).starts_with(word); }

    constexpr void Append(std::string_view part)
    {
        for (char c : part)
        {
            if (length < maximumLength)
                name[length++] = c;
        }
    }

    static constexpr bool IsOpening(char c) { return c == '(' || c == '<' || c == '[' || c == '{'; }

    /// The position behind the bracket that closes the one at `from`, all kinds of brackets counted as one.
    static constexpr std::size_t BehindBracket(std::string_view source, std::size_t from)
    {
        std::size_t depth = 0;
        for (std::size_t i = from; i < source.size(); ++i)
        {
            char const c = source[i];
            bool const isArrow = c == '>' && i > 0 && source[i - 1] == '-';
            if (IsOpening(c))
                ++depth;
            else if ((c == ')' || (c == '>' && !isArrow) || c == ']' || c == '}') && --depth == 0)
                return i + 1;
        }
        return source.size();
    }

    constexpr bool AtAnonymous() const
    {
        return At("(anonymous ") || At("{anonymous}") || At("<lambda(") || At("'lambda");
    }

    constexpr bool AtOperator(std::size_t at) const
    {
        constexpr std::string_view word = "operator";
        return text.substr(at).starts_with(word) && (at == 0 || !IsIdentifier(text[at - 1])) &&
               at + word.size() < text.size() && !IsIdentifier(text[at + word.size()]);
    }

    /// Passes over specifiers and the return type: the name begins behind the last blank, `*` or `&` before the
    /// parameter list.
    constexpr void SkipToName()
    {
        std::size_t start = 0;
        for (position = 0; position < text.size();)
        {
            char const c = text[position];
            if (AtOperator(position))
                break;
            if (AtAnonymous())
                position = BehindBracket(text, position);
            else if (c == '(' && text.substr(start, position - start) == "decltype")
                position = BehindBracket(text, position);
            else if (c == '(' && position > start)
                break; // the parameter list
            else if (c == '(' && (At("(*") || At("(&")))
                start = ++position; // a returned function pointer is written around the name
            else if (c == '(' || c == '<')
                position = BehindBracket(text, position);
            else if (++position; c == ' ' || c == '*' || c == '&')
                start = position;
        }
        position = start;
    }

    constexpr void ReadComponent()
    {
        if (At("::"))
        {
            position += 2;
            if (length > 0)
                Append("::");
        }
        else if (At("<lambda("))
        {
            position = BehindBracket(text, position);
            Append("<lambda_1>::operator ()");
            SkipToNextScope();
        }
        else if (At("(anonymous class)") || At("'lambda"))
        {
            position = text.find("::", position);
            Append("<lambda_1>");
        }
        else if (At("(anonymous namespace)") || At("{anonymous}"))
        {
            position = BehindBracket(text, position);
            Append(unnamedNamespace);
        }
        else if (AtOperator(position))
            ReadOperator();
        else if (At("("))
        {
            position = BehindBracket(text, position);
            SkipToNextScope();
        }
        else if (At("<"))
            ReadTemplateArguments();
        else if (IsIdentifier(text[position]) || At("~"))
            Append(text.substr(position++, 1));
        else
            position = text.size();
    }

    /// Passes over what stands behind a parameter list (const, noexcept, the rest of a returned function pointer).
    constexpr void SkipToNextScope()
    {
        std::size_t at = position;
        while (at < text.size() && (text[at] == ' ' || text[at] == '&' || IsIdentifier(text[at])))
            ++at;
        position = text.substr(at).starts_with("::") ? at : text.size();
    }

    constexpr void ReadOperator()
    {
        constexpr std::string_view word = "operator";
        std::size_t const begin = position + word.size();
        std::size_t end = begin;
        if (text.substr(begin).starts_with("()") || text.substr(begin).starts_with("[]"))
            end += 2;
        else
        {
            while (end < text.size() && text[end] != '(')
                ++end;
        }
        Append("operator ");
        Append(Trimmed(text.substr(begin, end - begin)));
        position = end;
    }

    /// Template arguments of a scope stand in the name; those of the function itself, in front of its parameters,
    /// don't.
    constexpr void ReadTemplateArguments()
    {
        std::size_t const end = BehindBracket(text, position);
        std::string_view const arguments = text.substr(position + 1, end - position - 2);
        position = end;
        if (At("::"))
            AppendArguments(arguments);
    }

    constexpr void AppendArguments(std::string_view arguments)
    {
        Append("<");
        AppendEach(arguments);
        Append(">");
    }

    /// The arguments of a list, each behind a comma but for the first. A parameter pack is a list in braces.
    constexpr void AppendEach(std::string_view arguments)
    {
        while (!arguments.empty())
        {
            std::size_t end = 0;
            while (end < arguments.size() && arguments[end] != ',')
                end = IsOpening(arguments[end]) ? BehindBracket(arguments, end) : end + 1;
            std::string_view const argument = Bound(Trimmed(arguments.substr(0, end)));
            if (argument.starts_with('{'))
                AppendEach(argument.substr(1, argument.size() - 2));
            else if (!argument.empty())
            {
                if (name[length - 1] != '<')
                    Append(",");
                AppendArgument(Plain(argument));
            }
            arguments.remove_prefix(std::min(end + 1, arguments.size()));
        }
    }

    /// What the clause of the pretty text binds a template parameter to; anything else stands for itself.
    constexpr std::string_view Bound(std::string_view argument) const
    {
        if (argument.ends_with("..."))
            argument = Trimmed(argument.substr(0, argument.size() - 3));
        if (argument.empty() || argument[0] == '-' || (argument[0] >= '0' && argument[0] <= '9'))
            return argument; // a number binds nothing, though `auto:1` may stand in the clause
        // Searched by hand: under the undefined behaviour sanitizer one compiler can't evaluate the library's search.
        for (std::size_t at = 1; at < clause.size(); ++at)
        {
            if (!clause.substr(at).starts_with(argument) || IsIdentifier(clause[at - 1]))
                continue;
            std::string_view const rest = clause.substr(at + argument.size());
            if (!rest.starts_with(" = "))
                continue;
            std::string_view const value = rest.substr(3);
            std::size_t end = 0;
            while (end < value.size() && value[end] != ';' && value[end] != ',' && value[end] != ']')
                end = IsOpening(value[end]) ? BehindBracket(value, end) : end + 1;
            return Trimmed(value.substr(0, end));
        }
        return argument;
    }

    /// The usual spelling of an integer type that one compiler spells out.
    static constexpr std::string_view Plain(std::string_view type)
    {
        constexpr std::string_view spellings[][2] = {
            {"short int", "short"},         {"short unsigned int", "unsigned short"},
            {"long int", "long"},           {"long unsigned int", "unsigned long"},
            {"long long int", "long long"}, {"long long unsigned int", "unsigned long long"}};
        for (auto const& [spelledOut, usual] : spellings)
        {
            if (type == spelledOut)
                return usual;
        }
        return type;
    }

    constexpr void AppendArgument(std::string_view argument)
    {
        for (std::string_view const qualifier : {std::string_view("const "), std::string_view("volatile ")})
        {
            if (argument.starts_with(qualifier))
            {
                Append(qualifier);
                argument.remove_prefix(qualifier.size());
            }
        }
        if (NamesClass(argument))
            Append("class ");
        for (std::size_t i = 0; i < argument.size();)
        {
            constexpr std::string_view inlineNamespace = "__cxx11::";
            std::string_view const rest = argument.substr(i);
            if (rest.starts_with(inlineNamespace))
                i += inlineNamespace.size();
            else if (rest.starts_with("(anonymous ") || rest.starts_with("{anonymous}"))
            {
                Append(unnamedNamespace);
                i = BehindBracket(argument, i);
            }
            else if (argument[i] == '<')
            {
                std::size_t const end = BehindBracket(argument, i);
                AppendArguments(argument.substr(i + 1, end - i - 2));
                i = end;
            }
            else if (argument[i] == ' ' && i + 1 < argument.size() && !IsIdentifier(argument[i + 1]))
                ++i; // one compiler writes `T *` where the other writes `T*`
            else
                Append(argument.substr(i++, 1));
        }
    }

    static constexpr bool NamesClass(std::string_view type)
    {
        std::size_t end = 0;
        while (end < type.size() && IsIdentifier(type[end]))
            ++end;
        std::string_view const word = type.substr(0, end);
        if (word.empty() || (word.front() >= '0' && word.front() <= '9'))
            return false;
        constexpr std::string_view plain[] = {
            "bool",  "char",   "char8_t", "char16_t", "char32_t", "double",  "false",   "float", "int",    "long",
            "short", "signed", "true",    "unsigned", "void",     "wchar_t", "nullptr", "class", "struct", "enum"};
        return std::find(std::begin(plain), std::end(plain), word) == std::end(plain);
    }

    std::string_view text;
    std::string_view clause;
    std::size_t position = 0;
    char name[maximumLength + 1] = {};
    std::size_t length = 0;
};

template <PrettyFunction pretty>
[[gnu::visibility("hidden")]] inline constexpr auto functionName = []
{
    constexpr FunctionNameParser parser(pretty.View());
    std::array<char, parser.Name().size() + 1> result{};
    std::copy_n(parser.Name().data(), parser.Name().size(), result.data());
    return result;
}();

} // namespace Brindle::Vok::Detail

#include <Brindle/Vok/Error.h>

#include <charconv>
#include <iterator>
#include <string_view>

namespace Brindle::Vok
{
namespace
{

constexpr DWORD systemTextFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;

constexpr std::string_view unknownCode = "Unknown Error Code.";

DWORD FormatMessageOf(DWORD code, char** text)
{
    return FormatMessageA(systemTextFlags, nullptr, code, 0, reinterpret_cast<char*>(text), 0, nullptr);
}

DWORD FormatMessageOf(DWORD code, wchar_t** text)
{
    return FormatMessageW(systemTextFlags, nullptr, code, 0, reinterpret_cast<wchar_t*>(text), 0, nullptr);
}

/// The system's text of a Win32 code, in the buffer that the platform allocated for it.
template <class Char>
class SystemText
{
public:
    explicit SystemText(unsigned long code)
    {
        if (FormatMessageOf(static_cast<DWORD>(code), &text) == 0)
            text = nullptr;
    }
    SystemText(SystemText const&) = delete;
    SystemText& operator=(SystemText const&) = delete;
    ~SystemText() { LocalFree(text); }

    bool IsKnown() const { return text != nullptr; }

    /// Up to the first carriage return.
    std::basic_string_view<Char> FirstLine() const
    {
        std::basic_string_view<Char> const all(text);
        return all.substr(0, all.find(static_cast<Char>('\r')));
    }

private:
    Char* text = nullptr;
};

template <class Number>
void AppendNumber(std::string& target, Number number, int base)
{
    char digits[24];
    char* const end = std::to_chars(std::begin(digits), std::end(digits), number, base).ptr;
    for (char* digit = digits; digit != end; ++digit)
    {
        if (*digit >= 'a' && *digit <= 'f')
            *digit = static_cast<char>(*digit - 'a' + 'A');
    }
    target.append(digits, end);
}

/// "file(line): function ", system text, code, caller's text. Plain appending gives to the letter what the formats
/// "{}({}): {} " and "{} (Windows Error {})." give, and it cannot fail but for memory.
template <class Number>
std::string Compose(char const* file, int line, char const* function, std::string_view systemText,
                    std::string_view codeName, Number code, int base, std::string const& text)
{
    constexpr std::size_t punctuationAndNumbers = 48;
    bool const hasLocation = file != nullptr && function != nullptr;
    std::string_view const fileText = hasLocation ? file : "";
    std::string_view const functionText = hasLocation ? function : "";

    std::string message;
    message.reserve(fileText.size() + functionText.size() + systemText.size() + codeName.size() + text.size() +
                    punctuationAndNumbers);
    if (hasLocation)
    {
        message.append(fileText).append("(");
        AppendNumber(message, line, 10);
        message.append("): ").append(functionText).append(" ");
    }
    message.append(systemText).append(" (").append(codeName).append(" ");
    AppendNumber(message, code, base);
    message.append(").");
    if (!text.empty())
        message.append(" ").append(text);
    return message;
}

} // namespace

std::wstring WindowsErrorToString(unsigned long code)
{
    SystemText<wchar_t> const text(code);
    return text.IsKnown() ? std::wstring(text.FirstLine()) : Utf8ToWide(unknownCode);
}

std::string WindowsErrorToStringA(unsigned long code)
{
    SystemText<char> const text(code);
    return std::string(text.IsKnown() ? text.FirstLine() : unknownCode);
}

std::wstring HresultToString(long code)
{
    return _com_error(static_cast<HRESULT>(code)).ErrorMessage();
}

std::string HresultToStringA(long code)
{
    return WideToUtf8(_com_error(static_cast<HRESULT>(code)).ErrorMessage());
}

namespace Detail
{

/// Never destroyed: error objects are compared and copied in static destruction too.
union ComErrorCategory::Storage
{
    constexpr Storage() : category() {}
    ~Storage() {}
    ComErrorCategory category;
};

ComErrorCategory const& ComErrorCategory::Instance() noexcept
{
    static constinit Storage storage;
    return storage.category;
}

char const* ComErrorCategory::name() const noexcept
{
    return "VokCom";
}

std::string ComErrorCategory::message(int code) const
{
    return HresultToStringA(code);
}

std::error_condition ComErrorCategory::default_error_condition(int code) const noexcept
{
    return {code, *this};
}

std::system_error const& Success()
{
    static std::system_error const& success = *new std::system_error(0, std::system_category());
    return success;
}

int ConvertCode(int code, std::error_category const& from, std::error_category const& to) noexcept
{
    auto const bits = static_cast<std::uint32_t>(code);
    std::error_category const& com = ComErrorCategory::Instance();
    if (from == std::system_category() && to == com)
        return code > 0 ? static_cast<int>(0x80070000U | (bits & 0xFFFFU)) : code;
    if (from == com && to == std::system_category())
    {
        if (bits >> 16 == 0x8007U)
            return static_cast<int>(bits & 0xFFFFU);
        if (code == E_FAIL)
            return ERROR_FUNCTION_FAILED;
    }
    return code;
}

std::string ComposeWindowsMessage(unsigned long code, char const* file, int line, char const* function,
                                  std::string const& text)
{
    SystemText<char> const systemText(code);
    return Compose(file, line, function, systemText.IsKnown() ? systemText.FirstLine() : unknownCode, "Windows Error",
                   static_cast<std::uint32_t>(code), 10, text);
}

std::string ComposeComMessage(long code, char const* file, int line, char const* function, std::string const& text)
{
    // The sign stays: E_FAIL is -7FFFBFFB.
    return Compose(file, line, function, HresultToStringA(code), "Com Error", static_cast<std::int32_t>(code), 16,
                   text);
}

void LogNotice(char const* notice, Location const& location, Error const& error)
{
    if (IsWanted(VokLogSeverity::error))
        Log(false, VokLogSeverity::error, location.file, location.function, location.line, notice + error.Message());
}

} // namespace Detail
} // namespace Brindle::Vok

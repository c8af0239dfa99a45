// Reads any bytes as a text file and holds the text against the mark's rules; what was read is written and comes back.
#include "Input.h"

#include "Utf.h"

#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/String.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

using namespace Brindle::Vok;

namespace
{

std::unique_ptr<V2::IFile> MakeFile()
{
    std::string pattern = std::filesystem::temp_directory_path() / "VokFuzz.XXXXXX";
    int const descriptor = ::mkstemp(pattern.data());
    Require(descriptor >= 0, "No file");
    ::close(descriptor);
    static struct Remover
    {
        ~Remover() { ::unlink(path.c_str()); }
        std::string path;
    } const remover{pattern};
    return V2::MakeFileSystem()->MakeFile(std::wstring(pattern.begin(), pattern.end()));
}

std::wstring WideOfUnits(std::string_view bytes)
{
    std::wstring text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text +=
            static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    return text;
}

std::wstring WideOfUtf8(std::string_view bytes)
{
    std::wstring text;
    while (!bytes.empty())
    {
        auto const character = Platform::Utf::DecodeUtf8(bytes.data(), bytes.size());
        wchar_t units[2];
        text.append(units, Platform::Utf::EncodeWide(character.codePoint, units));
        bytes.remove_prefix(character.consumed);
    }
    return text;
}

/// Up to the first zero byte, as is required.
std::wstring ExpectedText(std::string_view bytes)
{
    if (bytes.starts_with("\xEF\xBB\xBF"))
        return WideOfUtf8(bytes.substr(3, bytes.substr(3).find('\0')));
    return WideOfUnits(bytes.starts_with("\xFF\xFE") ? bytes.substr(2) : bytes);
}

template <class String>
void Replace(String& text, String const& from, String const& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != String::npos; at += to.size())
        text.replace(at, from.size(), to);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static std::unique_ptr<V2::IFile> const file = MakeFile();
    std::vector<unsigned char> const bytes(data, data + size);
    file->WriteAllBytes(bytes);
    Require(file->ReadAllBytes() == bytes, "Other bytes");
    std::wstring const text = file->ReadAllText();
    Require(text == ExpectedText({reinterpret_cast<char const*>(data), size}), "Another text");
    std::string narrow = file->ReadAllTextA();

    file->WriteAllText(text, TextEncoding::Utf16, ByteOrderMarkPolicy::Write, LineEndingPolicy::Unchanged);
    Require(file->ReadAllText() == text, "Not the text that was written");
    file->WriteAllText(narrow, TextEncoding::Utf8, ByteOrderMarkPolicy::Write, LineEndingPolicy::Windows);
    Replace<std::string>(narrow, "\r\n", "\n");
    Replace<std::string>(narrow, "\r", "\n");
    Replace<std::string>(narrow, "\n", "\r\n");
    Require(file->ReadAllTextA() == narrow, "Not the lines that were written");
    return 0;
}

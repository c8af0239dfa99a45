// The rules of paths, transcribed step by step with no regard for speed: what Path must agree with for every text.
// Statements that Path would log are added to the list that an oracle is made with, as "function: message".
#pragma once

#include <Brindle/Vok/Path.h>

#include <cwctype>
#include <string>
#include <utility>
#include <vector>

namespace Brindle::Vok::Testing
{

class PathOracle
{
public:
    static constexpr std::size_t missing = std::wstring::npos;

    struct SplitResult
    {
        std::wstring remainder;
        PathPrefix prefix = PathPrefix::none;
        bool rooted = false;
        std::wstring driveWithColon;
        std::wstring directory;
        std::wstring name;
        std::wstring extensionWithDot;
        std::wstring server;
        std::wstring share;

        std::wstring DriveAndDirectory() const { return driveWithColon + (rooted ? L"\\" : L"") + directory; }
        std::wstring NameWithExtension() const { return name + extensionWithDot; }
        std::wstring NameWithoutExtension() const
        {
            std::wstring const whole = NameWithExtension();
            return whole.find(L'.') == missing ? whole : whole.substr(0, whole.rfind(L'.'));
        }
    };

    PathOracle(std::wstring text, std::vector<std::string>& log) : text(std::move(text)), log(log) {}

    PathPrefix Prefix() const
    {
        if (text.starts_with(L"\\\\?\\UNC\\"))
            return PathPrefix::extendedLengthUnc;
        if (text.starts_with(L"\\\\?\\"))
            return PathPrefix::extendedLength;
        if (text.starts_with(L"\\\\.\\"))
        {
            std::string const line = "Brindle::Vok::Path::Prefix: Device path not supported [" + WideToUtf8(text) + "]";
            log.emplace_back(line.c_str()); // a format's result ends at its first NUL
            return PathPrefix::extendedLength;
        }
        if (text.starts_with(L"\\\\"))
            return PathPrefix::unc;
        return PathPrefix::none;
    }

    bool IsUnc() const
    {
        PathPrefix const prefix = Prefix();
        return prefix == PathPrefix::unc || prefix == PathPrefix::extendedLengthUnc;
    }
    bool IsExtendedLength() const
    {
        PathPrefix const prefix = Prefix();
        return prefix == PathPrefix::extendedLength || prefix == PathPrefix::extendedLengthUnc;
    }

    static std::wstring PrefixText(PathPrefix prefix)
    {
        wchar_t const* const texts[] = {L"", L"\\\\", L"\\\\?\\", L"\\\\?\\UNC\\"};
        return texts[static_cast<int>(prefix)];
    }

    bool IsRelative() const
    {
        if (text.length() >= 2 && text[0] == L'\\' && text[1] == L'\\')
            return false;
        if (text.length() >= 3 && text[1] == L':' && text[2] == L'\\')
            return false;
        if (text.length() < 2)
            return true;
        return text[0] != L'\\';
    }

    SplitResult Split(bool normalize) const
    {
        SplitResult result;
        result.prefix = Prefix();
        result.remainder = text.substr(PrefixText(Prefix()).length());
        if (normalize && (result.prefix == PathPrefix::none || result.prefix == PathPrefix::unc))
            NormalizeNonExtendedLengthPath(result.remainder);
        std::wstring const& remainder = result.remainder;
        std::size_t p = SplitRoot(result);

        std::size_t const s = remainder.rfind(L'\\');
        if (s != missing && p < s)
        {
            result.directory = remainder.substr(p, s - p);
            p = s + 1;
        }
        std::size_t const d = remainder.rfind(L'.');
        if (d != missing && p <= d)
        {
            result.name = remainder.substr(p, d - p);
            result.extensionWithDot = remainder.substr(d);
        }
        else
            result.name = remainder.substr(p);
        return result;
    }

    bool HasExtension() const
    {
        if (text.empty() || text.find(L'.') == missing)
            return false;
        if (text.rfind(L'.') == text.length() - 1)
            return false;
        if (text.find(L'\\') == missing)
            return true;
        return text.rfind(L'.') > text.rfind(L'\\');
    }

    std::wstring WithChangedExtension(std::wstring const& extension) const
    {
        std::size_t const length = Split(true).extensionWithDot.length();
        std::wstring copy = text;
        std::wstring const newText = !extension.empty() && extension[0] != L'.' ? L"." + extension : extension;
        return copy.replace(copy.length() - length, length, newText);
    }

    std::wstring Normalized() const
    {
        SplitResult const split = Split(true);
        return PrefixText(split.prefix) + split.remainder;
    }

    static void NormalizeNonExtendedLengthPath(std::wstring& text)
    {
        // 1. Every `/` becomes a `\`.
        for (wchar_t& unit : text)
        {
            if (unit == L'/')
                unit = L'\\';
        }
        // 2. Doubled separators become single ones, until there are none.
        while (ReplaceInOnePass(text, L"\\\\"))
        {
        }
        // 3. `\.\` becomes `\` in one pass, which goes on behind that `\`: in `\.\.\` the second `.` stays.
        ReplaceInOnePass(text, L"\\.\\");
        // 4. From the left, each `\..\` goes with the component before it, if that can go.
        std::size_t pos = text.find(L"\\..\\");
        while (pos != missing)
        {
            if (!CollapseParent(text, pos, L"\\..\\"))
                pos += 4;
            pos = text.find(L"\\..\\", pos);
        }
        // 5. So does one `\..` at the end.
        if (text.length() >= 3 && text.ends_with(L"\\.."))
        {
            pos = text.length() - 3;
            CollapseParent(text, pos, L"\\..");
        }
    }

    static std::wstring Join(std::wstring const& a, std::wstring const& b)
    {
        if (a.empty())
            return b;
        if (b.empty())
            return a;
        if (a.back() == L'\\' && b[0] != L'\\')
            return a + b;
        if (a.back() == L'\\' && b[0] == L'\\')
            return a + b.substr(1);
        if (a.back() != L'\\' && b[0] == L'\\')
            return a + b;
        return a + L"\\" + b;
    }

    static std::wstring Merge(PathOracle const& a, PathOracle const& b)
    {
        std::wstring t = b.text;
        if (!(a.Prefix() == PathPrefix::none || a.Prefix() == PathPrefix::extendedLength))
            a.LogInMerge("Assertion failed: aPath.Prefix() == PathPrefix::none || "
                         "aPath.Prefix() == PathPrefix::extendedLength");
        if (!(b.Prefix() == PathPrefix::none))
            a.LogInMerge("Assertion failed: bPath.Prefix() == PathPrefix::none");
        if (a.text.empty())
            return t;
        if (t.empty())
            return a.text;
        bool const hasDrive = t.length() >= 2 && t[1] == L':';
        if (b.IsRelative())
            return a.MergeRelative(t, hasDrive);
        if (b.Prefix() != PathPrefix::none || hasDrive)
            return t;
        std::wstring const drive = a.Split(true).driveWithColon;
        return drive.empty() ? t : drive + t;
    }

    /// As _wcsicmp: below, equal or above 0.
    static int Compare(std::wstring const& a, std::wstring const& b)
    {
        for (std::size_t i = 0;; ++i)
        {
            auto const x = static_cast<unsigned>(Lower(a.c_str()[i]));
            auto const y = static_cast<unsigned>(Lower(b.c_str()[i]));
            if (x != y)
                return x < y ? -1 : 1;
            if (x == 0)
                return 0;
        }
    }

    static bool Equal(PathOracle const& lhs, PathOracle const& rhs)
    {
        AssertSamePrefix(lhs, rhs, "operator ==");
        SplitResult const left = lhs.Split(true);
        return Compare(left.remainder, rhs.Split(true).remainder) == 0;
    }
    static bool Less(PathOracle const& lhs, PathOracle const& rhs)
    {
        AssertSamePrefix(lhs, rhs, "operator <");
        return Compare(lhs.text, rhs.text) < 0;
    }
    static bool Greater(PathOracle const& lhs, PathOracle const& rhs)
    {
        AssertSamePrefix(lhs, rhs, "operator >");
        return Compare(lhs.text, rhs.text) > 0;
    }

    std::wstring text;

private:
    static std::size_t SplitRoot(SplitResult& result)
    {
        std::wstring const& remainder = result.remainder;
        std::size_t p = 0;
        if (result.prefix == PathPrefix::none || result.prefix == PathPrefix::extendedLength)
        {
            if (remainder.length() >= 2 && remainder[1] == L':')
            {
                result.driveWithColon = remainder.substr(0, 2);
                p = 2;
            }
            if (p < remainder.length() && remainder[p] == L'\\')
            {
                result.rooted = true;
                ++p;
            }
            return p;
        }
        result.rooted = true;
        std::size_t const first = remainder.find(L'\\');
        if (first == missing)
        {
            result.server = remainder;
            return remainder.length();
        }
        result.server = remainder.substr(0, first);
        std::size_t const second = remainder.find(L'\\', first + 1);
        if (second == missing)
        {
            result.share = remainder.substr(first + 1);
            return remainder.length();
        }
        result.share = remainder.substr(first + 1, second - first - 1);
        return second + 1;
    }

    static bool ReplaceInOnePass(std::wstring& text, std::wstring const& pattern)
    {
        bool changed = false;
        std::size_t pos = text.find(pattern);
        while (pos != missing)
        {
            text.replace(pos, pattern.length(), L"\\");
            changed = true;
            pos = text.find(pattern, pos + 1);
        }
        return changed;
    }

    static bool CollapseParent(std::wstring& text, std::size_t& pos, std::wstring const& pattern)
    {
        if (pos == 0)
            return false;
        std::size_t anchor = text.rfind(L'\\', pos - 1);
        if (anchor == missing && pos >= 2)
            anchor = text.rfind(L':', pos - 2);
        if (anchor != missing)
        {
            if (text.find(pattern, anchor) == anchor)
                return false;
            text.erase(anchor + 1, pos + pattern.length() - (anchor + 1));
            pos = anchor;
            return true;
        }
        if (text[1] == L':')
            return false;
        if (text.length() >= 6 && text.find(L"..\\..\\") == 0)
            return false;
        text.erase(0, pos + pattern.length());
        pos = 0;
        return true;
    }

    std::wstring MergeRelative(std::wstring t, bool hasDrive) const
    {
        if (hasDrive)
        {
            if (!(t.length() <= 2 || t[2] != L'\\'))
                LogInMerge("Assertion failed: b.length() <= 2 || b[2] != L'\\\\'");
            t.erase(0, 2);
        }
        char const* const slashMessage = "This shouldn't happen as if b starts with a slash it is not a relative path";
        bool const beginsWithSlash = !t.empty() && t[0] == L'\\';
        if (beginsWithSlash)
            LogInMerge(slashMessage);
        if (text.back() == L'\\')
            return text + (beginsWithSlash ? t.substr(1) : t);
        return beginsWithSlash ? text + t : text + L"\\" + t;
    }

    static wchar_t Lower(wchar_t unit)
    {
        if (unit >= 0x80)
            return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(unit)));
        return unit >= L'A' && unit <= L'Z' ? unit + 32 : unit;
    }

    void LogInMerge(std::string const& message) const
    {
        log.push_back("Brindle::Vok::Path::MergeInternal: " + message);
    }

    static void AssertSamePrefix(PathOracle const& lhs, PathOracle const& rhs, std::string const& function)
    {
        PathPrefix const left = lhs.Prefix();
        if (left != rhs.Prefix())
            lhs.log.push_back("Brindle::Vok::" + function + ": Assertion failed: lhs.Prefix() == rhs.Prefix()");
    }

    std::vector<std::string>& log;
};

} // namespace Brindle::Vok::Testing

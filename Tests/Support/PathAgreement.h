// Holds Path against its oracle for two texts: every operation, and every statement that each of them logs.
#pragma once

#include "PathOracle.h"

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/Path.h>

#include "Vok/PathNormalization.h"

#include <string>
#include <vector>

namespace Brindle::Vok::Testing
{

class PathAgreement
{
public:
    /// Gets what paths log while it lives. Making one is slow compared to a check.
    class Log
    {
    public:
        std::vector<std::string> lines;

    private:
        SubscriptionForLogCallbacks subscription{
            [this](LogStatement const& statement)
            { lines.push_back(std::string(statement.function) + ": " + statement.message); },
            VokLogSeverity::error};
    };

    /// What did not agree for any operation or logged statement, in words; empty if everything did.
    static std::string Check(std::wstring const& a, std::wstring const& b, Log& log)
    {
        PathAgreement agreement(a, b, log);
        agreement.CheckPieces();
        agreement.CheckRewriting();
        agreement.CheckTwo();
        agreement.CheckComparison();
        return agreement.report;
    }

private:
    PathAgreement(std::wstring const& a, std::wstring const& b, Log& log)
        : a(a), b(b), oracle(a, expectedLog), oracleB(b, expectedLog), log(log)
    {
    }

    void CheckPieces()
    {
        Expect("Prefix", a.Prefix(), oracle.Prefix());
        Expect("PrefixText", a.PrefixText(), oracle.PrefixText(oracle.Prefix()));
        Expect("IsUnc", a.IsUnc(), oracle.IsUnc());
        Expect("IsExtendedLength", a.IsExtendedLength(), oracle.IsExtendedLength());
        Expect("IsRelative", a.IsRelative(), oracle.IsRelative());
        Expect("HasExtension", a.HasExtension(), oracle.HasExtension());
        // The oracle splits once for all pieces, so the log of one is what each of them must log.
        PathOracle::SplitResult const plain = oracle.Split(false);
        std::vector<std::string> const logged = expectedLog;
        auto const expect = [&](char const* what, std::wstring const& actual, std::wstring const& expected)
        { Expect(what, actual, expected, logged); };
        PathOracle::SplitResult const normal = oracle.Split(true);
        expect("Directory", a.Directory(), plain.directory);
        expect("DriveAndDirectory", a.DriveAndDirectory(), plain.DriveAndDirectory());
        expect("Parent", a.Parent().ToString(), plain.DriveAndDirectory());
        expect("DriveWithColon", a.DriveWithColon(), normal.driveWithColon);
        expect("Server", a.Server(), normal.server);
        expect("Share", a.Share(), normal.share);
        expect("DirectoryNormalized", a.DirectoryNormalized(), normal.directory);
        expect("DriveAndDirectoryNormalized", a.DriveAndDirectoryNormalized(), normal.DriveAndDirectory());
        expect("NameWithExtension", a.NameWithExtension(), normal.NameWithExtension());
        expect("NameWithoutExtension", a.NameWithoutExtension(), normal.NameWithoutExtension());
        expect("ExtensionWithDot", a.ExtensionWithDot(), normal.extensionWithDot);
    }

    void CheckRewriting()
    {
        Expect("Normalized", a.Normalized().ToString(), oracle.Normalized());
        std::wstring const extension = oracle.text.substr(oracle.text.size() / 2, oracle.text.size() % 4);
        Expect("WithChangedExtension", a.WithChangedExtension(extension).ToString(),
               oracle.WithChangedExtension(extension));

        std::wstring expected = oracle.text;
        PathOracle::NormalizeNonExtendedLengthPath(expected);
        std::wstring inPlace = oracle.text;
        inPlace.resize(Detail::NormalizeNonExtendedLengthPath(inPlace, inPlace.data()));
        Expect("NormalizeNonExtendedLengthPath", inPlace, expected);
        if (Detail::FindFirstToFold(oracle.text) == oracle.text.size())
            Expect("FindFirstToFold", oracle.text, expected);
    }

    void CheckTwo()
    {
        std::wstring const& x = oracle.text;
        std::wstring const& y = oracleB.text;
        auto const join = PathOracle::Join;
        Expect("Join 2", Path::Join(a, b).ToString(), join(x, y));
        Expect("Join 3", Path::Join(a, b, a).ToString(), join(join(x, y), x));
        Expect("Join 4", Path::Join(b, a, L"\\", b).ToString(), join(join(y, x), join(L"\\", y)));
        auto const merge = [this](std::wstring const& first, std::wstring const& second)
        { return PathOracle::Merge(PathOracle(first, expectedLog), PathOracle(second, expectedLog)); };
        Expect("Merge 2", Path::Merge(a, b).ToString(), merge(x, y));
        Expect("Merge 3", Path::Merge(a, b, L"a").ToString(), merge(merge(x, y), L"a"));
        Expect("Merge 4", Path::Merge(b, L"\\x", a, b).ToString(), merge(merge(merge(y, L"\\x"), x), y));
    }

    void CheckComparison()
    {
        std::wstring changed = oracle.text;
        for (wchar_t& unit : changed)
            unit = unit == L'a' ? L'A' : unit == L'\u00C9' ? L'\u00E9' : unit == L'/' ? L'\\' : unit;
        for (std::wstring const& other : {oracleB.text, changed})
        {
            Path const path(other);
            PathOracle const oracleOther(other, expectedLog);
            Expect("operator<", a < path, PathOracle::Less(oracle, oracleOther));
            Expect("operator>", a > path, PathOracle::Greater(oracle, oracleOther));
            bool const equal = PathOracle::Equal(oracle, oracleOther);
            std::vector<std::string> const logged = expectedLog;
            Expect("operator==", a == path, equal, logged);
            Expect("operator!=", a != path, !equal, logged);
            if (equal)
                Expect("hash", std::hash<Path>()(a), std::hash<Path>()(path));
        }
    }

    template <class Value>
    void Expect(char const* what, Value const& actual, Value const& expected)
    {
        Expect(what, actual, expected, expectedLog);
    }

    template <class Value>
    void Expect(char const* what, Value const& actual, Value const& expected, std::vector<std::string> const& logged)
    {
        if (actual != expected)
            Report(what, "result");
        if (log.lines != logged)
            Report(what, "log");
        log.lines.clear();
        expectedLog.clear();
    }

    void Report(char const* what, char const* part)
    {
        report += std::string(what) + " disagrees in its " + part + " for [" + WideToUtf8(oracle.text) + "] and [" +
                  WideToUtf8(oracleB.text) + "]\n";
    }

    Path a;
    Path b;
    std::vector<std::string> expectedLog;
    PathOracle oracle;
    PathOracle oracleB;
    Log& log;
    std::string report;
};

} // namespace Brindle::Vok::Testing

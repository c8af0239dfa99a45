#include "MimeFiles.h"

#include "Support/StandIn.h"
#include "Support/TestDesktop.h"

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

constexpr HRESULT noAssociation = static_cast<HRESULT>(0x80070483);

/// The text, or its failure's code.
std::wstring Ask(ASSOCSTR kind, wchar_t const* association, wchar_t const* verb = nullptr, ASSOCF flags = 0)
{
    wchar_t buffer[500];
    DWORD size = 500;
    HRESULT result = S_OK;
    VOK_EXPECT_CODE(0, (result = AssocQueryStringW(flags, kind, association, verb, buffer, &size), true));
    if (result != S_OK)
        return result == noAssociation ? L"none" : L"error " + std::to_wstring(result & 0xFFFF);
    EXPECT_EQ(size, wcslen(buffer) + 1);
    return buffer;
}

TEST(Globs, RankByCaseWeightAndLength)
{
    std::tuple<char const*, char const*, char const*> const cases[] = {
        {".TXT", "50:a/b:*.txt\n", "a/b"},
        {".C", "80:text/c:*.c\n50:text/c++:*.C:cs", "text/c++"},
        {".tar.gz", "50:a/a:*.gz\n50:a/b:*.tar.gz\n50:a/c:*.tar.g?", "a/b"},
        {".x", "50:a/a:*.x\n60:a/b:*.x", "a/b"},
        {".x", "# 50:a/a:*.x\nx:a/a:*.x\n:a/a:*.x\n50:a/a:\n50:none:*.x\n50\n-1:a/a:*.x", ""},
    };
    for (auto const& [name, file, type] : cases)
    {
        TypeSearch search(name);
        search.Add(file, TypeSearch::Form::globs2);
        EXPECT_EQ(search.Type(), type) << name << ' ' << file;
    }
    EXPECT_FALSE(MatchesGlob(std::string(100000, 'a'), "*a*a*a*a*a*a*b", false)); // in no time
}

class Associations : public testing::Test
{
protected:
    Associations()
    {
        desktop.AddProgram("edit");
        for (char const* const name : {"a", "b", "c"})
            desktop.AddEntry(std::string("share/applications/") + name + ".desktop", name, "edit %f");
        desktop.drive.Write("share/mime/globs", "text/old:*.old\n");
        desktop.drive.Write("local/mime/globs2", "50:text/plain:*.txt\n");
    }

    TestDesktop desktop;
    std::string const systemList = "share/applications/mimeapps.list";
};

TEST_F(Associations, TakeTheFirstApplicationThatCanBeStarted)
{
    std::string const defaults = "[Default Applications]\ntext/plain=";
    std::string const added = "[Added Associations]\ntext/plain=";
    std::string const removed = "[Removed Associations]\ntext/plain=";
    for (auto const& [file, command] : {std::pair("share/applications/gone.desktop", "missing %f"),
                                        {"share/applications/open.desktop", "\"edit"},
                                        {"share/applications/tried.desktop", "edit\nTryExec=missing"},
                                        {"share/applications/link.desktop", "edit\nType=Link"},
                                        {"local/applications/masked.desktop", "edit\nHidden=true"},
                                        {"share/applications/masked.desktop", "edit"},
                                        {"share/applications/vendor/x-y.desktop", "edit"}})
        desktop.AddEntry(file, "other", command);
    using Files = std::vector<std::pair<std::string, std::string>>;
    std::pair<Files, wchar_t const*> const cases[] = {
        {{{systemList, added + "b.desktop\n" + defaults + "none.desktop;;a.desktop;"}}, L"a"},
        {{{systemList, defaults + "gone.desktop;open.desktop;tried.desktop;link.desktop;masked.desktop"}}, L"none"},
        {{{systemList, defaults + "../applications/a.desktop;a;vendor-x-y.desktop"}}, L"other"},
        {{{"home/.config/mimeapps.list", defaults + "c.desktop"}, {"etc/mimeapps.list", defaults + "b.desktop"}}, L"c"},
        {{{"etc/two-mimeapps.list", defaults + "b.desktop"}, {"etc/mimeapps.list", defaults + "a.desktop"}}, L"b"},
        {{{"user:data/applications/mimeapps.list", added + "b.desktop"}, {systemList, added + "a.desktop"}}, L"b"},
        {{{"etc/mimeapps.list", removed + "a.desktop"}, {systemList, defaults + "a.desktop"}}, L"none"},
        {{{systemList, removed + "b.desktop"},
          {"share/applications/mimeinfo.cache", "[MIME Cache]\ntext/plain=b.desktop;c.desktop;"}},
         L"c"},
    };
    for (auto const& [files, name] : cases)
    {
        for (auto const& [file, lines] : files)
            desktop.drive.Write(file, lines);
        EXPECT_EQ(Ask(ASSOCSTR_FRIENDLYAPPNAME, L".TXT"), name) << files[0].second;
        for (auto const& [file, lines] : files)
            std::filesystem::remove(desktop.drive.Host(file));
    }
    desktop.drive.Write("home/.config/mimeapps.list", defaults + "a.desktop");
    EXPECT_EQ(Ask(ASSOCSTR_FRIENDLYAPPNAME, L".txt", L"Open"), L"a");
    EXPECT_EQ(Ask(ASSOCSTR_FRIENDLYAPPNAME, L".txt", nullptr, ASSOCF_NOUSERSETTINGS), L"none");
}

TEST_F(Associations, GiveCommandsProgramsAndTypes)
{
    desktop.drive.Write(systemList, "[Default Applications]\ntext/plain=x.desktop");
    std::wstring const program = desktop.Program(L"edit");
    std::wstring const quoted = L'"' + program + L'"';
    std::pair<char const*, std::wstring> const commands[] = {
        {"\"edit\" \"a \\\\\"b\\\\\\\\\" \"\" c", L" \"a \\\"b\\\\\" \"\" c"},
        {"edit %i %d %c 100%% --name=%u", L" --icon pic \"The Editor\" 100% \"--name=%1\""},
    };
    for (auto const& [exec, arguments] : commands)
    {
        desktop.AddEntry("share/applications/x.desktop", "The\\sEditor\nName[tr]=other\nIcon=pic", exec);
        EXPECT_EQ(Ask(ASSOCSTR_COMMAND, L".txt"), quoted + arguments) << exec;
    }
    EXPECT_EQ(Ask(ASSOCSTR_EXECUTABLE, L".txt", L"open"), program);
    EXPECT_EQ(Ask(ASSOCSTR_EXECUTABLE, L".txt", L"print"), L"none");
    EXPECT_EQ(Ask(ASSOCSTR_CONTENTTYPE, L".old"), L"text/old");
    for (wchar_t const* const unknown : {L"text/plain", L"/tmp/a.txt", L"", L".", L"txt", L".\xD800", L".none"})
        EXPECT_EQ(Ask(ASSOCSTR_CONTENTTYPE, unknown), L"none");
}

TEST_F(Associations, KeepTheRulesOfTheBuffer)
{
    wchar_t buffer[] = L"##################";
    std::tuple<wchar_t*, DWORD, ASSOCF, HRESULT, wchar_t const*> const cases[] = {
        {nullptr, 0, 0, S_FALSE, L"##################"},
        {buffer, 10, ASSOCF_NOTRUNCATE, E_POINTER, L"##################"},
        {buffer, 10, 0, E_POINTER, L"text/plai"},
        {buffer, 11, 0, S_OK, L"text/plain"},
        {buffer, 11, ASSOCF_INIT_BYEXENAME, E_NOTIMPL, L"text/plain"},
    };
    for (auto const& [out, room, flags, result, text] : cases)
    {
        DWORD size = room;
        EXPECT_EQ(AssocQueryStringW(flags, ASSOCSTR_CONTENTTYPE, L".txt", nullptr, out, &size), result) << room;
        EXPECT_EQ(size, 11U);
        EXPECT_STREQ(buffer, text);
    }
}

} // namespace

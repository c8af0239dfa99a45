// What the tests of the second generation share: a drive, a service, objects for a path, and what an error says.
#pragma once

#include "Failures.h"
#include "HostFaults.h"
#include "OpenHandle.h"
#include "TestDrive.h"

#include "Vok/FileSystemV2Impl.h"

#include <gmock/gmock.h>

#include <array>

namespace Brindle::Vok::Testing
{

/// How often a run asks the host about a path, as every answer begins.
template <class Run>
int QuestionsOf(Run run)
{
    using Platform::SystemCalls::StatusAt;
    int questions = 0;
    auto const counted = [&questions](auto... arguments) { return ++questions, StatusAt.host(arguments...); };
    Platform::SystemCalls::Redirection const counting(StatusAt, counted);
    run();
    return questions;
}

class ObjectTests : public testing::Test
{
protected:
    auto PathInfo(std::wstring const& name) const { return fileSystem->MakePathInfo(drive.Path(name)); }
    auto Directory(std::wstring const& name) const { return fileSystem->MakeDirectory(drive.Path(name)); }
    auto File(std::wstring const& name) const { return fileSystem->MakeFile(drive.Path(name)); }

    /// An object of one kind, and what a function that all kinds have is called.
    struct Kind
    {
        std::string Function(char const* name) const
        {
            return "PathInfoImpl<class Brindle::Vok::V2::" + interface + ">::" + name;
        }
        std::string interface;
        std::unique_ptr<V2::IPathInfo> object;
    };
    std::array<Kind, 3> AllKinds(std::wstring const& name) const
    {
        return {{{"IPathInfo", PathInfo(name)}, {"IDirectory", Directory(name)}, {"IFile", File(name)}}};
    }

    static Error FromBefore() { return WindowsError(1234, "", 1, "", ""); }
    std::string Quoted(std::wstring const& name) const { return "[" + WideToUtf8(drive.Path(name)) + "]"; }

    /// Holds code, category and whole message against the expectation.
    static void Expect(Error const& error, DWORD code, std::string const& function, std::string const& text)
    {
        bool const opens = function == "VokCreateFile";
        ExpectFailure(error, opens ? "VokWindows" : "FileSystemV2", (opens ? "" : "V2::") + function, code, text);
    }
    /// The same for what a run throws, which must be of this very type.
    template <class ErrorType, class Run>
    static void ExpectThrown(Run run, DWORD code, std::string const& function, std::string const& text)
    {
        Expect(Thrown<ErrorType>(run), code, function, text);
    }
    template <class ErrorType, class Run>
    void ExpectNotOpened(Run run, DWORD code, std::wstring const& name) const
    {
        ExpectThrown<ErrorType>(run, code, "VokCreateFile", "CreateFile failed, path" + Quoted(name));
    }

    TestDrive drive;
    std::shared_ptr<V2::IFileSystem> const fileSystem = V2::MakeFileSystem();
};

} // namespace Brindle::Vok::Testing

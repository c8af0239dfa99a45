// What the tests of directories share: a drive, a service, and what an error of theirs says.
//
//     TEST_F(Directories, …) { drive.Write("d/file"); EXPECT_EQ(DeletionMessage(drive.Path(L"d")), noError); }
//
// With VOK_LONG_TESTS set in the environment, tests that look for rare events take their time.
#pragma once

#include "Failures.h"
#include "TestDrive.h"

#include <Brindle/Vok/FileSystem.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Brindle::Vok::Testing
{

inline bool TakesLong()
{
    return std::getenv("VOK_LONG_TESTS") != nullptr;
}

/// For many files, which some disks are slow at.
inline std::filesystem::path QuickPlace()
{
    return ::access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path();
}

class DirectoryTests : public testing::Test
{
protected:
    /// The message of an error that is none.
    static constexpr char noError[] = "Windows ERROR_SUCCESS";

    std::vector<std::wstring> NamesIn(std::wstring const& directory, FileSystemIterateType type = {}) const
    {
        std::vector<std::wstring> names;
        FileSystemIterator entry(fileSystem, drive.Path(directory), type);
        for (; entry != FileSystemIterator(); ++entry)
            names.push_back(entry->Path().NameWithExtension());
        std::sort(names.begin(), names.end());
        return names;
    }

    /// Deletes a directory that is there, and gives the message of the error.
    std::string DeletionMessage(Path path) const
    {
        WindowsError error;
        EXPECT_TRUE(fileSystem->DeleteDirectory(path, error));
        return WithoutLine(error.Message());
    }

    static std::string MessageOf(std::string const& function, DWORD code, std::string const& text)
    {
        return FailureMessage("FileSystem", function, code, text);
    }
    static std::string DeletionFailure(DWORD code, std::string const& text)
    {
        return MessageOf("FileSystemImpl::DeleteDirectoryInternal", code, text);
    }
    std::string Text(std::wstring const& name) const { return WideToUtf8(drive.Path(name)); }
    void SetMode(std::string const& name, mode_t mode) const { EXPECT_EQ(::chmod(drive.Host(name).c_str(), mode), 0); }

    TestDrive drive;
    std::shared_ptr<FileSystem> const fileSystem = MakeFileSystem();
};

} // namespace Brindle::Vok::Testing

// A privileged action that is safe: as root, hands a file over to a user. TO is made as that user, so no link and no
// directory of his leads this process to a place where he may not write himself; FROM is read as the process.
//
//     PrivilegedAction USER FROM TO       TO must not be there yet
//
// Never does a step go on as the wrong user: it isn't begun then, and the exit code is 1. Nobody but root (or who has
// CAP_SETUID and CAP_SETGID) can be somebody else.
#include "Arguments.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/UnImpersonator.h>
#include <Brindle/Vok/VokWindows.h>

#include <cstdio>
#include <exception>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace Brindle::Vok;

namespace
{

/// Runs a step as the user of a token, and puts the thread's identity back whatever happens. Throws if the thread can't
/// be that user; the step isn't run then.
template <class Step>
void ActAs(HANDLE token, Step const& step)
{
    ImpersonationSaver saver;
    bool const acts = ImpersonateLoggedOnUser(token) != FALSE;
    DWORD const code = GetLastError();
    saver.SetImpersonationOccurred(acts ? 1 : 0);
    if (!acts)
        VOK_THROW(WindowsError, code, "the step isn't done, as it would be done as {}", VokGetUserName());
    step();
}

/// Neither a saver nor an UnImpersonator throws when it fails, so ask before what matters.
void RequireImpersonation(bool isWanted)
{
    VokAccessToken token;
    if (!token.GetCurrentTokenForImpersonation())
        VOK_THROW(WindowsError, ERROR_ACCESS_DENIED, "the thread's identity can't be told");
    if ((token.GetHandle() != nullptr) != isWanted)
        VOK_THROW(WindowsError, ERROR_ACCESS_DENIED, "the thread is {}", VokGetUserName());
}

std::vector<unsigned char> ReadAsProcess(Path const& path)
{
    UnImpersonator const asProcess; // for this scope
    RequireImpersonation(false);
    return V2::MakeFileSystem()->MakeFile(path)->ReadAllBytes();
}

void HandOver(std::string const& user, Path const& from, Path const& to)
{
    HandleOwner<Detail::NullHandleTraits> const token(Platform::OpenUserToken(user));
    if (!token.IsValid())
        VOK_THROW_LAST_ERROR("there is no token of {}", user);
    ActAs(token.Get(),
          [&]
          {
              HandleOwner<Detail::InvalidHandleTraits> file =
                  VokCreateFile(to.ToString(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
              try
              {
                  std::vector<unsigned char> const bytes = ReadAsProcess(from);
                  RequireImpersonation(true); // again
                  DWORD written = 0;
                  if (!WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
                      VOK_THROW_LAST_ERROR("WriteFile failed, path[{}]", to);
                  std::printf("%zu bytes written as %s\n", bytes.size(), WideToUtf8(VokGetUserName()).c_str());
              }
              catch (std::exception const&)
              {
                  file.Reset();
                  RequireImpersonation(true); // the process might delete another file by that name
                  DeleteFileW(to.ToString().c_str());
                  throw;
              }
          });
}

} // namespace

int main(int argc, char** argv)
{
    if (auto const code = EndWithUsage(argv[0], {argv + 1, argv + argc}, 3, 3, "USER FROM TO"))
        return *code;
    // What a saver can't put back is told to the log alone.
    SubscriptionForLogCallbacks const log([](LogStatement const& statement)
                                          { std::fprintf(stderr, "log: %s\n", statement.message.c_str()); },
                                          VokLogSeverity::error);
    umask(077); // what one user gets is for no other
    try
    {
        HandOver(argv[1], argv[2], argv[3]);
        return 0;
    }
    catch (Error const& error)
    {
        std::fprintf(stderr, "not handed over to %s: error %d, %s\n", argv[1], error.code().value(), error.what());
        return 1;
    }
    catch (std::exception const& exception)
    {
        std::fprintf(stderr, "not handed over to %s: %s\n", argv[1], exception.what());
        return 1;
    }
}

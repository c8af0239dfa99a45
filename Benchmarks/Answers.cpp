// What this library and the peers answer to the same questions, as the table in README.md has it: not how fast, but
// what. Prints each answer of each of them.
#include <Brindle/Vok/DirectoryMonitor.h>
#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/VokWindows.h>

#include "Workplace.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QTimer>

#include <Poco/Delegate.h>
#include <Poco/DirectoryWatcher.h>
#include <Poco/FileStream.h>
#include <Poco/Path.h>

#include <boost/filesystem.hpp>
#include <boost/filesystem/fstream.hpp>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace Vok = Brindle::Vok;

namespace
{

void Print(char const* who, std::function<std::string()> const& answer)
{
    std::string text;
    try
    {
        text = answer();
    }
    catch (Poco::Exception const& exception)
    {
        text = "throws: " + exception.displayText();
    }
    catch (std::exception const& exception)
    {
        text = std::string("throws: ") + exception.what();
    }
    std::printf("  %-6s %s\n", who, text.c_str());
}

void Normalise(std::string const& text)
{
    std::printf("%s, normalised; its name\n", text.c_str());
    Print("Vok2",
          [&]
          {
              Vok::Path const path = Vok::Utf8ToWide(text);
              return path.Normalized().ToStringA() + "; " + Vok::WideToUtf8(path.NameWithExtension());
          });
    auto const standard = [&]<class Path>(Path const& path)
    { return path.lexically_normal().string() + "; " + path.filename().string(); };
    Print("std", [&] { return standard(std::filesystem::path(text)); });
    Print("Boost", [&] { return standard(boost::filesystem::path(text)); });
    QString const wide = QString::fromStdString(text);
    Print("Qt", [&] { return (QDir::cleanPath(wide) + "; " + QFileInfo(wide).fileName()).toStdString(); });
    Print("Poco",
          [&]
          {
              Poco::Path const path(text, Poco::Path::PATH_WINDOWS);
              return path.toString(Poco::Path::PATH_WINDOWS) + "; " + path.getFileName();
          });
}

void OpenMissing()
{
    std::string const missing = HostPath("none/text.txt");
    std::puts("opening a file that isn't there");
    Print("Vok2", [] { return Vok::V2::MakeFileSystem()->MakeFile(L"T:\\none\\text.txt")->ReadAllTextA(); });
    Print("std",
          [&]
          {
              std::ifstream stream;
              stream.exceptions(std::ios::failbit);
              stream.open(missing);
              return std::string();
          });
    Print("Boost",
          [&]
          {
              boost::filesystem::ifstream stream;
              stream.exceptions(std::ios::failbit);
              stream.open(missing);
              return std::string();
          });
    Print("Qt",
          [&]
          {
              QFile file(QString::fromStdString(missing));
              return file.open(QIODevice::ReadOnly) ? std::string() : "false: " + file.errorString().toStdString();
          });
    Print("Poco", [&] { return std::to_string(Poco::FileInputStream(missing).good()); });
}

/// Somebody writes a file, and another one of the same library begins to write it too.
void OpenTwice()
{
    std::string const shared = HostPath("shared.txt");
    std::puts("opening a file for writing that is being written");
    auto const twice = [&]<class Stream>(Stream& first, Stream& second) -> std::string
    { return first.good() && second.good() ? "both write" : "refused"; };
    Print("Vok2",
          []
          {
              auto const open = []
              { return Vok::VokCreateFile(L"T:\\shared.txt", GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr); };
              auto const first = open();
              auto const second = open();
              return std::string("both write");
          });
    Print("std",
          [&]
          {
              std::ofstream first(shared);
              std::ofstream second(shared);
              return twice(first, second);
          });
    Print("Boost",
          [&]
          {
              boost::filesystem::ofstream first(shared);
              boost::filesystem::ofstream second(shared);
              return twice(first, second);
          });
    Print("Qt",
          [&]
          {
              QFile first(QString::fromStdString(shared));
              QFile second(QString::fromStdString(shared));
              bool const both = first.open(QIODevice::WriteOnly) && second.open(QIODevice::WriteOnly);
              return std::string(both ? "both write" : "refused");
          });
    Print("Poco",
          [&]
          {
              Poco::FileOutputStream first(shared);
              Poco::FileOutputStream second(shared);
              return twice(first, second);
          });
}

std::string DirectoryWithFile(std::string const& name)
{
    std::string directory = HostPath(name);
    std::filesystem::create_directory(directory);
    std::ofstream(directory + "/before") << "text";
    return directory;
}

void RenameIn(std::string const& directory)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::filesystem::rename(directory + "/before", directory + "/after");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

struct PocoListener
{
    void From(Poco::DirectoryWatcher::DirectoryEvent const& event) { Add("moved from ", event); }
    void To(Poco::DirectoryWatcher::DirectoryEvent const& event) { Add("moved to ", event); }
    void Added(Poco::DirectoryWatcher::DirectoryEvent const& event) { Add("added ", event); }
    void Removed(Poco::DirectoryWatcher::DirectoryEvent const& event) { Add("removed ", event); }
    void Modified(Poco::DirectoryWatcher::DirectoryEvent const& event) { Add("modified ", event); }
    void Add(char const* what, Poco::DirectoryWatcher::DirectoryEvent const& event)
    {
        told += what + Poco::Path(event.item.path()).getFileName() + ", ";
    }
    std::string told;
};

void WatchRenaming()
{
    std::puts("a file is renamed in a watched directory");
    Print("Vok2",
          []
          {
              std::string const directory = DirectoryWithFile("renaming");
              std::string told;
              auto const monitor = Vok::MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(
                  L"T:\\renaming",
                  [&](Vok::DirectoryChange const& change)
                  {
                      told += Vok::WideToUtf8(Vok::ToString(change.action)) + " " +
                              Vok::WideToUtf8(change.path.NameWithExtension()) + ", ";
                  });
              RenameIn(directory);
              return told;
          });
    Print("Qt",
          []
          {
              std::string const directory = DirectoryWithFile("renaming-qt");
              int count = 0;
              QCoreApplication application(count, nullptr);
              QFileSystemWatcher watcher({QString::fromStdString(directory)});
              std::string told;
              QObject::connect(&watcher, &QFileSystemWatcher::directoryChanged,
                               [&](QString const& path)
                               { told += "changed " + QFileInfo(path).fileName().toStdString(); });
              std::thread renamer([&] { RenameIn(directory); });
              QTimer::singleShot(2000, &application, &QCoreApplication::quit);
              application.exec();
              renamer.join();
              return told;
          });
    Print("Poco",
          []
          {
              std::string const directory = DirectoryWithFile("renaming-poco");
              PocoListener listener;
              Poco::DirectoryWatcher watcher(directory);
              watcher.itemMovedFrom += Poco::delegate(&listener, &PocoListener::From);
              watcher.itemMovedTo += Poco::delegate(&listener, &PocoListener::To);
              watcher.itemAdded += Poco::delegate(&listener, &PocoListener::Added);
              watcher.itemRemoved += Poco::delegate(&listener, &PocoListener::Removed);
              watcher.itemModified += Poco::delegate(&listener, &PocoListener::Modified);
              RenameIn(directory);
              return listener.told;
          });
}

} // namespace

int main()
{
    Normalise(R"(\\server\share\a\..\b.txt)");
    Normalise(R"(C:/a/../b.txt)");
    Normalise(R"(\\?\C:\a\..\b)");
    OpenMissing();
    OpenTwice();
    WatchRenaming();
}

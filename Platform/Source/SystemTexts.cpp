#include "SystemTexts.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace Brindle::Vok::Platform
{

namespace
{

struct SystemText
{
    DWORD code;
    std::string_view text;
};

#define VOK_SYSTEM_TEXT(code, text)                                                                                    \
    {                                                                                                                  \
        code##U, text "\r\n"                                                                                           \
    }

constexpr SystemText systemTexts[] = {
    VOK_SYSTEM_TEXT(0, "The operation was successful."),
    VOK_SYSTEM_TEXT(1, "The function is not valid here."),
    VOK_SYSTEM_TEXT(2, "The file was not found."),
    VOK_SYSTEM_TEXT(3, "The path was not found."),
    VOK_SYSTEM_TEXT(4, "Too many files are open."),
    VOK_SYSTEM_TEXT(5, "Access is denied."),
    VOK_SYSTEM_TEXT(6, "The handle is not valid."),
    VOK_SYSTEM_TEXT(7, "Control data of the storage are damaged."),
    VOK_SYSTEM_TEXT(8, "There is too little memory for this command."),
    VOK_SYSTEM_TEXT(9, "The address of a storage block is not valid."),
    VOK_SYSTEM_TEXT(10, "The environment is not usable."),
    VOK_SYSTEM_TEXT(11, "The program has a wrong format."),
    VOK_SYSTEM_TEXT(12, "The access code is not valid."),
    VOK_SYSTEM_TEXT(13, "The data are not valid."),
    VOK_SYSTEM_TEXT(14, "There is too little memory to finish this operation."),
    VOK_SYSTEM_TEXT(15, "There is no such drive."),
    VOK_SYSTEM_TEXT(16, "The current directory can't be removed."),
    VOK_SYSTEM_TEXT(17, "The target is on another device."),
    VOK_SYSTEM_TEXT(18, "There are no more files."),
    VOK_SYSTEM_TEXT(19, "The medium is write-protected."),
    VOK_SYSTEM_TEXT(20, "The device was not found."),
    VOK_SYSTEM_TEXT(21, "The device is not ready."),
    VOK_SYSTEM_TEXT(22, "The device doesn't know this command."),
    VOK_SYSTEM_TEXT(23, "The data failed their checksum."),
    VOK_SYSTEM_TEXT(24, "The command has a wrong length."),
    VOK_SYSTEM_TEXT(25, "The place on the medium was not found."),
    VOK_SYSTEM_TEXT(26, "The medium can't be accessed."),
    VOK_SYSTEM_TEXT(27, "The sector was not found."),
    VOK_SYSTEM_TEXT(28, "The printer has no paper."),
    VOK_SYSTEM_TEXT(29, "Writing to the device failed."),
    VOK_SYSTEM_TEXT(30, "Reading from the device failed."),
    VOK_SYSTEM_TEXT(31, "The device does not work."),
    VOK_SYSTEM_TEXT(32, "The file is in use by another process."),
    VOK_SYSTEM_TEXT(33, "Another process has locked a part of the file."),
    VOK_SYSTEM_TEXT(36, "Too many files are shared."),
    VOK_SYSTEM_TEXT(38, "The end of the file has been reached."),
    VOK_SYSTEM_TEXT(39, "The disk has no room left."),
    VOK_SYSTEM_TEXT(50, "The request is not supported."),
    VOK_SYSTEM_TEXT(51, "The remote computer can't be reached."),
    VOK_SYSTEM_TEXT(52, "The network has this name twice."),
    VOK_SYSTEM_TEXT(53, "The network path was not found."),
    VOK_SYSTEM_TEXT(54, "The network is busy."),
    VOK_SYSTEM_TEXT(55, "The device is no longer there."),
    VOK_SYSTEM_TEXT(58, "The server can't do what was asked."),
    VOK_SYSTEM_TEXT(59, "The network failed in an unknown way."),
    VOK_SYSTEM_TEXT(64, "The network name is gone."),
    VOK_SYSTEM_TEXT(65, "Access to the network is denied."),
    VOK_SYSTEM_TEXT(66, "The network resource has the wrong type."),
    VOK_SYSTEM_TEXT(67, "The network name was not found."),
    VOK_SYSTEM_TEXT(80, "The file is there already."),
    VOK_SYSTEM_TEXT(82, "The directory or file can't be made."),
    VOK_SYSTEM_TEXT(84, "There is no storage for this request."),
    VOK_SYSTEM_TEXT(85, "The name is assigned already."),
    VOK_SYSTEM_TEXT(86, "The password is wrong."),
    VOK_SYSTEM_TEXT(87, "A parameter is wrong."),
    VOK_SYSTEM_TEXT(89, "No further process can be started now."),
    VOK_SYSTEM_TEXT(100, "No further semaphore can be made."),
    VOK_SYSTEM_TEXT(105, "The semaphore's owner has ended."),
    VOK_SYSTEM_TEXT(108, "Another process has locked the disk."),
    VOK_SYSTEM_TEXT(109, "The pipe is broken."),
    VOK_SYSTEM_TEXT(110, "The file or device can't be opened."),
    VOK_SYSTEM_TEXT(111, "The name is too long."),
    VOK_SYSTEM_TEXT(112, "There is not enough room on the disk."),
    VOK_SYSTEM_TEXT(117, "The device control call is not valid."),
    VOK_SYSTEM_TEXT(120, "This system does not have the function."),
    VOK_SYSTEM_TEXT(121, "The wait ran out of time."),
    VOK_SYSTEM_TEXT(122, "The buffer is too small."),
    VOK_SYSTEM_TEXT(123, "The name or its syntax is wrong."),
    VOK_SYSTEM_TEXT(124, "The level of the call is wrong."),
    VOK_SYSTEM_TEXT(126, "The module was not found."),
    VOK_SYSTEM_TEXT(127, "The procedure was not found."),
    VOK_SYSTEM_TEXT(128, "There are no child processes to wait for."),
    VOK_SYSTEM_TEXT(130, "This handle is for direct disk access only."),
    VOK_SYSTEM_TEXT(131, "A file position can't lie before the file's beginning."),
    VOK_SYSTEM_TEXT(132, "The device or file has no position to set."),
    VOK_SYSTEM_TEXT(142, "The drive is busy."),
    VOK_SYSTEM_TEXT(144, "This is not the root of a drive."),
    VOK_SYSTEM_TEXT(145, "The directory is not empty."),
    VOK_SYSTEM_TEXT(154, "The volume's label is too long."),
    VOK_SYSTEM_TEXT(158, "The segment is not locked."),
    VOK_SYSTEM_TEXT(160, "An argument is wrong."),
    VOK_SYSTEM_TEXT(161, "The path is not valid."),
    VOK_SYSTEM_TEXT(164, "No more threads can be started."),
    VOK_SYSTEM_TEXT(167, "That part of the file can't be locked."),
    VOK_SYSTEM_TEXT(170, "The resource is in use."),
    VOK_SYSTEM_TEXT(173, "There was no lock to cancel."),
    VOK_SYSTEM_TEXT(182, "The system can't run this program."),
    VOK_SYSTEM_TEXT(183, "The object is there already."),
    VOK_SYSTEM_TEXT(186, "The flag is wrong."),
    VOK_SYSTEM_TEXT(187, "There is no semaphore of this name."),
    VOK_SYSTEM_TEXT(193, "%1 is not a valid program."),
    VOK_SYSTEM_TEXT(197, "The system doesn't run such programs as set up."),
    VOK_SYSTEM_TEXT(203, "There is no environment variable of this name."),
    VOK_SYSTEM_TEXT(206, "The file name or its ending is too long."),
    VOK_SYSTEM_TEXT(216, "%1 is for another kind of machine."),
    VOK_SYSTEM_TEXT(223, "The file is too large."),
    VOK_SYSTEM_TEXT(230, "The pipe is in a wrong state."),
    VOK_SYSTEM_TEXT(231, "All ends of the pipe are busy."),
    VOK_SYSTEM_TEXT(232, "The pipe is being closed."),
    VOK_SYSTEM_TEXT(233, "Nobody is at the pipe's other end."),
    VOK_SYSTEM_TEXT(234, "There is more data."),
    VOK_SYSTEM_TEXT(240, "The session was cancelled."),
    VOK_SYSTEM_TEXT(254, "The extended attribute's name is wrong."),
    VOK_SYSTEM_TEXT(255, "The extended attributes don't agree with one another."),
    VOK_SYSTEM_TEXT(258, "The wait is over without a result."),
    VOK_SYSTEM_TEXT(259, "There are no more entries."),
    VOK_SYSTEM_TEXT(266, "The copy function can't be used."),
    VOK_SYSTEM_TEXT(267, "The directory's name is not valid."),
    VOK_SYSTEM_TEXT(288, "The caller does not own the object to release."),
    VOK_SYSTEM_TEXT(298, "The semaphore was raised too often."),
    VOK_SYSTEM_TEXT(299, "Only a part of the memory was transferred."),
    VOK_SYSTEM_TEXT(317, "There is no text for this message number."),
    VOK_SYSTEM_TEXT(487, "The address is not valid."),
    VOK_SYSTEM_TEXT(534, "The number is too large for its field."),
    VOK_SYSTEM_TEXT(535, "There is a process at the pipe's other end."),
    VOK_SYSTEM_TEXT(536, "A process is awaited at the pipe's other end."),
    VOK_SYSTEM_TEXT(575, "The program could not be started properly."),
    VOK_SYSTEM_TEXT(735, "The wait ended because the owner of the object is gone."),
    VOK_SYSTEM_TEXT(994, "Access to the extended attributes is denied."),
    VOK_SYSTEM_TEXT(995, "The transfer was cancelled."),
    VOK_SYSTEM_TEXT(996, "The overlapped transfer has not finished."),
    VOK_SYSTEM_TEXT(997, "The overlapped transfer is under way."),
    VOK_SYSTEM_TEXT(998, "The memory can't be accessed."),
    VOK_SYSTEM_TEXT(999, "A page could not be brought in."),
    VOK_SYSTEM_TEXT(1001, "The calls are nested too deeply for the stack."),
    VOK_SYSTEM_TEXT(1003, "The function can't be finished."),
    VOK_SYSTEM_TEXT(1004, "The flags are not valid."),
    VOK_SYSTEM_TEXT(1005, "The volume holds no known file system."),
    VOK_SYSTEM_TEXT(1006, "The open file was changed from outside and is no longer valid."),
    VOK_SYSTEM_TEXT(1008, "There is no token."),
    VOK_SYSTEM_TEXT(1009, "The registry's data are damaged."),
    VOK_SYSTEM_TEXT(1010, "The registry key is not valid."),
    VOK_SYSTEM_TEXT(1011, "The registry key can't be opened."),
    VOK_SYSTEM_TEXT(1012, "The registry key can't be read."),
    VOK_SYSTEM_TEXT(1013, "The registry key can't be written."),
    VOK_SYSTEM_TEXT(1018, "The registry key has been marked for deletion."),
    VOK_SYSTEM_TEXT(1022, "There were more changes than could be noted; look at the directory itself."),
    VOK_SYSTEM_TEXT(1053, "The service did not answer in time."),
    VOK_SYSTEM_TEXT(1056, "The service runs already."),
    VOK_SYSTEM_TEXT(1058, "The service can't be started."),
    VOK_SYSTEM_TEXT(1060, "There is no such service."),
    VOK_SYSTEM_TEXT(1062, "The service does not run."),
    VOK_SYSTEM_TEXT(1072, "The service has been marked for deletion."),
    VOK_SYSTEM_TEXT(1113, "A character has no counterpart in the target code page."),
    VOK_SYSTEM_TEXT(1114, "A module's start-up code failed."),
    VOK_SYSTEM_TEXT(1115, "The system is being shut down."),
    VOK_SYSTEM_TEXT(1117, "The device failed during the transfer."),
    VOK_SYSTEM_TEXT(1127, "The disk failed repeatedly."),
    VOK_SYSTEM_TEXT(1130, "The server has too little storage for this command."),
    VOK_SYSTEM_TEXT(1131, "Waiting would have ended in a deadlock."),
    VOK_SYSTEM_TEXT(1142, "The file has too many links."),
    VOK_SYSTEM_TEXT(1150, "The program needs a newer system."),
    VOK_SYSTEM_TEXT(1154, "A library that the program needs is damaged."),
    VOK_SYSTEM_TEXT(1155, "No program is associated with this kind of file."),
    VOK_SYSTEM_TEXT(1157, "A library that the program needs was not found."),
    VOK_SYSTEM_TEXT(1167, "The device is not connected."),
    VOK_SYSTEM_TEXT(1168, "The element was not found."),
    VOK_SYSTEM_TEXT(1169, "Nothing matched the key."),
    VOK_SYSTEM_TEXT(1200, "The device's name is not valid."),
    VOK_SYSTEM_TEXT(1203, "No network answers for this path."),
    VOK_SYSTEM_TEXT(1208, "An extended error occurred."),
    VOK_SYSTEM_TEXT(1219, "The server is connected under another user name already."),
    VOK_SYSTEM_TEXT(1222, "There is no network."),
    VOK_SYSTEM_TEXT(1223, "The user cancelled the operation."),
    VOK_SYSTEM_TEXT(1224, "A part of the file is mapped into memory."),
    VOK_SYSTEM_TEXT(1225, "The other side refused the connection."),
    VOK_SYSTEM_TEXT(1229, "There is no such connection."),
    VOK_SYSTEM_TEXT(1231, "The network can't be reached."),
    VOK_SYSTEM_TEXT(1232, "The host can't be reached."),
    VOK_SYSTEM_TEXT(1234, "No service listens at that port."),
    VOK_SYSTEM_TEXT(1235, "The request was given up."),
    VOK_SYSTEM_TEXT(1236, "This side closed the connection."),
    VOK_SYSTEM_TEXT(1237, "The operation could not be finished and should be tried again."),
    VOK_SYSTEM_TEXT(1244, "The user has not been authenticated."),
    VOK_SYSTEM_TEXT(1245, "The user is not logged on to the network."),
    VOK_SYSTEM_TEXT(1247, "The initialisation was done before."),
    VOK_SYSTEM_TEXT(1265, "The server's identity could not be checked."),
    VOK_SYSTEM_TEXT(1295, "The disk quota is used up."),
    VOK_SYSTEM_TEXT(1300, "The caller was not given all of the privileges."),
    VOK_SYSTEM_TEXT(1305, "The revision is unknown."),
    VOK_SYSTEM_TEXT(1307, "This identifier can't own the object."),
    VOK_SYSTEM_TEXT(1309, "The thread must impersonate a client for this."),
    VOK_SYSTEM_TEXT(1313, "There is no such privilege."),
    VOK_SYSTEM_TEXT(1314, "The caller lacks a privilege that this needs."),
    VOK_SYSTEM_TEXT(1317, "There is no such user."),
    VOK_SYSTEM_TEXT(1326, "The user name or the password is wrong."),
    VOK_SYSTEM_TEXT(1327, "A rule of the account forbids this logon."),
    VOK_SYSTEM_TEXT(1330, "The password has expired."),
    VOK_SYSTEM_TEXT(1331, "The account is disabled."),
    VOK_SYSTEM_TEXT(1332, "A name could not be matched with an identifier."),
    VOK_SYSTEM_TEXT(1336, "The access control list is not valid."),
    VOK_SYSTEM_TEXT(1337, "The security identifier is not valid."),
    VOK_SYSTEM_TEXT(1338, "The security descriptor is not valid."),
    VOK_SYSTEM_TEXT(1346, "The needed level of impersonation is missing or wrong."),
    VOK_SYSTEM_TEXT(1355, "The domain can't be reached or is unknown."),
    VOK_SYSTEM_TEXT(1359, "An internal error occurred."),
    VOK_SYSTEM_TEXT(1385, "The user has no right to this kind of logon."),
    VOK_SYSTEM_TEXT(1392, "The file or directory is damaged and can't be read."),
    VOK_SYSTEM_TEXT(1393, "The disk's structure is damaged and can't be read."),
    VOK_SYSTEM_TEXT(1396, "The target's account name is wrong."),
    VOK_SYSTEM_TEXT(1450, "The system has too few resources for this service."),
    VOK_SYSTEM_TEXT(1453, "The quota of working memory is used up."),
    VOK_SYSTEM_TEXT(1455, "There is too little paging space."),
    VOK_SYSTEM_TEXT(1460, "The operation ran out of time."),
    VOK_SYSTEM_TEXT(1603, "The installation failed for good."),
    VOK_SYSTEM_TEXT(1618, "Another installation is under way."),
    VOK_SYSTEM_TEXT(1627, "The function failed."),
    VOK_SYSTEM_TEXT(1629, "The data have the wrong type."),
    VOK_SYSTEM_TEXT(1630, "Data of this type are not supported."),
    VOK_SYSTEM_TEXT(1722, "The RPC server can't be reached."),
    VOK_SYSTEM_TEXT(1723, "The RPC server is too busy."),
    VOK_SYSTEM_TEXT(1726, "The remote procedure call failed."),
    VOK_SYSTEM_TEXT(1784, "The caller's buffer can't be used for this."),
    VOK_SYSTEM_TEXT(1812, "The file holds no resources."),
    VOK_SYSTEM_TEXT(1813, "The file holds no resource of this type."),
    VOK_SYSTEM_TEXT(1814, "The file holds no resource of this name."),
    VOK_SYSTEM_TEXT(1815, "There is no resource in this language."),
    VOK_SYSTEM_TEXT(1816, "The quota is used up."),
    VOK_SYSTEM_TEXT(1909, "The account is locked."),
    VOK_SYSTEM_TEXT(1920, "The system can't access the file."),
    VOK_SYSTEM_TEXT(1921, "The file's name can't be resolved."),
    VOK_SYSTEM_TEXT(2202, "The user name is not valid."),
    VOK_SYSTEM_TEXT(2250, "There is no such network connection."),
    VOK_SYSTEM_TEXT(2404, "The device is in use."),
    VOK_SYSTEM_TEXT(4390, "The file is no reparse point."),
    VOK_SYSTEM_TEXT(4392, "The reparse point's data are not valid."),
    VOK_SYSTEM_TEXT(5023, "The resource is in the wrong state for this."),
    VOK_SYSTEM_TEXT(8224, "The directory service reports a failure of operation."),
    VOK_SYSTEM_TEXT(10004, "A blocking socket call was interrupted."),
    VOK_SYSTEM_TEXT(10013, "The socket's rights forbid this access."),
    VOK_SYSTEM_TEXT(10022, "A socket call got a wrong argument."),
    VOK_SYSTEM_TEXT(10024, "Too many sockets are open."),
    VOK_SYSTEM_TEXT(10035, "The socket has nothing to give at the moment."),
    VOK_SYSTEM_TEXT(10038, "The object is no socket."),
    VOK_SYSTEM_TEXT(10048, "The socket address is in use."),
    VOK_SYSTEM_TEXT(10049, "The socket address is not one of this host."),
    VOK_SYSTEM_TEXT(10051, "The socket's network can't be reached."),
    VOK_SYSTEM_TEXT(10053, "The connection was given up by this host."),
    VOK_SYSTEM_TEXT(10054, "The connection was reset by the other side."),
    VOK_SYSTEM_TEXT(10057, "The socket is not connected."),
    VOK_SYSTEM_TEXT(10060, "The other side of the connection did not answer in time."),
    VOK_SYSTEM_TEXT(10061, "The other side refused the socket's connection."),
    VOK_SYSTEM_TEXT(10065, "There is no route to the host."),
    VOK_SYSTEM_TEXT(11001, "There is no host of this name."),
    VOK_SYSTEM_TEXT(0x8000000A, "The data are not there yet."),
    VOK_SYSTEM_TEXT(0x80004001, "Not implemented."),
    VOK_SYSTEM_TEXT(0x80004002, "The object has no such interface."),
    VOK_SYSTEM_TEXT(0x80004003, "The pointer is not valid."),
    VOK_SYSTEM_TEXT(0x80004004, "The operation was aborted."),
    VOK_SYSTEM_TEXT(0x80004005, "The failure has no further description."),
    VOK_SYSTEM_TEXT(0x8000FFFF, "Something failed that was not expected to."),
    VOK_SYSTEM_TEXT(0x80010106, "The thread's mode was set before and can't be changed."),
    VOK_SYSTEM_TEXT(0x80020009, "An exception occurred in the called object."),
    VOK_SYSTEM_TEXT(0x80040110, "The class can't be made part of another object."),
    VOK_SYSTEM_TEXT(0x80040154, "The class is not registered."),
    VOK_SYSTEM_TEXT(0x800401F0, "COM has not been initialised."),
    VOK_SYSTEM_TEXT(0x800401F3, "The class text is not valid."),
};

#undef VOK_SYSTEM_TEXT

constexpr bool IsLess(SystemText const& left, SystemText const& right)
{
    return left.code < right.code;
}

static_assert(std::is_sorted(std::begin(systemTexts), std::end(systemTexts), IsLess));

std::string_view FindText(DWORD code)
{
    auto const* const end = std::end(systemTexts);
    auto const* const found = std::lower_bound(std::begin(systemTexts), end, SystemText{code, {}}, IsLess);
    return found != end && found->code == code ? found->text : std::string_view();
}

// Texts of the codes that occur most, by the code itself.
constexpr auto commonTexts = []
{
    std::array<std::uint8_t, 256> positions{};
    for (std::size_t i = 0; i < std::size(systemTexts) && systemTexts[i].code < positions.size(); ++i)
        positions[systemTexts[i].code] = static_cast<std::uint8_t>(i + 1);
    return positions;
}();

} // namespace

std::string_view SystemTextOf(DWORD code) noexcept
{
    constexpr DWORD win32Facility = 0x80070000;
    if ((code & 0xFFFF0000) == win32Facility)
        code &= 0xFFFF;
    if (code >= commonTexts.size())
        return FindText(code);
    auto const position = commonTexts[code];
    return position != 0 ? systemTexts[position - 1].text : std::string_view();
}

} // namespace Brindle::Vok::Platform

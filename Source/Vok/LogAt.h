// Statements of steps that several functions share, with the place that the caller gives instead of their own.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Log.h>

namespace Brindle::Vok::Detail
{

template <class Char, class... Arguments>
void LogAt(Location const& location, VokLogSeverity severity, Char const* format, Arguments const&... arguments)
{
    if (IsWanted(severity))
        Log(false, severity, location.file, location.function, location.line, FormatText(format, arguments...));
}

} // namespace Brindle::Vok::Detail

// What errors of the library say, held whole against what they must say.
//
//     ExpectLoggedFailure([] { VokLoadLibrary(nullptr); }, "VokWindows", "VokLoadLibrary", 87, "LoadLibrary Failed");
#pragma once

#include "LogRecorder.h"
#include "Thrown.h"

#include <Brindle/Vok/Error.h>

#include <gmock/gmock.h>

#include <string>

namespace Brindle::Vok::Testing
{

/// The message of an error without its line, of a source of the library and of a function in its namespace.
inline std::string FailureMessage(std::string const& source, std::string const& function, DWORD code,
                                  std::string const& text)
{
    return "Source/Vok/" + source + ".cpp: Brindle::Vok::" + function + ' ' + WindowsErrorToStringA(code) +
           " (Windows Error " + std::to_string(code) + ")." + (text.empty() ? "" : ' ' + text);
}

/// Holds code, category and whole message against the expectation.
inline void ExpectFailure(Error const& error, std::string const& source, std::string const& function, DWORD code,
                          std::string const& text)
{
    EXPECT_EQ(error.Failed(), code != 0);
    EXPECT_EQ(error.code(), std::error_code(static_cast<int>(code), std::system_category()));
    EXPECT_EQ(WithoutLine(error.Message()), FailureMessage(source, function, code, text));
}

/// The same for what a run throws: a WindowsError that was logged as the last error.
template <class Run>
void ExpectLoggedFailure(Run run, std::string const& source, std::string const& function, DWORD code,
                         std::string const& text)
{
    LogRecorder const recorder;
    auto const error = Thrown<WindowsError>(run);
    ExpectFailure(error, source, function, code, text);
    EXPECT_THAT(recorder.LinesWithFunction(),
                testing::Contains("Brindle::Vok::" + function + ": Throwing last error " + error.Message()));
    EXPECT_THAT(recorder.Lines(), testing::Contains("error: Throwing last error " + error.Message()));
}

} // namespace Brindle::Vok::Testing

// What a piece of code throws, and error messages without the number of the line that they come from.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <typeinfo>

namespace Brindle::Vok::Testing
{

/// The exception, which must be of this very type and not of one derived from it.
template <class Exception, class Run>
Exception Thrown(Run run)
{
    try
    {
        run();
    }
    catch (Exception const& exception)
    {
        EXPECT_EQ(typeid(exception), typeid(Exception));
        return exception;
    }
    throw std::logic_error("nothing was thrown");
}

/// "file.cpp(12): …" becomes "file.cpp: …".
inline std::string WithoutLine(std::string const& message)
{
    std::size_t const open = message.find('(');
    std::size_t const close = message.find(')', open);
    return close == std::string::npos ? message : message.substr(0, open) + message.substr(close + 1);
}

} // namespace Brindle::Vok::Testing

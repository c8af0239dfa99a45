// A variable of the process's environment that has another value, or none, for a while.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace Brindle::Vok::Testing
{

/// Sets or removes a variable of the host for one scope.
class HostVariable
{
public:
    HostVariable(std::string name, char const* value) : name(std::move(name))
    {
        if (char const* const found = getenv(this->name.c_str()))
            previous = found;
        Set(value);
    }
    ~HostVariable() { Set(previous ? previous->c_str() : nullptr); }
    HostVariable(HostVariable const&) = delete;
    HostVariable& operator=(HostVariable const&) = delete;

    void Set(char const* value) const
    {
        if (value != nullptr)
            setenv(name.c_str(), value, 1);
        else
            unsetenv(name.c_str());
    }

private:
    std::string name;
    std::optional<std::string> previous;
};

} // namespace Brindle::Vok::Testing

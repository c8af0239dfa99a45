// What an overload that throws does with the error of the one that assigns.
#pragma once

namespace Brindle::Vok::Detail
{

/// Throws a copy, of this type and no other, if the error records a failure.
template <class ErrorType>
void ThrowIfFailed(ErrorType const& error)
{
    if (error.Failed())
        throw ErrorType(error);
}

} // namespace Brindle::Vok::Detail

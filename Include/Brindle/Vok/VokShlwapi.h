// The checked form of the query for what is associated with a kind of file.
//
//     std::wstring const program = VokAssocQueryString(ASSOCF_NONE, ASSOCSTR_EXECUTABLE, L".txt", L"");
//
// It may be called from any thread. Not guaranteed: that what is associated is there and can be run.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Platform.h>

#include <string>

namespace Brindle::Vok
{

/// AssocQueryStringW: `assoc` is an extension such as ".txt", `extra` a verb or empty, `flags` has ASSOCF_ values and
/// `str` says what is asked for; both texts end at their first NUL. Empty when nothing is associated, as with an empty
/// `assoc`, and also when the text can't be had after its size was told. Throws ComError for every other answer to the
/// question for the size: 0x80070057 for flags or a question that the platform doesn't know, and S_OK too, whose
/// Failed() is false.
VOK_EXPORT std::wstring VokAssocQueryString(unsigned long flags, ASSOCSTR str, std::wstring assoc, std::wstring extra);

} // namespace Brindle::Vok

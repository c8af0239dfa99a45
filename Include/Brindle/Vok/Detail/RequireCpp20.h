// Included by every header before anything that an older language would stumble over, so that a compiler's first
// message names the cause.
#pragma once

#if defined _MSVC_LANG ? _MSVC_LANG < 202002L : __cplusplus < 202002L
#error Vok2 needs C++20: compile with -std=c++20 or a newer standard.
#endif

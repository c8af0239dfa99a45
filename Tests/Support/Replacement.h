// Puts a test in between the library and a call of the platform. The link names the call too: --wrap in CMakeLists.txt.
//
//     VOK_TEST_REPLACE(cancel, cancel(), BOOL, CancelIoEx, (HANDLE a, LPOVERLAPPED b), (a, b))
#pragma once

/// Gives the replacement while the condition holds, otherwise what the platform gives. Both may use the parameters.
#define VOK_TEST_REPLACE(condition, replacement, result, name, parameters, arguments)                                  \
    extern "C" result WINAPI __real_##name parameters noexcept;                                                        \
    extern "C" result WINAPI __wrap_##name parameters noexcept                                                         \
    {                                                                                                                  \
        return condition ? static_cast<result>(replacement) : __real_##name arguments;                                 \
    }

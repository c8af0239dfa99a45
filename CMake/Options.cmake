# What every target of this tree is compiled with: C++20, warnings as errors, source locations that read the same
# wherever the tree was built, and the sanitizers that were asked for.
add_library(Vok2Options INTERFACE)
target_compile_features(Vok2Options INTERFACE cxx_std_20)
cmake_path(RELATIVE_PATH PROJECT_SOURCE_DIR BASE_DIRECTORY ${CMAKE_BINARY_DIR} OUTPUT_VARIABLE sourceFromBuild)
target_compile_options(Vok2Options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual -Werror
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
    -fmacro-prefix-map=${sourceFromBuild}/= # ccache may make paths relative
    # A macro may be used with no variable argument at all.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
if(VOK2_SANITIZE)
    target_compile_options(Vok2Options INTERFACE -fsanitize=${VOK2_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    target_link_options(Vok2Options INTERFACE -fsanitize=${VOK2_SANITIZE})
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

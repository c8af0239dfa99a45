# What `cmake --install` lays down: the library, the headers of both floors, the package files of CMake and
# pkg-config. The tree may be moved as a whole afterwards, because every path in it is relative.
# A program at run time needs the component `runtime` alone.
include(CMakePackageConfigHelpers)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
set(packageDirectory ${CMAKE_INSTALL_LIBDIR}/cmake/Vok2)

install(TARGETS Vok2 EXPORT Vok2Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY Include/Brindle Platform/Include/Brindle
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

# gdb looks for this by itself when the prefix is /usr.
if(NOT VOK2_STATIC)
    install(FILES Debugger/printers.py DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
        RENAME libVok2.so.${PROJECT_VERSION}-gdb.py)
endif()

install(EXPORT Vok2Targets NAMESPACE Vok2:: DESTINATION ${packageDirectory})
configure_package_config_file(CMake/Vok2Config.cmake.in Vok2Config.cmake INSTALL_DESTINATION ${packageDirectory})
write_basic_package_version_file(Vok2ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/Vok2Config.cmake ${PROJECT_BINARY_DIR}/Vok2ConfigVersion.cmake
    DESTINATION ${packageDirectory})

# pkg-config finds the prefix from where its file stands; a directory that was given as an absolute path stays one.
set(pkgConfigDirectory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(ABSOLUTE_PATH pkgConfigDirectory BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE absoluteDirectory)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${absoluteDirectory} OUTPUT_VARIABLE wayToPrefix)
set(pkgConfigLibraries "\${prefix}")
cmake_path(APPEND pkgConfigLibraries ${CMAKE_INSTALL_LIBDIR})
set(pkgConfigHeaders "\${prefix}")
cmake_path(APPEND pkgConfigHeaders ${CMAKE_INSTALL_INCLUDEDIR})
configure_file(CMake/Vok2.pc.in Vok2.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/Vok2.pc DESTINATION ${pkgConfigDirectory})

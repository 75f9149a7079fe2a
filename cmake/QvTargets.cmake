# How this project builds and installs its libraries.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
# The libraries find each other, and the tools find them, wherever the installation is moved to.
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

find_program(QV_CCACHE ccache)
if(QV_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # What was compiled in one folder counts in another one, too.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
        "${QV_CCACHE}")
endif()

# The flags of everything that is built here; nothing of it reaches a user of the installation.
add_library(qv_flags INTERFACE)
# No program replaces single functions of these libraries at load time: calls inside them need no detour.
target_compile_options(qv_flags INTERFACE -fno-semantic-interposition -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${QV_WERROR}>:-Werror>)
if(QV_SANITIZER)
    target_compile_options(qv_flags INTERFACE -fsanitize=${QV_SANITIZER} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    target_link_options(qv_flags INTERFACE -fsanitize=${QV_SANITIZER})
endif()

# qv_install_library(TARGET HEADER_DESTINATION): installs a library, its headers and its CMake package.
function(qv_install_library target destination)
    install(TARGETS ${target} EXPORT ${target}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${destination} COMPONENT development)
    set(package ${CMAKE_INSTALL_LIBDIR}/cmake/${target})
    install(EXPORT ${target}Targets NAMESPACE ${target}:: DESTINATION ${package} COMPONENT development)
    include(CMakePackageConfigHelpers)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${target}Config.cmake.in
        ${PROJECT_BINARY_DIR}/packages/${target}Config.cmake INSTALL_DESTINATION ${package})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/packages/${target}ConfigVersion.cmake
        VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/packages/${target}Config.cmake
        ${PROJECT_BINARY_DIR}/packages/${target}ConfigVersion.cmake DESTINATION ${package}
        COMPONENT development)
endfunction()

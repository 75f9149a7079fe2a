# What cpack makes: four Debian packages, each of one installation component.
#   cmake --preset package && cmake --build --preset package && cpack --preset package

set(source ${PROJECT_SOURCE_DIR}/packaging)
file(STRINGS ${source}/changelog release LIMIT_COUNT 1)
if(NOT release MATCHES "^qvservices \\(${PROJECT_VERSION}\\)")
    message(FATAL_ERROR "packaging/changelog begins with another version than ${PROJECT_VERSION}: ${release}")
endif()

# Each package has its own folder of documents.
find_program(QV_GZIP gzip REQUIRED)
set(changelog ${PROJECT_BINARY_DIR}/packages/changelog.gz)
execute_process(COMMAND ${QV_GZIP} -9nc ${source}/changelog OUTPUT_FILE ${changelog}
    COMMAND_ERROR_IS_FATAL ANY)
function(qv_package component name section summary description)
    install(FILES ${changelog} ${source}/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    string(TOUPPER CPACK_DEBIAN_${component} package)
    set(${package}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(${package}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(${package}_DESCRIPTION "virtual tree of resources - ${summary}
Folders of the disk are mounted in one virtual tree of resources, so that
an id stays the same wherever the folder lies.
${description}" PARENT_SCOPE)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

qv_package(library libqvservices1 libs "libraries" "This package holds the libraries.")

qv_package(development libqvservices-dev libdevel "development files"
    "This package holds the headers, the CMake package, the pkg-config file and\nexamples.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libqvservices1 (= ${PROJECT_VERSION}), qtbase5-dev")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqvservices-dev
    COMPONENT development EXCLUDE_FROM_ALL)
install(FILES ${source}/libqvservices-dev.lintian DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
    RENAME libqvservices-dev COMPONENT development EXCLUDE_FROM_ALL)

if(TARGET qvres)
    qv_package(qvres qvres utils "command line"
        "This package holds the command-line host, its manual pages and completions.")
    set(CPACK_DEBIAN_QVRES_PACKAGE_DEPENDS "libqvservices1 (= ${PROJECT_VERSION})")
    set(CPACK_DEBIAN_QVRES_PACKAGE_SUGGESTS "qvservices-serve, bash-completion")
endif()
if(TARGET qvres-serve)
    qv_package(serve qvservices-serve utils "file system"
        "This package shows the tree as a file system (FUSE), so that every program\ncan use it.")
    set(CPACK_DEBIAN_SERVE_PACKAGE_DEPENDS "qvres (= ${PROJECT_VERSION}), fuse3")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qvservices)
set(CPACK_PACKAGE_CONTACT "QvServices maintainers <maintainers@qvservices.example>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What the programs need of other packages is found out by dpkg-shlibdeps, what they need of ours is listed above.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/platform/QvStd
    ${PROJECT_BINARY_DIR}/platform/QvConfig)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${source}/triggers)
include(CPack)

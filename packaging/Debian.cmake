# Two Debian packages: velto-server, and velto with the client for terminals.

foreach(package server client)
    set(name velto)
    if(package STREQUAL server)
        set(name velto-server)
        install(FILES debian/velto-server.default DESTINATION /etc/default RENAME velto-server COMPONENT server)
        install(FILES ${PROJECT_SOURCE_DIR}/docs/administration.md ${PROJECT_SOURCE_DIR}/docs/protocol.md
                DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT server)
    endif()
    add_custom_command(
        OUTPUT ${name}/changelog.Debian.gz
        COMMAND ${CMAKE_COMMAND} -E make_directory ${name}
        COMMAND sed -e "s/@PACKAGE@/${name}/" -e "s/@VERSION@/${PROJECT_VERSION}-1/"
                ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog.in | gzip -9n > ${name}/changelog.Debian.gz
        DEPENDS debian/changelog.in
        VERBATIM)
    add_custom_target(${package}_changelog ALL DEPENDS ${name}/changelog.Debian.gz)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}/changelog.Debian.gz debian/copyright
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${package})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velto)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "instant messaging for small organisations (VELTO)")
set(CPACK_PACKAGE_VENDOR "The VELTO developers")
set(CPACK_PACKAGE_CONTACT "The VELTO developers <velto@example.org>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL server client)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION net)

set(CPACK_DEBIAN_SERVER_PACKAGE_NAME velto-server)
set(CPACK_DEBIAN_SERVER_DESCRIPTION "The server: accounts, rooms, presence, messages that wait for their recipients.
One process, settings in one file, an embedded database or one on a server.")
# What the scripts need, and the libraries that are loaded late; the others are found by themselves.
set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS "adduser, libarchive13, libcurl4")
set(CPACK_DEBIAN_SERVER_PACKAGE_SUGGESTS "velto")
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm ${CMAKE_CURRENT_SOURCE_DIR}/debian/conffiles)
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME velto)
set(CPACK_DEBIAN_CLIENT_DESCRIPTION "The client for terminals: a chat with people and rooms,
and commands for scripts.")
include(CPack)

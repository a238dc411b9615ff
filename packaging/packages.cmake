# The two Debian packages, by CPack.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_SOURCE_DIR}/build/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL service service_debian dev dev_debian)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
file(STRINGS debian/changelog CHANGELOG_END REGEX "^ -- ")
list(GET CHANGELOG_END 0 CHANGELOG_END)
string(REGEX REPLACE "^ -- (.*>)  .*" "\\1" CPACK_DEBIAN_PACKAGE_MAINTAINER "${CHANGELOG_END}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own

set(CPACK_DEBIAN_SERVICE_PACKAGE_NAME ${SERVICE_PACKAGE})
set(CPACK_DEBIAN_SERVICE_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_SERVICE_PACKAGE_SUGGESTS "gnuplot-nox, prometheus-node-exporter")
if(CMAKE_CROSSCOMPILING)
    # The libraries' own lists of symbols are not at hand; the native package's dependencies are.
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
    set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS ${SERVICE_DEPENDS})
else()
    set(CPACK_DEBIAN_SERVICE_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_SERVICE_DESCRIPTION
    "audio master clocks from a Si5351A, trimmed to the stream
Resident service for an audio board whose three master clocks come from a
Si5351A clock generator on I2C bus 1. Programs set the sample rate of a
channel, and trim its clock by a few ppm a step until the FIFO of a stream
keeps its level, by datagrams on the loopback interface. A person does so by
text commands in a named pipe.")
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/conffiles ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst
    ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${DEV_PACKAGE})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS liblog4cpp5-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS ${SERVICE_PACKAGE})
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "commands to the Si5351A clock service, for C++ programs
Static libraries, headers, pkg-config files and CMake packages for a program
that sets and trims the audio master clocks of the board: genlock, which
finds from the fill of a FIFO when to trim, si5351_client, the calls that
command the clock service, and vx_net, the socket helper library below them.
The protocol and the status file are described, with examples.")

# A file without a component, or with one of another name, would be in no package.
get_cmake_property(outside COMPONENTS)
list(REMOVE_ITEM outside ${CPACK_COMPONENTS_ALL})
if(outside)
    message(FATAL_ERROR "installed, but in no package: files of the component ${outside}")
endif()

include(CPack)
foreach(part service dev)
    cpack_add_component(${part} GROUP ${part})
    cpack_add_component(${part}_debian GROUP ${part})
endforeach()

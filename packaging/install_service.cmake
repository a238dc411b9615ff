# Run when the service is installed, because both files depend on where that is: the unit names the
# program, and the logging file has one place however the rest is installed.
set(UNIT_DIR ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
configure_file(${SOURCE_DIR}/packaging/si5351_app.service.in ${BINARY_DIR}/si5351_app.service @ONLY)
file(INSTALL ${BINARY_DIR}/si5351_app.service DESTINATION ${UNIT_DIR})

# A private prefix is somebody's trial: nothing outside of it may change.
set(LOGGING_DIR /config/logconf)
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/(usr(/local)?)?/?$")
    set(LOGGING_DIR ${CMAKE_INSTALL_PREFIX}/config/logconf)
    message(STATUS "The service reads its logging file from /config/logconf: put it there")
endif()
# On a live system the file may carry somebody's changes.
if(EXISTS ${LOGGING_DIR}/si5351_app.conf AND NOT DEFINED ENV{DESTDIR})
    message(STATUS "Kept: ${LOGGING_DIR}/si5351_app.conf")
else()
    file(INSTALL ${SOURCE_DIR}/config/si5351_app.conf DESTINATION ${LOGGING_DIR})
endif()

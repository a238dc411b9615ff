# Run when the service is installed, because the files depend on where that is: the units name their
# programs, and the logging file has one place however the rest is installed.
set(UNIT_DIR ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
foreach(unit si5351_app si5351ctl-metrics)
    configure_file(${SOURCE_DIR}/packaging/${unit}.service.in ${BINARY_DIR}/${unit}.service @ONLY)
    file(INSTALL ${BINARY_DIR}/${unit}.service DESTINATION ${UNIT_DIR})
endforeach()

set(LOGGING_DIR /config/logconf)
set(LEFT_TO_DO "systemctl daemon-reload && systemctl enable --now si5351_app")
# A private prefix is somebody's trial: nothing outside of it may change.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^/(usr(/local)?)?/?$")
    set(LOGGING_DIR ${CMAKE_INSTALL_PREFIX}/config/logconf)
    set(LEFT_TO_DO "modprobe i2c-dev && mkdir -p /run/si5351_app /config/logconf && \
cp -n ${LOGGING_DIR}/si5351_app.conf /config/logconf && \
${CMAKE_INSTALL_PREFIX}/${PROGRAM_DIR}/si5351_app")
endif()
# On a live system the file may carry somebody's changes.
if(EXISTS ${LOGGING_DIR}/si5351_app.conf AND NOT DEFINED ENV{DESTDIR})
    message(STATUS "Kept: ${LOGGING_DIR}/si5351_app.conf")
else()
    file(INSTALL ${SOURCE_DIR}/config/si5351_app.conf DESTINATION ${LOGGING_DIR})
endif()
if(NOT DEFINED ENV{DESTDIR})
    message(STATUS "To start the service, as root: ${LEFT_TO_DO}")
endif()

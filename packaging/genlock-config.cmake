include(${CMAKE_CURRENT_LIST_DIR}/genlock-targets.cmake)

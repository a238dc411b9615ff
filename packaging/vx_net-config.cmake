include(${CMAKE_CURRENT_LIST_DIR}/vx_net-targets.cmake)

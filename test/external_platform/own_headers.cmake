# The platform of platform.cmake with a configuration library whose header is its own; see docs/platform.md.
include(${CMAKE_CURRENT_LIST_DIR}/platform.cmake)
target_include_directories(xpon_cfgdb BEFORE PUBLIC ${CMAKE_CURRENT_LIST_DIR}/own_headers)

# A platform from outside, as small as it can be: what the daemon is linked with here is all that it uses of one. It does
# nothing; scripts/check external builds it. A board's own libraries come in the same way, see docs/platform.md.
foreach(library logger ipc cfgdb service system_wrapper config_writer)
  add_library(xpon_${library} STATIC ${CMAKE_CURRENT_LIST_DIR}/${library}.cpp)
  target_compile_features(xpon_${library} PRIVATE cxx_std_20)
  target_include_directories(xpon_${library} PUBLIC ${CMAKE_SOURCE_DIR}/platform/${library}/include)
  target_link_libraries(xpon_${library} PUBLIC xpon_core)
endforeach()
target_sources(xpon_cfgdb PRIVATE ${CMAKE_CURRENT_LIST_DIR}/cfgdb_plain.c)
target_link_libraries(xpon_service PUBLIC xpon_ipc xpon_cfgdb)

add_executable(module-files ${CMAKE_CURRENT_LIST_DIR}/module_files.cpp)
target_compile_features(module-files PRIVATE cxx_std_20)
target_link_libraries(module-files PRIVATE log_config)

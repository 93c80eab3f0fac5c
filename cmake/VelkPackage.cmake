# What cmake --install gives a host: the installed front (every header of include/velk/), the two
# shared libraries behind it and the CMake package VelkAppleHealth that finds them.
#
#   VelkAppleHealth::velk     libvelk.so, the C interface (velk.h); built in src/capi
#   VelkAppleHealth::velk++   libvelk++.so, the C++ front: the extraction manager, permission
#                             requests, the documents, the device and its configuration, import,
#                             the day table
#
# libvelk++ is made of the subsystem libraries' objects, so that it holds every class the front
# names, whether or not the front itself calls it. The parsers and stores it uses inside (ICU,
# SQLite, libzip, pugixml) stay its own business: a host needs only nlohmann_json, for the
# documents' dictionary forms.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VELK_FRONT_PARTS velk_platform velk_documents velk_healthstore velk_extraction velk_sleep
  velk_physical velk_body velk_interface velk_ingest velk_table)
add_library(velk_cxx SHARED)
add_library(VelkAppleHealth::velk++ ALIAS velk_cxx)
foreach(part IN LISTS VELK_FRONT_PARTS)
  target_sources(velk_cxx PRIVATE $<TARGET_OBJECTS:${part}>)
endforeach()
set_target_properties(velk_cxx PROPERTIES
  OUTPUT_NAME velk++
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  EXPORT_NAME velk++)
target_include_directories(velk_cxx INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(velk_cxx INTERFACE cxx_std_20)
# The parts' own dependencies come with them; the objects above already define what the parts'
# archives would add.
target_link_libraries(velk_cxx PUBLIC nlohmann_json::nlohmann_json PRIVATE velk_interface
  velk_ingest)
# pugixml is linked in statically; its symbols are not part of what the library offers.
target_link_options(velk_cxx PRIVATE -Wl,--exclude-libs,libpugixml.a)
if(NOT VELK_SANITIZE AND NOT VELK_BUILD_FUZZERS)
  target_link_options(velk_cxx PRIVATE -Wl,--no-undefined)
endif()

set(VELK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelkAppleHealth)
install(TARGETS velk_cxx EXPORT VelkAppleHealthTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/velk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(EXPORT VelkAppleHealthTargets
  NAMESPACE VelkAppleHealth::
  DESTINATION ${VELK_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VelkAppleHealthConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelkAppleHealthConfig.cmake
  INSTALL_DESTINATION ${VELK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelkAppleHealthConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/VelkAppleHealthConfig.cmake
  ${PROJECT_BINARY_DIR}/VelkAppleHealthConfigVersion.cmake
  DESTINATION ${VELK_CMAKE_DIR})

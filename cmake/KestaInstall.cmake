# Installs both libraries, the headers under include/kesta/, a CMake package that gives
# kesta::kesta and kesta::support, and a pkg-config file.
include(CMakePackageConfigHelpers)

foreach(dir support record view search fieldmap container expr)
  file(GLOB _hdrs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.h)
  list(FILTER _hdrs EXCLUDE REGEX "Private\\.h$")
  install(FILES ${_hdrs} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kesta/${dir})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/include/kesta/kesta.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kesta)

install(TARGETS kestasupport kesta EXPORT kestaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT kestaTargets NAMESPACE kesta:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kesta)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kestaConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kestaConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kesta)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kestaConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kestaConfig.cmake ${PROJECT_BINARY_DIR}/kestaConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kesta)

configure_file(${PROJECT_SOURCE_DIR}/cmake/kesta.pc.in ${PROJECT_BINARY_DIR}/kesta.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kesta.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

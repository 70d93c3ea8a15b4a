# What is installed: library, header, CMake package and pkg-config file, all relocatable; and the Debian package of it.

include(CMakePackageConfigHelpers)

set(targets cvsd_qor)
if(TARGET cvsd_qor_static)
  list(APPEND targets cvsd_qor_static)
endif()
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/cvsd_qor)

install(FILES include/cvsd_qor.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ${targets} EXPORT cvsd_qor)
if(soname_link)
  install(FILES ${soname_link} DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()

# The targets depend on no other package, so their export serves as the package's configuration file.
install(EXPORT cvsd_qor NAMESPACE cvsd_qor:: FILE cvsd_qor-config.cmake DESTINATION ${package_dir})
write_basic_package_version_file(cvsd_qor-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cvsd_qor-config-version.cmake DESTINATION ${package_dir})

cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE libdir)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
  OUTPUT_VARIABLE includedir)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  OUTPUT_VARIABLE up)
configure_file(cmake/cvsd_qor.pc.in cvsd_qor.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cvsd_qor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
# The trigger updates the loader's cache when the package is installed.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libcvsd-qor)
set(CPACK_PACKAGE_CONTACT "The libcvsd_qor developers <libcvsd-qor@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_DEPENDS libc6)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

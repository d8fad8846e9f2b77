# What is installed: the libraries, their public headers, and what CMake and pkg-config need to find them.
# A host that builds this project inside its own has the targets already.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

include(CMakePackageConfigHelpers)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/Multimedia)

# Two sets, since a host may bring a base library of its own.
install(TARGETS quillon_base EXPORT QuillonTargets FILE_SET HEADERS)
install(TARGETS multimedia EXPORT MultimediaTargets FILE_SET HEADERS)
install(EXPORT QuillonTargets NAMESPACE Quillon:: DESTINATION ${package_directory})
install(EXPORT MultimediaTargets NAMESPACE Multimedia:: DESTINATION ${package_directory})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/MultimediaConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfig.cmake
  INSTALL_DESTINATION ${package_directory} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfigVersion.cmake
        DESTINATION ${package_directory})

# The way from the file to the prefix, so that an installed tree may be moved.
file(RELATIVE_PATH pkgconfig_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/multimedia.pc.in ${CMAKE_CURRENT_BINARY_DIR}/multimedia.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/multimedia.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# What is installed: the libraries (component runtime), and their public headers with what CMake, pkg-config and QML's
# tools need to find them (component development).
# A host that builds this project inside its own has the targets already.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

include(CMakePackageConfigHelpers)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/Multimedia)
set(qml_directory ${CMAKE_INSTALL_LIBDIR}/qt5/qml)

# Two sets, since a host may bring a base library of its own.
foreach(target_set IN ITEMS "quillon_base;Quillon" "multimedia;Multimedia")
  list(GET target_set 0 target)
  list(GET target_set 1 namespace)
  install(TARGETS ${target} EXPORT ${namespace}Targets
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    FILE_SET HEADERS COMPONENT development)
  install(EXPORT ${namespace}Targets NAMESPACE ${namespace}:: DESTINATION ${package_directory} COMPONENT development)
endforeach()

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/MultimediaConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfig.cmake
  INSTALL_DESTINATION ${package_directory} PATH_VARS qml_directory NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/MultimediaConfigVersion.cmake
        DESTINATION ${package_directory} COMPONENT development)

# The way from the file to the prefix, so that an installed tree may be moved.
file(RELATIVE_PATH pkgconfig_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/multimedia.pc.in ${CMAKE_CURRENT_BINARY_DIR}/multimedia.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/multimedia.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(TARGET qmltypes)
  install(FILES ${PROJECT_SOURCE_DIR}/multimedia/qmltypes/qmldir
                ${PROJECT_BINARY_DIR}/multimedia/qmltypes/plugins.qmltypes
          DESTINATION ${qml_directory}/Quillon COMPONENT development)
endif()

include(DebianPackages)

# `cpack -G DEB`: libmultimedia0 and libmultimedia-dev.

# Beside the libraries that libmultimedia0 is linked with, which dpkg-shlibdeps finds: what it loads at run time ...
set(loaded_packages
  libqt5multimedia5-plugins # QAudioInput and QAudioOutput know no device without
)
# ... and what some subjects do without, with a line in the log: a program they run, a server they talk to.
set(recommended_packages
  "ffmpeg" # the programs that convert videos and GIFs
  "pipewire-bin" # what libpipewire loads to see a screen of a Wayland desktop
  "pocketsphinx-en-us" # the model of speech recognition
  "pulseaudio | pipewire-pulse"
)
# What the public headers include, and MultimediaConfig.cmake looks for.
set(header_packages
  "qtbase5-dev (>= 5.15)"
  "qtdeclarative5-dev (>= 5.15)"
  "qtmultimedia5-dev (>= 5.15)"
)

set(runtime_package libmultimedia${PROJECT_VERSION_MAJOR})
set(development_package libmultimedia-dev)

# What every Debian package has, and an installation by hand does not want.
set(debian_directory ${CMAKE_CURRENT_LIST_DIR}/debian)
find_program(GZIP gzip REQUIRED)
execute_process(COMMAND ${GZIP} -9nc ${debian_directory}/changelog
  OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN ITEMS runtime development)
  install(FILES ${debian_directory}/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}_package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
install(FILES ${debian_directory}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME ${runtime_package} COMPONENT runtime EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libmultimedia)
set(CPACK_PACKAGE_VENDOR "The libmultimedia maintainers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The libmultimedia maintainers <maintainers@libmultimedia.invalid>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

list(JOIN loaded_packages ", " CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS)
list(JOIN recommended_packages ", " CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/quillon)
# Below the first line, which is the project's description.
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Plays, records, converts and edits what such a client shows: voice messages,
screen recordings, videos, GIFs and pictures, with faces found and blurred.
It has no window of its own: a Qt 5 application drives it from QML and C++.")

list(JOIN header_packages ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS)
string(PREPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION}), ")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Headers, and what CMake, pkg-config and the tools of QML need to build a client
that uses libmultimedia.")

include(CPack)

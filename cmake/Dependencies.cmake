# Everything the library calls, found once.

find_package(Qt5 5.15 REQUIRED COMPONENTS Core Gui Qml Quick Multimedia Concurrent DBus)
find_package(PkgConfig REQUIRED)
pkg_check_modules(FFmpeg REQUIRED IMPORTED_TARGET
  libavformat libavcodec libavfilter libavdevice libavutil libswscale libswresample)
pkg_check_modules(SpeexDsp REQUIRED IMPORTED_TARGET speexdsp)
pkg_check_modules(Opus REQUIRED IMPORTED_TARGET opus)
pkg_check_modules(SoundTouch REQUIRED IMPORTED_TARGET soundtouch)

# Sonic comes without a pkg-config file.
find_path(SONIC_INCLUDE_DIR sonic.h REQUIRED)
find_library(SONIC_LIBRARY sonic REQUIRED)
add_library(Sonic::Sonic INTERFACE IMPORTED)
target_include_directories(Sonic::Sonic INTERFACE ${SONIC_INCLUDE_DIR})
target_link_libraries(Sonic::Sonic INTERFACE ${SONIC_LIBRARY})
pkg_check_modules(Pulse REQUIRED IMPORTED_TARGET libpulse)
pkg_check_modules(Udev REQUIRED IMPORTED_TARGET libudev)
pkg_check_modules(Xcb REQUIRED IMPORTED_TARGET xcb)
# Screens of Wayland desktops. Without it a recording there is refused.
pkg_check_modules(PipeWire IMPORTED_TARGET libpipewire-0.3)

# pocketsphinx's pkg-config file names a folder that is not there.
find_path(POCKETSPHINX_INCLUDE_DIR pocketsphinx.h PATH_SUFFIXES pocketsphinx REQUIRED)
find_path(SPHINXBASE_INCLUDE_DIR sphinxbase/cmd_ln.h REQUIRED)
find_library(POCKETSPHINX_LIBRARY pocketsphinx REQUIRED)
find_library(SPHINXBASE_LIBRARY sphinxbase REQUIRED)
add_library(PocketSphinx::PocketSphinx INTERFACE IMPORTED)
target_include_directories(PocketSphinx::PocketSphinx INTERFACE
  ${POCKETSPHINX_INCLUDE_DIR} ${SPHINXBASE_INCLUDE_DIR} ${SPHINXBASE_INCLUDE_DIR}/sphinxbase)
target_link_libraries(PocketSphinx::PocketSphinx INTERFACE ${POCKETSPHINX_LIBRARY} ${SPHINXBASE_LIBRARY})
pkg_get_variable(POCKETSPHINX_MODEL_DIR pocketsphinx modeldir) # read at run time

# Everything the library calls, found once.

find_package(Qt5 5.15 REQUIRED COMPONENTS Core Gui Qml Quick Multimedia Concurrent)
find_package(PkgConfig REQUIRED)
pkg_check_modules(FFmpeg REQUIRED IMPORTED_TARGET
  libavformat libavcodec libavfilter libavdevice libavutil libswscale libswresample)
pkg_check_modules(SpeexDsp REQUIRED IMPORTED_TARGET speexdsp)
pkg_check_modules(SoundTouch REQUIRED IMPORTED_TARGET soundtouch)

# Sonic comes without a pkg-config file.
find_path(SONIC_INCLUDE_DIR sonic.h REQUIRED)
find_library(SONIC_LIBRARY sonic REQUIRED)
add_library(Sonic::Sonic INTERFACE IMPORTED)
target_include_directories(Sonic::Sonic INTERFACE ${SONIC_INCLUDE_DIR})
target_link_libraries(Sonic::Sonic INTERFACE ${SONIC_LIBRARY})
pkg_check_modules(Pulse REQUIRED IMPORTED_TARGET libpulse)
pkg_check_modules(Udev REQUIRED IMPORTED_TARGET libudev)

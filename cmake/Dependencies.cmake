# Everything the library calls, found once.

find_package(Qt5 5.15 REQUIRED COMPONENTS Core Gui Qml Quick Multimedia Concurrent)
find_package(PkgConfig REQUIRED)
pkg_check_modules(FFmpeg REQUIRED IMPORTED_TARGET
  libavformat libavcodec libavfilter libavdevice libavutil libswscale libswresample)
pkg_check_modules(Pulse REQUIRED IMPORTED_TARGET libpulse)
pkg_check_modules(Udev REQUIRED IMPORTED_TARGET libudev)

# Warnings, sanitizers and ccache for every target of the project.

add_library(multimedia_compiler_settings INTERFACE)
# PipeWire's macros are GNU C, which clang names one by one.
target_compile_options(multimedia_compiler_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual
  $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wno-gnu-zero-variadic-macro-arguments>
  $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-statement-expression;-Wno-c99-extensions>
  $<$<BOOL:${MULTIMEDIA_WARNINGS_AS_ERRORS}>:-Werror>)
# No implicit conversions between bytes and text: every QString is made from UTF-8 or Latin-1 on purpose.
target_compile_definitions(multimedia_compiler_settings INTERFACE
  QT_NO_KEYWORDS QT_NO_CAST_TO_ASCII QT_NO_FOREACH QT_USE_QSTRINGBUILDER)

if(MULTIMEDIA_SANITIZE)
  add_compile_options(-fsanitize=${MULTIMEDIA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${MULTIMEDIA_SANITIZE})
endif()

# What a fuzzer sees of the library's branches.
if(MULTIMEDIA_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

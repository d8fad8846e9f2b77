# multimedia_link_tools(TARGET): links the packaged `ffmpeg` and `ffprobe` into the folder of the program TARGET, where
# the library looks for the programs that convert media.
function(multimedia_link_tools TARGET)
  foreach(tool IN ITEMS ffmpeg ffprobe)
    find_program(tool_${tool} ${tool} REQUIRED)
    add_custom_command(TARGET ${TARGET} POST_BUILD VERBATIM
      COMMAND ${CMAKE_COMMAND} -E create_symlink ${tool_${tool}} $<TARGET_FILE_DIR:${TARGET}>/${tool})
  endforeach()
endfunction()

# Makes the packages of a build and unpacks both into ROOT, and the one without the window into ROOT-console, too.
file(REMOVE_RECURSE ${ROOT} ${ROOT}-console ${ROOT}.made)
execute_process(COMMAND ${CPACK} --config ${BUILD}/CPackConfig.cmake -B ${ROOT}.made WORKING_DIRECTORY ${BUILD}
                COMMAND_ERROR_IS_FATAL ANY)
file(GLOB packages ${ROOT}.made/*.deb)
foreach(package IN LISTS packages)
  string(REGEX REPLACE "^.*/([^_]+)_[^/]*$" "\\1" name ${package})
  execute_process(COMMAND ${DPKG_DEB} -x ${package} ${ROOT} COMMAND_ERROR_IS_FATAL ANY)
  if(name STREQUAL project-share)
    execute_process(COMMAND ${DPKG_DEB} -x ${package} ${ROOT}-console COMMAND_ERROR_IS_FATAL ANY)
  endif()
  execute_process(COMMAND ${DPKG_DEB} -f ${package} OUTPUT_FILE ${ROOT}/${name}.control COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(REMOVE_RECURSE ${ROOT}.made)

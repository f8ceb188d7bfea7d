# Makes the package of a build and unpacks it into ROOT.
file(REMOVE_RECURSE ${ROOT} ${ROOT}.made)
execute_process(COMMAND ${CPACK} --config ${BUILD}/CPackConfig.cmake -B ${ROOT}.made WORKING_DIRECTORY ${BUILD}
                COMMAND_ERROR_IS_FATAL ANY)
file(GLOB packages ${ROOT}.made/*.deb)
execute_process(COMMAND ${DPKG_DEB} -x ${packages} ${ROOT} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${DPKG_DEB} -f ${packages} Depends OUTPUT_FILE ${ROOT}/Depends COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE_RECURSE ${ROOT}.made)

# The system's configuration lies beside /usr, not in it; any other prefix has an etc of its own.
cmake_path(GET CMAKE_INSTALL_PREFIX FILENAME last)
set(etc "${CMAKE_INSTALL_PREFIX}/etc")
if(last STREQUAL usr)
  cmake_path(GET CMAKE_INSTALL_PREFIX PARENT_PATH root)
  cmake_path(APPEND root etc OUTPUT_VARIABLE etc)
endif()
file(INSTALL "${ufw_profile}" DESTINATION "${etc}/ufw/applications.d")

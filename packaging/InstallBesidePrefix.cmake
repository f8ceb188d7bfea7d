# What lies elsewhere in the system's own /usr (or a package's) than in another prefix: the configuration lies beside /usr,
# not in it; and a distribution's completions of zsh have a folder of their own.
cmake_path(GET CMAKE_INSTALL_PREFIX FILENAME last)
set(etc "${CMAKE_INSTALL_PREFIX}/etc")
set(zsh "${CMAKE_INSTALL_PREFIX}/share/zsh/site-functions")
if(last STREQUAL usr)
  cmake_path(GET CMAKE_INSTALL_PREFIX PARENT_PATH root)
  cmake_path(APPEND root etc OUTPUT_VARIABLE etc)
  set(zsh "${CMAKE_INSTALL_PREFIX}/share/zsh/vendor-completions")
endif()
file(INSTALL "${ufw_profile}" DESTINATION "${etc}/ufw/applications.d")
file(INSTALL "${zsh_completion}" DESTINATION "${zsh}" RENAME _kv_share)

# What lies elsewhere in the system's own /usr (or a package's) than in another prefix: the configuration lies beside /usr,
# not in it; and a distribution's completions of zsh have a folder of their own.
set(etc "${CMAKE_INSTALL_PREFIX}/etc")
set(zsh site-functions)
if(CMAKE_INSTALL_PREFIX MATCHES "^(.*)/usr/?$")
  set(etc "${CMAKE_MATCH_1}/etc")
  set(zsh vendor-completions)
endif()
file(INSTALL "${ufw_profile}" DESTINATION "${etc}/ufw/applications.d")
file(INSTALL "${zsh_completion}" DESTINATION "${CMAKE_INSTALL_PREFIX}/share/zsh/${zsh}" RENAME _kv_share)

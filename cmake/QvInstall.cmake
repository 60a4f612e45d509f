# Nothing of a developer's build is installed but the client library (component "library"): its
# service trusts an authority in the build tree and accepts programs that their users can take over,
# so at a machine's own socket it would give root to everyone.
#
# A folder calls this before its rules: they are carried out in their order, and each folder can be
# installed by itself.
function(qv_guard_install)
  configure_file("${CMAKE_SOURCE_DIR}/cmake/guard-install.cmake.in" guard-install.cmake @ONLY)
  install(SCRIPT "${CMAKE_CURRENT_BINARY_DIR}/guard-install.cmake" ALL_COMPONENTS)
endfunction()

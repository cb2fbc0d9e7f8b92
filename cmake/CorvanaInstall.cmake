# The installed layout (any prefix; FHS): programs in bin, the helper and the privileged runner in
# libexec/corvana, the program's data in share/corvana, and the desktop's files where desktops
# look for them. The build tree mirrors bin/libexec/share so that it runs as it is.
set(share ${PROJECT_SOURCE_DIR}/share)

install(TARGETS corvana corvana-cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS corvana-privileged-runner RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/corvana)
install(FILES ${share}/applications/org.corvana.Corvana.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${share}/metainfo/org.corvana.Corvana.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(DIRECTORY ${share}/icons/hicolor DESTINATION ${CMAKE_INSTALL_DATADIR}/icons)
# The polkit action names the runner by its installed path: made at install time, for the prefix
# given then (cmake --install --prefix, CPack).
install(CODE "
  set(CORVANA_RUNNER_PATH \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}/corvana/corvana-privileged-runner\")
  configure_file(\"${share}/polkit/org.corvana.Corvana.policy.in\"
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/polkit-1/actions/org.corvana.Corvana.policy\" @ONLY)
  message(STATUS \"Installing: \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/polkit-1/actions/org.corvana.Corvana.policy\")
")
file(GLOB dbus_interfaces ${share}/dbus/*.xml)
install(FILES ${dbus_interfaces} DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces)
install(FILES ${share}/man/corvana.1 ${share}/man/corvana-cli.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${share}/completion/corvana-cli.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME corvana-cli)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/corvana RENAME copyright)

# share/corvana: what the program reads at run time (help pages, sounds), kept in the build tree too.
foreach(folder help sounds)
  if(EXISTS ${share}/${folder})
    install(DIRECTORY ${share}/${folder} DESTINATION ${CMAKE_INSTALL_DATADIR}/corvana)
    file(GLOB_RECURSE data_files CONFIGURE_DEPENDS ${share}/${folder}/*)
    add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/share/corvana/${folder}.stamp
      COMMAND ${CMAKE_COMMAND} -E copy_directory ${share}/${folder} ${CMAKE_BINARY_DIR}/share/corvana/${folder}
      COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/share/corvana/${folder}.stamp
      DEPENDS ${data_files} VERBATIM)
    list(APPEND data_stamps ${CMAKE_BINARY_DIR}/share/corvana/${folder}.stamp)
  endif()
endforeach()
if(data_stamps)
  add_custom_target(corvana_data ALL DEPENDS ${data_stamps})
endif()

# A Debian package: `cpack -G DEB` in the build folder. Its library dependencies come from
# dpkg-shlibdeps; the rest are the packages the program starts or loads by name.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvana)
set(CPACK_PACKAGE_VENDOR "The Corvana developers")
set(CPACK_PACKAGE_CONTACT "The Corvana developers <bugs@corvana.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "spread a large music library over several drives, and bring it back")
set(CPACK_PACKAGE_DESCRIPTION "Corvana spans the media files of a music player's library over other drives and
folders and restores them, while keeping the player pointed at every file's current place.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://corvana.org/)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pkexec, trash-cli, fonts-dejavu-core")
include(CPack)

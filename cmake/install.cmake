# Where the file system hierarchy has it. The plugin lies beside the host's library, by which the agent finds it.
include(GNUInstallDirs)
set(home ${CMAKE_INSTALL_LIBDIR}/ovix)
file(RELATIVE_PATH from_programs /${CMAKE_INSTALL_BINDIR} /${home})
set_target_properties(ovix-agent ovixctl ovix-fpm PROPERTIES INSTALL_RPATH "$ORIGIN/${from_programs}")
set_target_properties(OvixHost MplsOvixPlugin PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ovix-agent ovixctl ovix-fpm RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS OvixHost MplsOvixPlugin LIBRARY DESTINATION ${home})
if(TARGET OvixDpdk)
  set_target_properties(OvixDpdk PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS OvixDpdk LIBRARY DESTINATION ${home})
endif()

set(units ${CMAKE_BINARY_DIR}/generated/units)
foreach(unit ovix-agent@ ovix-fpm)
  configure_file(packaging/systemd/${unit}.service.in ${units}/${unit}.service @ONLY)
endforeach()
install(DIRECTORY ${units}/ DESTINATION lib/systemd/system)
install(FILES packaging/systemd/sysusers.conf DESTINATION lib/sysusers.d RENAME ovix.conf)
install(FILES packaging/systemd/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME ovix.conf)
install(DIRECTORY packaging/default/ DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/default)
install(DIRECTORY DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/ovix)

install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

# What the programs print themselves: manual pages, the reference, completion.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(printed ${CMAKE_BINARY_DIR}/printed)
install(CODE "
  set(ENV{PYTHONDONTWRITEBYTECODE} 1)
  execute_process(COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/reference.py ${CMAKE_BINARY_DIR}/bin ${printed}
                  COMMAND_ERROR_IS_FATAL ANY)
")
install(DIRECTORY ${printed}/man1 ${printed}/man5 DESTINATION ${CMAKE_INSTALL_MANDIR})
install(FILES ${printed}/reference.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY ${printed}/bash/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(DIRECTORY ${printed}/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

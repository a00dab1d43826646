# Installs the library with its CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS moncl EXPORT moncl)
install(FILES ${moncl_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/moncl)
install(EXPORT moncl NAMESPACE moncl:: FILE moncl_targets.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/moncl)
configure_file(cmake/moncl-config.cmake.in moncl-config.cmake @ONLY)
write_basic_package_version_file(moncl-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/moncl-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/moncl-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/moncl)
# Whoever links the static library has to link what it needs.
set(MONCL_PC_REQUIRES Requires)
if(BUILD_SHARED_LIBS)
  set(MONCL_PC_REQUIRES Requires.private)
endif()
configure_file(cmake/moncl.pc.in moncl.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/moncl.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(MONCL_BUILD_PROGRAMS)
  set(documented moncl monsrv)
  if(MONCL_EXPORTER)
    list(APPEND documented moncl-exporter)
    install(FILES man/moncl-exporter.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
  install(FILES man/moncl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES man/monsrv.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  # bash looks for a file of the program's name.
  foreach(program IN LISTS documented)
    install(FILES completions/moncl.bash RENAME ${program}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  endforeach()
endif()

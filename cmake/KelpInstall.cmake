# What `cmake --install` puts where: the library with its versions, the public headers, the CMake
# package, the pkg-config file, and the command-line program with its manual page and completions. The
# installed tree may be moved as a whole: nothing in it names the place that it was installed to. (The
# library's run path names the folder of the platform's log library, which stays where it is.)

include(CMakePackageConfigHelpers)

if(TARGET kelp-diagnostics)
  set(kelp_program_rpath "${AndroidLog_LIBRARY_DIR}")
  if(KELP_RELOCATABLE)
    # Where the library is, seen from the program. The folders may have been given as absolute paths.
    file(RELATIVE_PATH kelp_libdir_from_bindir "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    list(PREPEND kelp_program_rpath "$ORIGIN/${kelp_libdir_from_bindir}")
  endif()
  set_target_properties(kelp-diagnostics PROPERTIES INSTALL_RPATH "${kelp_program_rpath}")
  install(TARGETS kelp-diagnostics RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  install(FILES "${PROJECT_SOURCE_DIR}/tools/kelp-diagnostics.1"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
  install(FILES "${PROJECT_SOURCE_DIR}/tools/completion/kelp-diagnostics.bash"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
    RENAME kelp-diagnostics)
  install(FILES "${PROJECT_SOURCE_DIR}/tools/completion/_kelp-diagnostics"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
endif()

set(kelp_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/kelp_diagnosticdata")
set(kelp_pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
set(kelp_generated_dir "${PROJECT_BINARY_DIR}/package")

install(TARGETS kelp_diagnosticdata EXPORT kelp_diagnosticdata
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")

install(
  DIRECTORY
    "${PROJECT_SOURCE_DIR}/include/diagnostic"
    "${PROJECT_SOURCE_DIR}/include/os"
    "${PROJECT_SOURCE_DIR}/include/utils"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kelp_diagnosticdata"
  FILES_MATCHING PATTERN "*.h")

configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/kelp_diagnosticdata-config.cmake.in"
  "${kelp_generated_dir}/kelp_diagnosticdata-config.cmake"
  INSTALL_DESTINATION "${kelp_package_dir}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  "${kelp_generated_dir}/kelp_diagnosticdata-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(
  FILES
    "${kelp_generated_dir}/kelp_diagnosticdata-config.cmake"
    "${kelp_generated_dir}/kelp_diagnosticdata-config-version.cmake"
  DESTINATION "${kelp_package_dir}")
install(EXPORT kelp_diagnosticdata
  FILE kelp_diagnosticdata-targets.cmake
  NAMESPACE kelp::
  DESTINATION "${kelp_package_dir}")

# The .pc file tells everything relative to its own folder. The folders may have been given as
# absolute paths, so the way between them is worked out on the full ones.
set(kelp_pkgconfig_full_dir "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH KELP_PC_PREFIX "${kelp_pkgconfig_full_dir}" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" KELP_PC_PREFIX "${KELP_PC_PREFIX}")
file(RELATIVE_PATH KELP_PC_LIBDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH KELP_PC_INCLUDEDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file(
  "${CMAKE_CURRENT_LIST_DIR}/kelp_diagnosticdata.pc.in"
  "${kelp_generated_dir}/kelp_diagnosticdata.pc" @ONLY)
install(FILES "${kelp_generated_dir}/kelp_diagnosticdata.pc" DESTINATION "${kelp_pkgconfig_dir}")

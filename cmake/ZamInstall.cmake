# What `cmake --install` puts where, in three components: runtime (the shared libraries), dev
# (headers, links, static libraries, package files) and tools (programs and what belongs to them).
include(CMakePackageConfigHelpers)

# Programs and libraries find the libraries wherever the whole is put.
file(RELATIVE_PATH zam_bin_to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")

# The namespaced names of the targets are those of the aliases in the build.
set(zam_shared_targets zam_platform zam_connector_common zam_connector_proxy zam_tree_json)
set(zam_static_targets zam_connector_testing zam_scripted_platform)
set(zam_header_folders
  "${PROJECT_SOURCE_DIR}/include/"
  "${PROJECT_SOURCE_DIR}/platform/include/"
  "${PROJECT_SOURCE_DIR}/foundation/qel/include/"
  "${PROJECT_SOURCE_DIR}/kit/include/"
  "${PROJECT_SOURCE_DIR}/library/tree_json/include/"
  "${PROJECT_SOURCE_DIR}/foundation/zuv/include/")

set(zam_shared_testing_targets)
if(TARGET zam_in_process_service)
  set(zam_shared_testing_targets zam_in_process_service)
endif()

foreach(target ${zam_shared_targets} ${zam_shared_testing_targets} ${zam_static_targets})
  string(REGEX REPLACE "^zam_" "" name ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} INSTALL_RPATH "$ORIGIN")
endforeach()

install(TARGETS ${zam_shared_targets} EXPORT zam_connector
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT dev
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(TARGETS ${zam_shared_testing_targets} ${zam_static_targets} EXPORT zam_connector
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

install(DIRECTORY ${zam_header_folders} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev
  FILES_MATCHING PATTERN "*.h")
# All that public headers need of qor.
install(FILES "${PROJECT_SOURCE_DIR}/foundation/qor/include/qor/types/timestamp.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/qor/types" COMPONENT dev)

set(zam_config_folder "${CMAKE_INSTALL_LIBDIR}/cmake/zam_connector")
configure_package_config_file(cmake/zam_connector-config.cmake.in
  "${PROJECT_BINARY_DIR}/package/zam_connector-config.cmake"
  INSTALL_DESTINATION "${zam_config_folder}")
# Before 1.0 a minor version may break; the soname tells when it does.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/zam_connector-config-version.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/package/zam_connector-config.cmake"
  "${PROJECT_BINARY_DIR}/package/zam_connector-config-version.cmake"
  DESTINATION "${zam_config_folder}" COMPONENT dev)
install(EXPORT zam_connector NAMESPACE zam:: FILE zam_connector-targets.cmake
  DESTINATION "${zam_config_folder}" COMPONENT dev)

# The folder of the .pc file is where its prefix is counted from, so that the whole can be moved.
set(zam_pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH zam_pc_to_prefix "${CMAKE_INSTALL_PREFIX}/${zam_pc_folder}"
  "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" zam_pc_to_prefix "${zam_pc_to_prefix}")
configure_file(cmake/zam_connector.pc.in "${PROJECT_BINARY_DIR}/package/zam_connector.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/zam_connector.pc"
  DESTINATION "${zam_pc_folder}" COMPONENT dev)

set(zam_programs zamctl)
if(TARGET zam_connectord)
  list(APPEND zam_programs zam_connectord)
endif()
foreach(program ${zam_programs})
  set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${zam_bin_to_lib}")
  install(TARGETS ${program} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
  install(FILES "$<TARGET_PROPERTY:${program},SOURCE_DIR>/completion/${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
endforeach()
install(FILES docs/man/zamctl.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)

if(TARGET zam_connectord)
  install(FILES docs/man/zam_connectord.8
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man8" COMPONENT tools)
  # As lib and not CMAKE_INSTALL_LIBDIR: systemd looks into no multiarch folder. The prefix is known
  # when installing only, and packages have another than the build.
  foreach(unit zam_connectord.service zam_connectord.socket)
    install(CODE "
      set(zam_bindir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
      set(ZAM_SERVICE_USER \"${ZAM_SERVICE_USER}\")
      configure_file(\"${PROJECT_SOURCE_DIR}/programs/service/systemd/${unit}.in\"
        \"${PROJECT_BINARY_DIR}/package/${unit}\" @ONLY)
      file(INSTALL \"${PROJECT_BINARY_DIR}/package/${unit}\"
        DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\")"
      COMPONENT tools)
  endforeach()
  foreach(kind sysusers tmpfiles)
    configure_file(programs/service/systemd/zam_connectord.${kind}.in
      "${PROJECT_BINARY_DIR}/package/${kind}/zam_connectord.conf" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/package/${kind}/zam_connectord.conf"
      DESTINATION lib/${kind}.d COMPONENT tools)
  endforeach()
endif()

include(ZamPackages)

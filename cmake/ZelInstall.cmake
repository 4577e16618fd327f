# What `cmake --install` installs, and where. The installed tree may be moved: only the service units, which are written
# at installation, hold a path. There are four components: Library, SoftChip, Programs
# and Exporter.

include(CMakePackageConfigHelpers)

set(package libZelCounters)
set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
set(includeDir ${CMAKE_INSTALL_INCLUDEDIR}/${package})
# A folder of its own, so that users with another SDK can't include the software chip by mistake.
set(softChipIncludeDir ${CMAKE_INSTALL_INCLUDEDIR}/${package}-softchip)

# The headers that packaging/public-headers.txt lists, with the include roots of the source tree.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/public-headers.txt)
file(STRINGS packaging/public-headers.txt headers REGEX "^[^#]")
foreach(header IN LISTS headers)
  cmake_path(GET header PARENT_PATH folder)
  if(header MATCHES "^(softchip|counters)/")
    set(file ${CMAKE_SOURCE_DIR}/${header})
  else()
    set(file ${CMAKE_SOURCE_DIR}/platform/${header})
  endif()
  if(NOT EXISTS ${file})
    message(FATAL_ERROR "packaging/public-headers.txt lists ${header}, which does not exist: "
      "run scripts/public-headers")
  endif()
  if(header MATCHES "^softchip/")
    install(FILES ${file} DESTINATION ${softChipIncludeDir}/${folder} COMPONENT SoftChip)
  else()
    install(FILES ${file} DESTINATION ${includeDir}/${folder} COMPONENT Library)
  endif()
endforeach()

# The library and its platform.
install(TARGETS Kiln ZelPlatform ZelCounters EXPORT ${package}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Library
  INCLUDES DESTINATION ${includeDir})
install(EXPORT ${package} NAMESPACE ZelCounters:: FILE ${package}Targets.cmake
  DESTINATION ${packageDir} COMPONENT Library)
configure_package_config_file(packaging/libZelCountersConfig.cmake.in ${package}Config.cmake
  INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(${package}ConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}Config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/${package}ConfigVersion.cmake
  DESTINATION ${packageDir} COMPONENT Library)

# The .pc file names the prefix relative to itself, so that it stays right when the tree is moved.
file(RELATIVE_PATH pcToPrefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(packaging/libZelCounters.pc.in ${package}.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Library)

# The software chip stands in for the maker's SDK.
install(TARGETS SoftChip EXPORT ${package}SoftChip
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT SoftChip
  INCLUDES DESTINATION ${softChipIncludeDir})
install(EXPORT ${package}SoftChip NAMESPACE ZelCounters:: FILE ${package}SoftChipTargets.cmake
  DESTINATION ${packageDir} COMPONENT SoftChip)

install(TARGETS zelagent RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT Programs)
install(TARGETS zelctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Programs)
install(TARGETS zelexporter RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT Exporter)
install(FILES docs/man/zelexporter.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT Exporter)
install(FILES docs/man/zelagent.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT Programs)
install(FILES docs/man/zelctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Programs)
install(FILES apps/zelctl/zelctl.bash RENAME zelctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT Programs)

# What Prometheus is given to begin with; who uses it copies it.
install(DIRECTORY packaging/prometheus DESTINATION ${CMAKE_INSTALL_DATADIR}/${package} COMPONENT Exporter)

# zel_unit(PROGRAM COMPONENT): its service unit. It needs the program's absolute path, which is known only at
# installation, since --prefix may change it.
function(zel_unit program component)
  install(CODE "
    set(sbinDir \"${CMAKE_INSTALL_SBINDIR}\")
    cmake_path(ABSOLUTE_PATH sbinDir BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    configure_file(\"${CMAKE_SOURCE_DIR}/packaging/${program}.service.in\"
      \"${CMAKE_CURRENT_BINARY_DIR}/${program}.service\" @ONLY)" COMPONENT ${component})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${program}.service DESTINATION lib/systemd/system
    COMPONENT ${component})
endfunction()
zel_unit(zelagent Programs)
zel_unit(zelexporter Exporter)

install(FILES README.md CHANGELOG.md scripts/sdk-symbols.txt DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Library)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Library
  USE_SOURCE_PERMISSIONS PATTERN man EXCLUDE PATTERN "build*" EXCLUDE PATTERN __pycache__ EXCLUDE)

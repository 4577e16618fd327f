# What `cmake --install` installs, and where. The installed tree may be moved: only the service unit, which is written
# at installation, holds a path. There are three components: Library, SoftChip and Programs.

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
install(FILES docs/man/zelagent.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT Programs)
install(FILES docs/man/zelctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Programs)
install(FILES apps/zelctl/zelctl.bash RENAME zelctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT Programs)

install(DIRECTORY packaging/prometheus DESTINATION ${CMAKE_INSTALL_DATADIR}/${package} COMPONENT Programs)

# The unit needs the program's absolute path, which is known only at installation, since --prefix may change it.
install(CODE "
  set(sbinDir \"${CMAKE_INSTALL_SBINDIR}\")
  cmake_path(ABSOLUTE_PATH sbinDir BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${CMAKE_SOURCE_DIR}/packaging/zelagent.service.in\"
    \"${CMAKE_CURRENT_BINARY_DIR}/zelagent.service\" @ONLY)" COMPONENT Programs)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zelagent.service DESTINATION lib/systemd/system COMPONENT Programs)

install(FILES README.md CHANGELOG.md scripts/sdk-symbols.txt DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Library)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Library
  USE_SOURCE_PERMISSIONS PATTERN man EXCLUDE PATTERN "build*" EXCLUDE PATTERN __pycache__ EXCLUDE)

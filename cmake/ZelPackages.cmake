# Debian packages, one a component: cmake --build build --target package. None has a maintainer script, so none starts
# a service.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_VENDOR "libZelCounters")
set(CPACK_PACKAGE_CONTACT "libZelCounters developers <libzelcounters@localhost>")
set(CPACK_COMPONENTS_ALL Library SoftChip Programs)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

# zel_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION DEPENDS)
macro(zel_package component name section summary description depends)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
endmacro()
# Static archives and templates in headers: they want the standard library's headers.
zel_package(Library libzelcounters-dev libdevel "counters library for a switch's forwarding agent"
  "libZelCounters polls a switching chip's hardware counters through the chip maker's SDK, vets them, publishes them
in shared memory and shows them to operators. Static library and headers."
  "libstdc++-12-dev | libstdc++-dev")
zel_package(SoftChip libzelcounters-softchip-dev libdevel "software switching chip for libZelCounters"
  "Stands in for the chip maker's SDK where there is no chip: it counts the frames that it is fed with. Static
library and headers."
  "libzelcounters-dev (= ${PROJECT_VERSION})")
zel_package(Programs zelagent net "switch agent that publishes interface counters, and its client"
  "zelagent runs libZelCounters over software chips; zelctl asks it for counters, and reads what it publishes. The
service zelagent isn't started until told to."
  "")
# What the programs link decides what they depend on.
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SHLIBDEPS ON)

include(CPack)

# Debian packages, one for each component: cmake --build build --target package. None has a maintainer script, so
# installing them starts no service.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_VENDOR "libZelCounters")
set(CPACK_PACKAGE_CONTACT "libZelCounters developers <libzelcounters@localhost>")
set(CPACK_COMPONENTS_ALL Library SoftChip Programs Exporter)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

# zel_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION DEPENDS): describes the component's package.
macro(zel_package component name section summary description depends)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
endmacro()
# The headers include the standard library's.
zel_package(Library libzelcounters-dev libdevel "counters library for a switch's forwarding agent"
  "libZelCounters polls a switching chip's hardware counters through the chip maker's SDK, vets them, publishes them
in shared memory and shows them to operators. Static library and headers."
  "libstdc++-12-dev | libstdc++-dev")
zel_package(SoftChip libzelcounters-softchip-dev libdevel "software switching chip for libZelCounters"
  "Stands in for the chip maker's SDK where there is no chip: it counts the frames that it is fed. Static library and
headers."
  "libzelcounters-dev (= ${PROJECT_VERSION})")
zel_package(Programs zelagent net "switch agent that publishes interface counters, and its client"
  "zelagent runs libZelCounters over software chips; zelctl asks it for counters, and reads what it publishes.
Installation does not start the service zelagent."
  "")
# A package of its own: nobody who runs an agent has to have a library for HTTP.
zel_package(Exporter zelexporter net "metrics of a switch agent over HTTP"
  "zelexporter gives Prometheus, or another collector of OpenMetrics, what zelagent publishes in shared memory, and
operators a page to look at. Installation does not start the service zelexporter."
  "")
# The programs' dependencies follow from the shared libraries that they link.
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_EXPORTER_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_EXPORTER_PACKAGE_SUGGESTS zelagent)

include(CPack)

# Debian packages through CPack: one package per install component, the
# dependencies on other packages computed by dpkg-shlibdeps from the binaries,
# the ones between our own packages from the component graph.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zentappstartup)
set(CPACK_PACKAGE_VENDOR Velkor-Amsel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "ZentAppStartUp developers <zentappstartup@velkor-amsel.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Our own libraries are not installed packages yet when dpkg-shlibdeps runs;
# it finds them here and the component graph below names their packages.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/bin)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENTS_ALL ${ZENT_DEB_COMPONENTS})
# Installed files see the real prefix (/usr), which the service unit names.
set(CPACK_SET_DESTDIR ON)

set(CPACK_DEBIAN_KVBASE_PACKAGE_NAME libkvbase1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzentappstartup1)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzentappstartup-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zentappstartup-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_HEARTBEAT_PACKAGE_NAME zentheartbeat)
set(CPACK_DEBIAN_HEARTBEAT_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_CFGCLIENT_PACKAGE_NAME zentappstartup-cfgclient)

set(CPACK_DEBIAN_KVBASE_DESCRIPTION "Zent base library
KVBase gives the Zent applications their error reporting and tracing,
KVException and the operating-system layer ZentOS.")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "start-up and configuration library for Zent Qt applications
ZentAppStartUp starts the Qt applications, services and tools of the Zent
family: command line, configuration documents (XML, registry, configuration
service), single instance, splash screens, translations and plug-ins.")
set(CPACK_DEBIAN_DEV_DESCRIPTION "development files for ZentAppStartUp
Headers, the CMake package ZentAppStartUp and the pkg-config files
ZentAppStartUp.pc and KVBase.pc.")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "command-line tools for Zent configurations
zentreg imports and exports the portable registry as .reg files; cfgcopy
copies a configuration between backends; cfgdelete deletes one.")

# Shared libraries are registered through dpkg's ldconfig trigger, which
# Debian asks for. (CPack still writes postinst/postrm scripts that call
# ldconfig; they are redundant beside the trigger and harmless.)
foreach(component KVBASE RUNTIME)
    set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/deb/triggers)
endforeach()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_HEARTBEAT_DESCRIPTION "example systemd service on ZentAppStartUp
zentheartbeat writes a heartbeat line to its log every second until it is
stopped; it shows a service built on the library's Service and Log classes,
with readiness, status and watchdog reports to systemd.")

set(CPACK_COMPONENT_RUNTIME_DEPENDS kvbase)
set(CPACK_DEBIAN_CFGCLIENT_DESCRIPTION "configuration service client for ZentAppStartUp applications
The CfgClient plug-in lets applications open their configuration on a shared
configuration service (\"Server\" documents): an etcd cluster reached through
its v3 API, with TLS and authentication, kept current by a watch.")

set(CPACK_COMPONENT_HEARTBEAT_DEPENDS runtime kvbase)
set(CPACK_COMPONENT_CFGCLIENT_DEPENDS runtime kvbase)
set(CPACK_COMPONENT_DEV_DEPENDS runtime kvbase)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime kvbase)
# The headers need Qt's and Boost's development files to be of use.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qtbase5-dev (>= 5.15), libboost-dev")

include(CPack)

# The packages that cpack makes from what is installed: a component each. The program takes whatever names no component.
# The preset "package" builds for /usr, as packages want it.

set(NDK_PACKAGE_plugin libndk-utils1n)
set(NDK_PACKAGE_program ndk-integrate)
set(NDK_PACKAGE_development ndk-utils-dev)

# What a package has beside its files. Only packages: cmake --install leaves these out.
set(NDK_DOC ${CMAKE_INSTALL_DATAROOTDIR}/doc)
foreach(component plugin program development)
  install(
    FILES debian/copyright debian/changelog
    DESTINATION ${NDK_DOC}/${NDK_PACKAGE_${component}}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(
    FILES debian/lintian-overrides/${NDK_PACKAGE_${component}}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
install(
  FILES ${PROJECT_SOURCE_DIR}/docs/how-install-works.md
  DESTINATION ${NDK_DOC}/${NDK_PACKAGE_program}
  COMPONENT program EXCLUDE_FROM_ALL)
install(
  FILES ${PROJECT_SOURCE_DIR}/docs/writing-a-host.md ${PROJECT_SOURCE_DIR}/docs/packaging-a-compiler.md
        ${PROJECT_SOURCE_DIR}/docs/versioning.md
  DESTINATION ${NDK_DOC}/${NDK_PACKAGE_development}
  COMPONENT development EXCLUDE_FROM_ALL)
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${NDK_DOC}/${NDK_PACKAGE_development}
  USE_SOURCE_PERMISSIONS
  COMPONENT development EXCLUDE_FROM_ALL
  PATTERN .clang-tidy EXCLUDE)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL plugin program development)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_PACKAGE_NAME ndk-utils)
set(CPACK_PACKAGE_VENDOR "The NDK utilities project")
set(CPACK_PACKAGE_CONTACT "The NDK utilities project <packages@ndk-utils.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_SOURCE_DIR}/cpack_project_config.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/finish_trees.cmake)

set(CPACK_COMPONENT_PLUGIN_DESCRIPTION
    "plug-in that ties a compiler into an Android NDK
The plug-in libndk_utils.so.1n, which installers load: it finds an Android
NDK on the machine, judges it, fills in the templates of a compiler package
and runs its integration script.
.
The host check, libhost_check.so, tells an installer where it breaks the
contract with the plug-in.")
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION
    "ties a compiler into an Android NDK, from the command line
ndk-integrate finds the Android NDKs on the machine and says why it takes or
passes over each, integrates a compiler package into one of them, proves
that it builds there, and takes it out again.
.
Packages of compilers call it when they are installed and removed.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "files to build hosts of the NDK utilities plug-in with
Headers, CMake and pkg-config files, the guide, and examples: a minimal
host, sample NDKs and a sample compiler package.")

# --- Debian ---

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SOURCE ndk-utils)

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME ${NDK_PACKAGE_plugin})
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers
                                              ${CMAKE_CURRENT_SOURCE_DIR}/debian/shlibs)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME ${NDK_PACKAGE_program})
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
# It loads the plug-in at run time, so its name is among nobody's needed libraries.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "${NDK_PACKAGE_plugin} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${NDK_PACKAGE_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${NDK_PACKAGE_plugin} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS ${NDK_PACKAGE_program})

# --- RPM, experimental: made with the libraries of the distribution that builds it. scripts/release tells cmake where files
# go on one that uses RPM ---

set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "not chosen yet")
set(CPACK_RPM_PACKAGE_RELOCATABLE OFF)
foreach(component plugin program development)
  string(TOUPPER ${component} upper)
  set(CPACK_RPM_${upper}_PACKAGE_NAME ${NDK_PACKAGE_${component}})
  # What the descriptions above begin with.
  string(REGEX REPLACE "\n.*" "" CPACK_RPM_${upper}_PACKAGE_SUMMARY "${CPACK_COMPONENT_${upper}_DESCRIPTION}")
  if(NOT component STREQUAL plugin)
    set(CPACK_RPM_${upper}_PACKAGE_REQUIRES "${NDK_PACKAGE_plugin} = ${PROJECT_VERSION}")
  endif()
endforeach()
set(CPACK_RPM_PLUGIN_POST_INSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/ldconfig.sh)
set(CPACK_RPM_PLUGIN_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/ldconfig.sh)
set(CPACK_RPM_SPEC_MORE_DEFINE "%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1
%define _buildhost localhost
%define _build_id_links none")
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /usr/include /usr/lib64/cmake /usr/lib64/pkgconfig /usr/share/doc
    /usr/share/man /usr/share/man/man1)

include(CPack)

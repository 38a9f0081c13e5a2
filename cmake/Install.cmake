# SPDX-License-Identifier: MIT
# What `cmake --install` puts where: the file-system standard, by the names of GNUInstallDirs. A
# path that is not absolute is below the prefix. docs/install.md explains the options.
include(GNUInstallDirs)

set(SPH_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/serial-port-handler CACHE STRING
    "Folder of libvost and libKXLogger, which no other program should find")
option(SPH_INSTALL_SYSTEMD "Install the unit" ON)
set(SPH_SYSTEMD_UNIT_DIR lib/systemd/system CACHE STRING "Folder of systemd units")
option(SPH_INSTALL_UDEV "Install the udev rules" ON)
set(SPH_UDEV_RULES_DIR lib/udev/rules.d CACHE STRING "Folder of udev rules")
option(SPH_INSTALL_MAN "Make and install the man pages; needs pandoc" OFF)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME service)
set(sph_packaging ${PROJECT_SOURCE_DIR}/packaging)

# The run path is relative, so that an installed tree works wherever it is moved to. It is the same in
# the build tree, which has the layout of the usual installation: one that CMake would have to replace
# it pads with empty entries, and each of these means the directory from which a program is started.
function(sph_set_run_path)
  set(libraries ${SPH_PRIVATE_LIBDIR})
  cmake_path(ABSOLUTE_PATH libraries BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
  cmake_path(RELATIVE_PATH libraries BASE_DIRECTORY ${CMAKE_INSTALL_FULL_SBINDIR})
  set(run_path "\$ORIGIN/${libraries}" "\$ORIGIN/../lib/serial-port-handler")
  list(REMOVE_DUPLICATES run_path)
  set_target_properties(SerialPortHandler PROPERTIES INSTALL_RPATH "${run_path}")
  set_target_properties(vost PROPERTIES INSTALL_RPATH "\$ORIGIN")
  set_target_properties(SerialPortHandler vost PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
  set_target_properties(vost KXLogger PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib/serial-port-handler)
endfunction()

install(TARGETS SerialPortHandler RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
if(SPH_PLATFORM_LIBS STREQUAL "bundled")
  sph_set_run_path()
  install(TARGETS vost KXLogger LIBRARY DESTINATION ${SPH_PRIVATE_LIBDIR})
endif()

# The machine's configuration is never overwritten. `cmake --install --prefix` moves it, too, unless
# it stands outside of the prefix, as /etc does for /usr.
set(sph_config_folder ${CMAKE_INSTALL_FULL_SYSCONFDIR})
set(sph_config_file ${sph_config_folder}/vost.conf)
cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX ${sph_config_folder} NORMALIZE inside)
if(inside)
  cmake_path(RELATIVE_PATH sph_config_folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
  string(PREPEND sph_config_folder "\${CMAKE_INSTALL_PREFIX}/")
endif()
install(CODE "
  set(installed \"\$ENV{DESTDIR}${sph_config_folder}/vost.conf\")
  if(EXISTS \"\${installed}\")
    message(STATUS \"Kept: \${installed}\")
  else()
    file(INSTALL \"${sph_packaging}/vost.conf\" DESTINATION \"${sph_config_folder}\")
  endif()")

if(SPH_INSTALL_SYSTEMD)
  set(SPH_UNIT_ENVIRONMENT "")
  if(NOT sph_config_file STREQUAL "/etc/vost.conf")
    set(SPH_UNIT_ENVIRONMENT "Environment=VOST_CONFIG=${sph_config_file}\n")
  endif()
  set(unit ${PROJECT_BINARY_DIR}/packaging/serial-port-handler.service)
  configure_file(${sph_packaging}/serial-port-handler.service.in ${unit} @ONLY)
  install(FILES ${unit} DESTINATION ${SPH_SYSTEMD_UNIT_DIR})
  install(PROGRAMS ${sph_packaging}/wait-until-listening
          DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/serial-port-handler)
endif()

if(SPH_INSTALL_UDEV)
  install(FILES ${sph_packaging}/60-serial-port-handler.rules DESTINATION ${SPH_UDEV_RULES_DIR})
endif()

if(SPH_INSTALL_MAN)
  include(${PROJECT_SOURCE_DIR}/cmake/ManPages.cmake)
  sph_man_page(SerialPortHandler 8)
  sph_man_page(vost.conf 5)
  sph_man_page(serial-port-handler-protocol 7)
endif()

# What `cmake --install` puts where, and the Debian packages made of it. Components: `runtime` is the program with its
# library, `development` what clients of the library need.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The headers of the exported operations with all that these include.
set(headers_frontend frontend/conversion.hpp frontend/inspection.hpp frontend/recording_files.hpp)
set(headers_bundle_interface
  bundle_interface/export.hpp
  bundle_interface/holdfast.hpp
  bundle_interface/holdfast/attributes.hpp
  bundle_interface/holdfast/chunk.hpp
  bundle_interface/holdfast/console.hpp
  bundle_interface/holdfast/reference.hpp
  bundle_interface/skein.hpp
  bundle_interface/skein/bundle.hpp
  bundle_interface/skein/data_range.hpp
  bundle_interface/skein/field.hpp
  bundle_interface/skein/grid.hpp
  bundle_interface/skein/mem_array.hpp
  bundle_interface/skein/storage_transformations.hpp
  bundle_interface/tern.hpp)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/rxp2k7)
foreach(library frontend bundle_interface)
  foreach(header ${headers_${library}})
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${library}/include/${header} DESTINATION ${header_dir}/${folder} COMPONENT development)
  endforeach()
endforeach()

# Templates of other libraries are no part of the interface, though their instances are visible by default.
if(NOT RXP2K7_SANITIZE)
  set(exported ${CMAKE_SOURCE_DIR}/cmake/exported.map)
  target_link_options(rxp2k7 PRIVATE "LINKER:--version-script=${exported}")
  set_property(TARGET rxp2k7 APPEND PROPERTY LINK_DEPENDS ${exported})
endif()

install(TARGETS rxp2k7_host RUNTIME COMPONENT runtime)
install(TARGETS rxp2k7 EXPORT rxp2k7
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${header_dir})

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rxp2k7)
install(EXPORT rxp2k7 FILE rxp2k7-config.cmake NAMESPACE rxp2k7:: DESTINATION ${config_dir} COMPONENT development)
# Before 1.0 a new minor version may change the interface.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/rxp2k7-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/rxp2k7-config-version.cmake DESTINATION ${config_dir} COMPONENT development)

# Relative to where the file lies, so that a moved prefix still works.
file(RELATIVE_PATH pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/rxp2k7.pc.in ${CMAKE_BINARY_DIR}/rxp2k7.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/rxp2k7.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(FILES README.md CHANGELOG.md docs/k7-format.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT local)

# Man pages and completions come from the program's own help, so that they cannot fall behind it.
if(NOT RXP2K7_SANITIZE)
  set(documents ${CMAKE_BINARY_DIR}/documents)
  file(GLOB man_texts CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/man/*.roff)
  add_custom_command(OUTPUT ${documents}/made
    COMMAND ${Python3_EXECUTABLE} scripts/make_man.py $<TARGET_FILE:rxp2k7_host> docs/man ${documents}/man1
    COMMAND ${Python3_EXECUTABLE} scripts/make_completions.py $<TARGET_FILE:rxp2k7_host> ${documents}/completions
    COMMAND ${CMAKE_COMMAND} -E touch ${documents}/made
    DEPENDS rxp2k7_host ${man_texts} scripts/host_help.py scripts/make_man.py scripts/make_completions.py
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} VERBATIM)
  add_custom_target(rxp2k7_documents ALL DEPENDS ${documents}/made)

  install(DIRECTORY ${documents}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT local)
  set(share ${CMAKE_INSTALL_DATADIR})
  install(FILES ${documents}/completions/rxp2k7 DESTINATION ${share}/bash-completion/completions COMPONENT runtime)
  install(FILES ${documents}/completions/rxp2k7.fish DESTINATION ${share}/fish/vendor_completions.d COMPONENT runtime)
  # zsh looks below /usr/local here, and Debian's below /usr there.
  install(FILES ${documents}/completions/_rxp2k7 DESTINATION ${share}/zsh/site-functions COMPONENT local)
  install(FILES ${documents}/completions/_rxp2k7 DESTINATION ${share}/zsh/vendor-completions COMPONENT debian
    EXCLUDE_FROM_ALL)
endif()

# What Debian's policy asks for and an installation from the sources has no use of: packed pages, and for each package the
# files that tell where it comes from.
set(CPACK_PACKAGE_CONTACT "rxp2k7 developers <rxp2k7@example.org>" CACHE STRING "Who maintains the packages")
if(NOT RXP2K7_SANITIZE)
  set(packed ${CMAKE_BINARY_DIR}/debian)
  configure_file(cmake/debian/changelog.in ${packed}/changelog @ONLY)
  add_custom_command(OUTPUT ${packed}/made
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${packed}/man1
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${documents}/man1 ${packed}/man1
    COMMAND gzip -9nrf ${packed}/man1
    COMMAND gzip -9nkf ${packed}/changelog
    COMMAND ${CMAKE_COMMAND} -E touch ${packed}/made
    DEPENDS ${documents}/made ${packed}/changelog VERBATIM)
  add_custom_target(rxp2k7_debian ALL DEPENDS ${packed}/made)
  add_dependencies(rxp2k7_debian rxp2k7_documents)
  install(DIRECTORY ${packed}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT debian EXCLUDE_FROM_ALL)
  set(origin ${packed}/changelog.gz cmake/debian/copyright)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc)
  install(FILES ${origin} DESTINATION ${doc}/rxp2k7 COMPONENT debian EXCLUDE_FROM_ALL)
  install(FILES ${origin} DESTINATION ${doc}/rxp2k7-dev COMPONENT debian_development EXCLUDE_FROM_ALL)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME rxp2k7)
set(CPACK_PACKAGE_VENDOR rxp2k7)
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime debian development debian_development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME rxp2k7)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_CLIENTS_PACKAGE_NAME rxp2k7-dev)
set(CPACK_DEBIAN_CLIENTS_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CLIENTS_PACKAGE_DEPENDS "rxp2k7 (= ${PROJECT_VERSION})")
# The first line is the summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "Turns laser-scanner recordings into K7 files\n\
 K7 files are HDF5 files with a row for every laser shot, every echo\n\
 and every waveform of a recording.")
set(CPACK_DEBIAN_CLIENTS_DESCRIPTION "Headers of librxp2k7, which turns laser-scanner recordings into K7 files\n\
 For programs that convert recordings themselves.")
include(CPack)
cpack_add_component_group(program)
cpack_add_component_group(clients)
cpack_add_component(runtime GROUP program REQUIRED)
cpack_add_component(debian GROUP program REQUIRED HIDDEN)
cpack_add_component(development GROUP clients)
cpack_add_component(debian_development GROUP clients HIDDEN)

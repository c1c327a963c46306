# What is installed for those who build against the library: header, libraries, and the descriptions by which CMake
# and pkg-config find them. All of it finds its way from where it lies, so an installed tree can be moved.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/PVZAN)
set(package_build ${PROJECT_BINARY_DIR}/packaging)
set(package_source ${PROJECT_SOURCE_DIR}/packaging)

set(libraries PVZAN)
if(PVZAN_STATIC)
    list(APPEND libraries PVZAN_static)
endif()
install(TARGETS ${libraries} EXPORT PVZANTargets LIBRARY COMPONENT pvzan NAMELINK_COMPONENT pvzan-dev)
if(PVZAN_ICONV)
    install(TARGETS pvzan_iconv LIBRARY NAMELINK_SKIP)
endif()
install(EXPORT PVZANTargets NAMESPACE PVZAN:: DESTINATION ${package_dir})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

configure_package_config_file(${package_source}/PVZANConfig.cmake.in ${package_build}/PVZANConfig.cmake
    INSTALL_DESTINATION ${package_dir}
    PATH_VARS PVZAN_CHARSETS_LIBDIR)
write_basic_package_version_file(${package_build}/PVZANConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${package_build}/PVZANConfig.cmake ${package_build}/PVZANConfigVersion.cmake
    DESTINATION ${package_dir})

file(RELATIVE_PATH PVZAN_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH PVZAN_PC_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
string(REGEX REPLACE "/$" "" PVZAN_PC_PREFIX ${PVZAN_PC_PREFIX})
configure_file(${package_source}/pvzan.pc.in ${package_build}/pvzan.pc @ONLY)
install(FILES ${package_build}/pvzan.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Manual pages, by the section that their names end in.
foreach(section 1 3 5 7)
    file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.${section})
    if(pages)
        install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
    endif()
endforeach()

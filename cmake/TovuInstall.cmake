# What `cmake --install` lays down, in two components: the library for programs to run with (runtime), and what they are
# built with (dev). The examples install themselves.

include(CMakePackageConfigHelpers)

set(config_dir "${CMAKE_INSTALL_LIBDIR}/cmake/tovuutil")

install(TARGETS tovuutil EXPORT tovuutilTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/tovu" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev
    FILES_MATCHING PATTERN "*.h")

# find_package(tovuutil): the target tovu::util.
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/tovuutilConfig.cmake.in" tovuutilConfig.cmake
    INSTALL_DESTINATION "${config_dir}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(tovuutilConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT tovuutilTargets NAMESPACE tovu:: DESTINATION "${config_dir}" COMPONENT dev)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/tovuutilConfig.cmake" "${CMAKE_CURRENT_BINARY_DIR}/tovuutilConfigVersion.cmake"
    DESTINATION "${config_dir}" COMPONENT dev)

# pkg-config. The prefix is filled in as it is installed, since `cmake --install --prefix` may name another. What a static
# library needs is not private to it.
set(TOVUUTIL_PREFIX "@CMAKE_INSTALL_PREFIX@")
set(TOVUUTIL_LIBS "")
set(TOVUUTIL_PRIVATE_LIBS " -lboost_thread -ldl -pthread")
if(TOVUUTIL_LIBRARY_TYPE STREQUAL STATIC)
    set(TOVUUTIL_LIBS "${TOVUUTIL_PRIVATE_LIBS}")
    set(TOVUUTIL_PRIVATE_LIBS "")
endif()
configure_file("${CMAKE_CURRENT_LIST_DIR}/tovuutil.pc.in" tovuutil.pc.in @ONLY)
install(CODE "configure_file(\"${CMAKE_CURRENT_BINARY_DIR}/tovuutil.pc.in\" \"${CMAKE_CURRENT_BINARY_DIR}/tovuutil.pc\" @ONLY)"
    COMPONENT dev)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/tovuutil.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)

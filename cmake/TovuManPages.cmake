# The man pages, of the same text as the pages of the site: docs/man/NAME.SECTION.md.

find_program(TOVUUTIL_LOWDOWN lowdown)
set(TOVUUTIL_MAN_PAGE man-page man-roff.awk man-text.awk)
list(TRANSFORM TOVUUTIL_MAN_PAGE PREPEND "${PROJECT_SOURCE_DIR}/cmake/")

# Makes and installs one, with a component: tovu_add_man_page(volumed.8 examples)
function(tovu_add_man_page page component)
    set(source "${PROJECT_SOURCE_DIR}/docs/man/${page}.md")
    set(output "${PROJECT_BINARY_DIR}/man/${page}")
    add_custom_command(OUTPUT "${output}"
        COMMAND "${PROJECT_SOURCE_DIR}/cmake/man-page" "${TOVUUTIL_LOWDOWN}" "${source}" ${PROJECT_VERSION} "${output}"
        DEPENDS "${source}" ${TOVUUTIL_MAN_PAGE} ${ARGN}
        COMMENT "Making the man page ${page}"
        VERBATIM)
    add_custom_target(man_${page} ALL DEPENDS "${output}")
    if(TOVUUTIL_INSTALL)
        string(REGEX MATCH "[0-9]$" section ${page})
        install(FILES "${output}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" COMPONENT ${component})
    endif()
endfunction()

if(NOT TOVUUTIL_IS_TOP AND NOT TOVUUTIL_INSTALL)
    return()
endif()
if(NOT TOVUUTIL_LOWDOWN)
    message(STATUS "The man pages are left out: there is no lowdown (Debian has it in the package lowdown).")
    return()
endif()
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/man")
tovu_add_man_page(tovuutil.7 dev "${PROJECT_SOURCE_DIR}/docs/wire-format.md")
if(TOVUUTIL_BUILD_EXAMPLES)
    tovu_add_man_page(volumed.8 examples)
    tovu_add_man_page(volumectl.1 examples)
endif()

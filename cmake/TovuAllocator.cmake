# Links a program with an allocator of its own, by the name of its library: it then serves the program, its libraries and
# its plug-ins.
function(tovu_link_allocator target allocator)
    find_library(TOVUUTIL_${allocator} ${allocator})
    if(NOT TOVUUTIL_${allocator})
        message(FATAL_ERROR "${target} is to be linked with the allocator ${allocator}, but there is no lib${allocator}.so: "
            "install it (Debian has it in libgoogle-perftools-dev, libmimalloc-dev or libjemalloc-dev), or take another.")
    endif()
    # The program calls nothing of it by a name that only it has, which would be a reason to leave it out.
    target_link_libraries(${target} PRIVATE
        -Wl,--push-state,--no-as-needed "${TOVUUTIL_${allocator}}" -Wl,--pop-state)
endfunction()

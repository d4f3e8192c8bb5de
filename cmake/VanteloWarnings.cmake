# One place that sets the warning set (and, when asked, the sanitizers) on each of our targets.
function(vantelo_set_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor)
    if(VANTELO_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

if(VANTELO_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                        -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

if(VANTELO_TSAN)
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
endif()

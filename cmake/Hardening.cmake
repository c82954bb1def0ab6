# What makes an overflow or a stray write end the process instead of taking it over. ./dev hardening
# reads from the built files whether it holds.
add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack LINKER:-z,text)
if(NOT STREAMPROXY_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    # Needs an optimising compiler, and hides from a sanitizer what the sanitizer looks for.
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

# Warnings are errors in everything we write; sanitizers reach every target.
set(STREAMPROXY_WARNINGS
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
    -Wimplicit-fallthrough -Werror $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)

add_library(streamproxy_warnings INTERFACE)
target_compile_options(streamproxy_warnings INTERFACE ${STREAMPROXY_WARNINGS} -Wsign-conversion)

# Tests are tables of small literals, which would drown in casts.
add_library(streamproxy_test_warnings INTERFACE)
target_compile_options(streamproxy_test_warnings INTERFACE ${STREAMPROXY_WARNINGS}
                       $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)

if(STREAMPROXY_SANITIZE)
    add_compile_options(-fsanitize=${STREAMPROXY_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${STREAMPROXY_SANITIZE})
endif()

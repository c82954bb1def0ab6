# Warnings are errors in everything we write, unless another project builds it with a compiler that we
# don't know; sanitizers reach every target, also those of such a project.
set(STREAMPROXY_WARNINGS
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
    -Wimplicit-fallthrough $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
    $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>)

add_library(streamproxy_warnings INTERFACE)
target_compile_options(streamproxy_warnings INTERFACE ${STREAMPROXY_WARNINGS} -Wsign-conversion)

# Tests are tables of small literals, which would drown in casts.
add_library(streamproxy_test_warnings INTERFACE)
target_compile_options(streamproxy_test_warnings INTERFACE ${STREAMPROXY_WARNINGS}
                       $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)

add_library(streamproxy_sanitizers INTERFACE)
if(STREAMPROXY_SANITIZE)
    set(STREAMPROXY_SANITIZE_OPTIONS -fsanitize=${STREAMPROXY_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    add_compile_options(${STREAMPROXY_SANITIZE_OPTIONS})
    add_link_options(-fsanitize=${STREAMPROXY_SANITIZE})
    target_compile_options(streamproxy_sanitizers INTERFACE ${STREAMPROXY_SANITIZE_OPTIONS})
    target_link_options(streamproxy_sanitizers INTERFACE -fsanitize=${STREAMPROXY_SANITIZE})
endif()

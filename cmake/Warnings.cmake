# Warnings and sanitizers of our own targets; never exported to users of the package.
add_library(muxora_warnings INTERFACE)
if(MSVC)
    target_compile_options(muxora_warnings INTERFACE /W4 /permissive- /utf-8)
else()
    target_compile_options(muxora_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # g++ 12 finds overlaps in its own std::string at -O3 (bug 105651).
    target_compile_options(muxora_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(MUXORA_WERROR)
    target_compile_options(muxora_warnings INTERFACE $<IF:$<BOOL:${MSVC}>,/WX,-Werror>)
endif()

if(MUXORA_SANITIZE)
    add_compile_options(-fsanitize=${MUXORA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${MUXORA_SANITIZE})
endif()

# Everything is counted, so that inline functions are where a test calls them; scripts/coverage.py reads what it needs.
if(MUXORA_COVERAGE)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "MUXORA_COVERAGE needs clang")
    endif()
    add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
    add_link_options(-fprofile-instr-generate)
endif()

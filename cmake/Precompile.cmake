# Headers that are compiled once for all units of a target: a third to a half of what a cold build costs. Off by
# default, for clangd and clang-tidy can't read what g++ precompiled (scripts/lint.sh looks past it).
option(MUXORA_PCH "Precompile headers" OFF)

# muxora_precompile(TARGET HEADERS...), or muxora_precompile(TARGET REUSE_FROM OTHER): one target's for another.
function(muxora_precompile target)
    if(NOT MUXORA_PCH)
        return()
    endif()
    if(ARGV1 STREQUAL "REUSE_FROM")
        target_precompile_headers(${target} REUSE_FROM ${ARGV2})
    else()
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -fpch-preprocess)  # ccache asks for it
    endif()
endfunction()

# Use ccache where it is installed; what another project launches its compilers with is its own affair.
if(NOT MUXORA_TOP_LEVEL)
    return()
endif()
find_program(MUXORA_CCACHE ccache)
mark_as_advanced(MUXORA_CCACHE)
if(MUXORA_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${MUXORA_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${MUXORA_CCACHE})
    if(MUXORA_PCH)
        # What it asks for where headers are precompiled.
        set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${MUXORA_CCACHE})
    endif()
endif()

# What makes a mistake in the code harder to turn into an attack on the caller. muxora_harden() gives it to the folders
# whose files are shipped: library, tool and gateway. Sanitizers know better, and what is fortified hides from them; on
# Windows the linker's own defaults stand, as the stack protector would need one more DLL of the compiler's there.
option(MUXORA_HARDEN "Stack protector, fortified C library, control-flow protection, read-only relocations" ON)

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
set(MUXORA_HARDENING_FLAGS)
set(MUXORA_HARDENING_LINKER)

if(MUXORA_HARDEN AND NOT MUXORA_SANITIZE AND NOT MUXORA_COVERAGE AND NOT MSVC AND NOT WIN32)
    # -fcf-protection marks the targets of indirect calls (CET); -mbranch-protection does so on Arm (BTI) and signs return
    # addresses. Each is asked for: a compiler knows those of its own machine.
    set(CMAKE_REQUIRED_FLAGS -Werror)
    foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
        string(MAKE_C_IDENTIFIER "MUXORA_HAS${flag}" known)
        check_cxx_compiler_flag(${flag} ${known})
        if(${known})
            list(APPEND MUXORA_HARDENING_FLAGS ${flag})
        endif()
    endforeach()

    # The highest level that compiler and C library know without a word. It needs the optimiser, and what the builder has
    # set already (distributions do) stays.
    if(NOT "${CMAKE_CXX_FLAGS}" MATCHES "FORTIFY_SOURCE")
        foreach(level 3 2)
            set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level}")
            check_cxx_source_compiles("#include <cstdio>
int main(int, char** v) { char b[8]; return std::snprintf(b, sizeof b, \"%s\", v[0]); }" MUXORA_HAS_FORTIFY_${level})
            if(MUXORA_HAS_FORTIFY_${level})
                list(APPEND MUXORA_HARDENING_FLAGS
                    "$<$<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=${level}>")
                break()
            endif()
        endforeach()
    endif()
    unset(CMAKE_REQUIRED_FLAGS)

    if(NOT APPLE)
        set(MUXORA_HARDENING_LINKER LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
    endif()
endif()

# For the targets of this folder, and of those below it, that come after the call.
macro(muxora_harden)
    add_compile_options(${MUXORA_HARDENING_FLAGS})
    add_link_options(${MUXORA_HARDENING_LINKER})
endmacro()

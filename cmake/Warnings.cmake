# Warnings and sanitizers of our own targets; never exported to users of the package.
add_library(muxora_warnings INTERFACE)
target_compile_options(muxora_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(MUXORA_WERROR)
    target_compile_options(muxora_warnings INTERFACE -Werror)
endif()

if(MUXORA_SANITIZE)
    add_compile_options(-fsanitize=${MUXORA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${MUXORA_SANITIZE})
endif()

# The records of the interface and the stretches of AES are little-endian, as every platform is that we test on.
if(CMAKE_VERSION VERSION_LESS 3.20)
    include(TestBigEndian)
    test_big_endian(MUXORA_BIG_ENDIAN)
elseif(CMAKE_CXX_BYTE_ORDER STREQUAL "BIG_ENDIAN")
    set(MUXORA_BIG_ENDIAN ON)
endif()
if(MUXORA_BIG_ENDIAN)
    message(FATAL_ERROR "Muxora supports little-endian machines only, and ${CMAKE_SYSTEM_PROCESSOR} is big-endian.")
endif()

# What the library stands on beside the compiler.
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Which of the units that speak with the system are built: src/basalt/native_file_*.cpp.
if(WIN32)
    set(MUXORA_SYSTEM win32)
else()
    set(MUXORA_SYSTEM posix)
endif()

# Warnings, hardening and sanitizers, in one interface target that every target links.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2")

add_library(kivctl_flags INTERFACE)
target_compile_options(kivctl_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
target_compile_definitions(kivctl_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)

if(KIVCTL_FUZZ AND NOT (KIVCTL_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang"))
    message(FATAL_ERROR "KIVCTL_FUZZ needs clang++ and KIVCTL_SANITIZE; see the preset \"fuzz\"")
endif()
if(KIVCTL_SANITIZE)
    # a failed check ends the program, so that no test can ignore a report; not vptr, which opens
    # pipes itself and fails where a test has used up the descriptors
    set(sanitize -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    if(KIVCTL_FUZZ)
        # coverage counters in all code; only the fuzz targets link libFuzzer, so that one build has
        # all tests
        list(APPEND sanitize -fsanitize=fuzzer-no-link)
    endif()
    target_compile_options(kivctl_flags INTERFACE ${sanitize} -g)
    target_link_options(kivctl_flags INTERFACE ${sanitize})
else()
    # the C library's headers refuse _FORTIFY_SOURCE without optimisation
    set(fortified $<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:BUILT_QUICKLY>>>>)
    target_compile_options(kivctl_flags INTERFACE
        -fstack-protector-strong -fstack-clash-protection
        $<${fortified}:-U_FORTIFY_SOURCE> $<${fortified}:-D_FORTIFY_SOURCE=2>)
    # what nobody calls, of ours and of the C++ library, is not in the program: less to map at each
    # of its runs
    target_compile_options(kivctl_flags INTERFACE -ffunction-sections -fdata-sections)
    target_link_options(kivctl_flags INTERFACE -Wl,--gc-sections
        -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
endif()

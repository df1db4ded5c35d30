# At configuration time, prints what is untested on the target architecture. Also runs as a script,
# for its test: cmake -DCMAKE_SYSTEM_PROCESSOR=NAME -P
if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|aarch64)$")
    message(WARNING "kivctl is tested on x86_64 and aarch64 only. On ${CMAKE_SYSTEM_PROCESSOR} no test has ever run. "
        "There the system-call filter knows the machine's own table, and ends programs that use another one.")
endif()

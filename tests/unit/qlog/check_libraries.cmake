# The toolkit's libraries live in foreign processes: they show nothing but their interface, and need nothing
# that a host may lack.
#   cmake -DNM=... -DREADELF=... -DFOLDER=<home>/lib -DSANITIZED=<bool> -P check_libraries.cmake
set(symbols_qlog "^(Qlg|Zos)[A-Za-z]+$")
set(symbols_qmsg "^(zis_|qmsgi_)[a-z_]+$")
set(symbols_qffdc "^qffdci_[a-z_]+$")
set(needed "^(libc\\.so|libm\\.so|ld-linux|libq(msg|ffdc)_64\\.so)")

foreach(library qlog qmsg qffdc)
    set(file "${FOLDER}/lib${library}_64.so")
    execute_process(COMMAND "${NM}" -D --defined-only --format=posix "${file}"
                    OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "[^\n]+" symbols "${symbols}")
    if(NOT symbols)
        message(SEND_ERROR "${file} shows nothing")
    endif()
    foreach(line IN LISTS symbols)
        string(REGEX REPLACE " .*" "" symbol "${line}")
        if(NOT symbol MATCHES "${symbols_${library}}")
            message(SEND_ERROR "${file} shows ${symbol}")
        endif()
    endforeach()
    if(SANITIZED)
        continue()  # a sanitizer's runtime is needed then
    endif()
    execute_process(COMMAND "${READELF}" -d "${file}" OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" lines "${dynamic}")
    foreach(line IN LISTS lines)
        string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" name "${line}")
        if(NOT name MATCHES "${needed}")
            message(SEND_ERROR "${file} needs ${name}")
        endif()
    endforeach()
endforeach()

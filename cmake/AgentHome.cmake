# Every preset lays out a complete agent home in its build folder as it builds, so that tests, demo and
# bench run what a user gets: lib/ bin/ etc/ msg/ codeset/ logs/. `cmake --install` writes the same layout.
set(VELORA_HOME "${CMAKE_BINARY_DIR}/home")
file(MAKE_DIRECTORY "${VELORA_HOME}/lib" "${VELORA_HOME}/bin" "${VELORA_HOME}/etc"
     "${VELORA_HOME}/msg" "${VELORA_HOME}/codeset" "${VELORA_HOME}/logs")

# Installs a shipped target stripped, its line numbers in <folder>/.debug beside it, where debuggers look.
function(velora_split_debug target folder)
    if(NOT VELORA_SHIPPED)
        return()
    endif()
    install(CODE "
        set(file \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}/$<TARGET_FILE_NAME:${target}>\")
        set(debug \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}/.debug/$<TARGET_FILE_NAME:${target}>.debug\")
        file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}/.debug\")
        execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --only-keep-debug \"\${file}\" \"\${debug}\" COMMAND_ERROR_IS_FATAL ANY)
        execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-unneeded \"\${file}\" COMMAND_ERROR_IS_FATAL ANY)
        execute_process(COMMAND \"${CMAKE_OBJCOPY}\" \"--add-gnu-debuglink=\${debug}\" \"\${file}\" COMMAND_ERROR_IS_FATAL ANY)
    ")
endfunction()

# Builds a library target straight into <home>/lib and installs it to lib/.
function(velora_home_library target)
    set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${VELORA_HOME}/lib"
                          BUILD_RPATH "$ORIGIN")
    install(TARGETS ${target} LIBRARY DESTINATION lib)
    velora_split_debug(${target} lib)
endfunction()

# Builds a program straight into <home>/bin and installs it to bin/.
function(velora_home_program target)
    set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${VELORA_HOME}/bin")
    install(TARGETS ${target} RUNTIME DESTINATION bin)
    velora_split_debug(${target} bin)
endfunction()

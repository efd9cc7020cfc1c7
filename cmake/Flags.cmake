# The compiler flags of every target of this project, carried by one interface target.
set(VELORA_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize= (empty: none)")

option(VELORA_FUZZ "Build the fuzz targets of tests/fuzz (clang only)" OFF)
add_library(velora_flags INTERFACE)
target_compile_options(velora_flags INTERFACE
    -Wall -Wextra -Werror -fvisibility=hidden -fvisibility-inlines-hidden
    -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC bug 105651: std::string's own operator+ and insert look like overlapping copies to this release.
    target_compile_options(velora_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()

# What is shipped: stacks and buffers are checked, and line numbers lie in a file beside each library (AgentHome.cmake).
string(COMPARE EQUAL "${CMAKE_BUILD_TYPE}" Release VELORA_SHIPPED)
if(VELORA_SHIPPED)
    set(fortify 3)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
        set(fortify 2)
    endif()
    target_compile_options(velora_flags INTERFACE -g1 -fstack-protector-strong -U_FORTIFY_SOURCE
                           -D_FORTIFY_SOURCE=${fortify})
endif()
# All addresses are bound at the start, and their table is read-only from then on.
target_link_options(velora_flags INTERFACE -Wl,-z,relro,-z,now)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
if(VELORA_SANITIZE)
    target_compile_options(velora_flags INTERFACE -fsanitize=${VELORA_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(velora_flags INTERFACE -fsanitize=${VELORA_SANITIZE})
endif()

if(VELORA_FUZZ)  # the fuzzer steers by coverage, of the libraries too
    target_compile_options(velora_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# A shared library that a foreign process loads: it brings its own C++ runtime along, shows nothing
# but the symbols of its version script, finds its sisters beside itself and leaves no symbol open.
function(velora_hosted_library target version_script)
    target_link_options(${target} PRIVATE
        "-Wl,--version-script=${version_script}" -Wl,--exclude-libs,ALL)
    set_target_properties(${target} PROPERTIES LINK_DEPENDS "${version_script}"
                          BUILD_RPATH_USE_ORIGIN ON INSTALL_RPATH "$ORIGIN")
    if(NOT VELORA_SANITIZE)  # a sanitizer's runtime wants the shared C++ runtime
        target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc -Wl,--no-undefined)
    endif()
endfunction()

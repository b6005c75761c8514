# What every target is compiled and linked with. The presets choose among the options below.

option(INSTALLER_WERROR "Treat warnings as errors" OFF)
option(INSTALLER_HARDEN "Build a hardened program: PIE, RELRO, stack protector, _FORTIFY_SOURCE" OFF)
option(INSTALLER_SANITIZE "Build with the address and undefined-behaviour sanitizers" OFF)
option(INSTALLER_STATIC "Link a program that needs no library of its host; it reads the host's tables of users itself" OFF)
option(INSTALLER_BENCH "Build what scripts/bench runs (needs Google Benchmark)" OFF)
option(INSTALLER_FUZZ "Build the fuzz targets (needs Clang)" OFF)
option(INSTALLER_COVERAGE "Count the lines and branches that run, for scripts/coverage" OFF)

add_library(project_options INTERFACE)
target_compile_options(project_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2)

if(INSTALLER_WERROR)
    target_compile_options(project_options INTERFACE -Werror)
endif()

if(INSTALLER_HARDEN)
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
    target_compile_options(project_options INTERFACE -fstack-protector-strong -fstack-clash-protection -fcf-protection
                                                     -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    target_link_options(project_options INTERFACE -Wl,-z,relro,-z,now)
endif()

# The linker warns where a look-up of the system's would need its libraries after all: that fails the build.
if(INSTALLER_STATIC)
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
    target_link_options(project_options INTERFACE -static-pie -Wl,--fatal-warnings)
elseif(INSTALLER_HARDEN)
    target_link_options(project_options INTERFACE -pie -static-libstdc++ -static-libgcc)
endif()

# The same program comes of the same sources, wherever the tree lies.
target_compile_options(project_options INTERFACE $<$<CONFIG:Release>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>)

if(INSTALLER_SANITIZE)
    target_compile_options(project_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                                                     -fno-omit-frame-pointer)
    target_link_options(project_options INTERFACE -fsanitize=address,undefined)
endif()

if(INSTALLER_FUZZ)
    target_compile_options(project_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

if(INSTALLER_COVERAGE)
    # Without inlining and with counters that survive several processes at a time.
    target_compile_options(project_options INTERFACE --coverage -fno-inline -fprofile-update=atomic)
    target_link_options(project_options INTERFACE --coverage)
    target_compile_definitions(project_options INTERFACE INSTALLER_COVERAGE)
endif()

# What `cmake --install` and the packages hold. Everything belongs to the component "program", but for what a Debian
# package holds in another form: the files of the component "debian" stand there for those of "papers".

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME program)
# The modes of what is installed do not depend on the umask; those of the folders above are the installing user's affair.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

find_program(GZIP gzip REQUIRED)

# Compresses `source` to `target` in the build folder: without the name and the time, so that the bytes are always the same.
function(compressed source target)
    set(target ${CMAKE_CURRENT_BINARY_DIR}/${target})
    add_custom_command(OUTPUT ${target} COMMAND ${GZIP} -9nc ${source} > ${target} DEPENDS ${source} VERBATIM)
    set_property(DIRECTORY APPEND PROPERTY compressed_files ${target})
endfunction()

install(TARGETS installer)

file(GLOB man_pages CONFIGURE_DEPENDS docs/man/*.[1-8])
foreach(page IN LISTS man_pages)
    get_filename_component(name ${page} NAME)
    string(REGEX MATCH "[1-8]$" section ${name})
    compressed(${page} ${name}.gz)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

# The documents keep their places to each other, so that their links hold.
file(GLOB documents CONFIGURE_DEPENDS docs/*.md)
install(FILES README.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY examples/noticeboard DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES LICENSE CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT papers)

# --- Debian's ---

file(READ LICENSE licence)
string(REGEX REPLACE "^[^\n]*\n\n([^\n]*)\n\n" "" licence_text "${licence}")
set(licence_holder ${CMAKE_MATCH_1})
string(REGEX REPLACE "\n\n" "\n.\n" licence_text "${licence_text}")
string(REGEX REPLACE "\n$" "" licence_text "${licence_text}")
string(REPLACE "\n" "\n " licence_text "${licence_text}")
string(REGEX REPLACE "^Copyright \\(c\\) " "" licence_holder "${licence_holder}")
configure_file(packaging/copyright.in copyright @ONLY)
compressed(${CMAKE_SOURCE_DIR}/packaging/changelog changelog.Debian.gz)
compressed(${CMAKE_SOURCE_DIR}/CHANGELOG.md changelog.gz)
set(debian_files copyright changelog.Debian.gz changelog.gz)
list(TRANSFORM debian_files PREPEND ${CMAKE_CURRENT_BINARY_DIR}/)
install(FILES ${debian_files} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/installer
        COMPONENT debian EXCLUDE_FROM_ALL)

get_property(compressed_files DIRECTORY PROPERTY compressed_files)
add_custom_target(compressed_files ALL DEPENDS ${compressed_files})

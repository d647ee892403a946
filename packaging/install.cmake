# What `cmake --install` and the Debian package bring.

# No other program uses these libraries, so they lie in a directory of the tool's own. The
# system's libbase is outside the linker's path too.
set(PRIVATE_LIBRARY_DIR lib/${CMAKE_LIBRARY_ARCHITECTURE}/extprop)
set_target_properties(extprop PROPERTIES
        INSTALL_RPATH "$ORIGIN/../${PRIVATE_LIBRARY_DIR};${ANDROID_LIBRARY_DIR}")
set_target_properties(tesvoextproperty extprop_platform extprop_decoders PROPERTIES
        INSTALL_RPATH "$ORIGIN;${ANDROID_LIBRARY_DIR}")
install(TARGETS extprop)
install(TARGETS tesvoextproperty extprop_platform extprop_decoders DESTINATION ${PRIVATE_LIBRARY_DIR})

find_program(GZIP gzip REQUIRED)
set(COMPRESSED_DIR ${PROJECT_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${COMPRESSED_DIR})
set(COMPRESSED_FILES)
foreach(file extprop.1 changelog)
    set(source ${CMAKE_CURRENT_LIST_DIR}/${file})
    set(compressed ${COMPRESSED_DIR}/${file}.gz)
    add_custom_command(OUTPUT ${compressed} COMMAND ${GZIP} -9nc ${source} >${compressed}
            DEPENDS ${source})
    list(APPEND COMPRESSED_FILES ${compressed})
endforeach()
add_custom_target(compressed_files ALL DEPENDS ${COMPRESSED_FILES})

set(DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/extprop)
install(FILES ${COMPRESSED_DIR}/extprop.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${COMPRESSED_DIR}/changelog.gz ${CMAKE_CURRENT_LIST_DIR}/copyright
        ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${DOC_DIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/samples DESTINATION ${DOC_DIR})
install(FILES ${CMAKE_CURRENT_LIST_DIR}/extprop.bash RENAME extprop
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
# zsh looks for the functions of packages in one place and for those of the machine in another.
install(CODE "set(ZSH_DIR site-functions)
        if(CMAKE_INSTALL_PREFIX MATCHES \"/usr$\")
            set(ZSH_DIR vendor-completions)
        endif()")
install(FILES ${CMAKE_CURRENT_LIST_DIR}/_extprop
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/\${ZSH_DIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME extprop)
set(CPACK_PACKAGE_CONTACT
        "Seed 5c6c5955 maintainers <maintainers@users.noreply.c-seed-5c6c5955.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "show which properties a phone's boot will set, and why")
set(CPACK_PACKAGE_DESCRIPTION
"extprop boots a directory that looks like a phone's root: it emulates init
and runs the very library that loads the brand, region, carrier and SIM
property files on the phone. It prints every property and where its value
comes from, compares boots, variants and phones, and finds faults in the
files before anything is flashed.")
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/directory_modes.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_SUGGESTS bash-completion)
include(CPack)

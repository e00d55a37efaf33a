# Installation (make install; prefix /usr/local unless CMAKE_INSTALL_PREFIX
# says otherwise) and the Debian package (make package, prefix /usr).
# The program is installed unstripped: its resources are appended to it.
include(GNUInstallDirs)
# Installing needs the program, its man page and resources, not the tests:
# make install / make package build those targets first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY TRUE)
set(IXMOD_EXAMPLES_DIR ${CMAKE_INSTALL_DATADIR}/ixmod/examples)

install(TARGETS ixmod RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(PROGRAMS scripts/lab-setup.sh DESTINATION ${CMAKE_INSTALL_SBINDIR} RENAME ixmod-lab-setup)

add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/ixmod.1.gz
  COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/docs/ixmod.1 > ${CMAKE_BINARY_DIR}/ixmod.1.gz
  DEPENDS ${CMAKE_SOURCE_DIR}/docs/ixmod.1
  VERBATIM)
add_custom_target(ixmod_man ALL DEPENDS ${CMAKE_BINARY_DIR}/ixmod.1.gz)
install(FILES ${CMAKE_BINARY_DIR}/ixmod.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

install(FILES README.md docs/platform.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

file(GLOB IXMOD_EXAMPLE_FILES ${CMAKE_SOURCE_DIR}/examples/*.s ${CMAKE_SOURCE_DIR}/examples/*.dict
     ${CMAKE_SOURCE_DIR}/examples/*.cfg ${CMAKE_SOURCE_DIR}/examples/*.wav ${CMAKE_SOURCE_DIR}/examples/*.emf)
install(FILES ${IXMOD_EXAMPLE_FILES} examples/empty.lst DESTINATION ${IXMOD_EXAMPLES_DIR})
install(DIRECTORY examples/film DESTINATION ${IXMOD_EXAMPLES_DIR})
# The instruction pictures of the crossmodal example, and its file list
# pointing at them where they are installed.
install(FILES ${CMAKE_BINARY_DIR}/resources/anwde.bmp ${CMAKE_BINARY_DIR}/resources/anwen.bmp
        DESTINATION ${IXMOD_EXAMPLES_DIR})
install(CODE "
  set(dir \"\${CMAKE_INSTALL_PREFIX}/${IXMOD_EXAMPLES_DIR}\")
  file(WRITE \"\$ENV{DESTDIR}\${dir}/crossmodal.lst\"
       \"2\\nanwde.bmp\\n\${dir}/anwde.bmp\\nanwen.bmp\\n\${dir}/anwen.bmp\\n\")
  message(STATUS \"Installing: \$ENV{DESTDIR}\${dir}/crossmodal.lst\")")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ixmod)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "crossmodal reaction-time test for neuropsychology")
set(CPACK_PACKAGE_DESCRIPTION
    "Full-screen arrow pictures answered by a key, preparatory tones, a millisecond schedule, logs, and lab equipment on parallel and serial ports.")
set(CPACK_PACKAGE_CONTACT "ixmod maintainers <ixmod@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES OFF)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "liballegro4.4 (>= 2:4.4.3), libfreetype6, libfontconfig1, fonts-liberation, libx11-6, libxext6, libxtst6, "
    "libxrandr2, libx11-xcb1, libxcb-present0, libdrm2, libasound2, libserialport0, libieee1284-3, librsvg2-2, "
    "libcairo2, libglib2.0-0, libemf2svg1, libstdc++6, libgcc-s1, libc6")
string(REPLACE ";" "" CPACK_DEBIAN_PACKAGE_DEPENDS "${CPACK_DEBIAN_PACKAGE_DEPENDS}")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "alsa-utils")
include(CPack)

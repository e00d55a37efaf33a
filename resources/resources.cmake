# The resource datafile: ixmod_resgen writes pictures, tones, the bitmap font
# and the list files, resources/mkdat.sh packs them into ixmod.dat with
# Allegro's dat, and exedat appends it to ixmod after every link, so that
# load_datafile_object("#", name) finds every object.
find_program(ALLEGRO_DAT dat REQUIRED)
find_program(ALLEGRO_EXEDAT exedat REQUIRED)

add_executable(ixmod_resgen tools/resgen.cpp)
target_link_libraries(ixmod_resgen PRIVATE ${ALLEGRO_LIBS} PkgConfig::FT)

set(IXMOD_RES_DIR ${CMAKE_BINARY_DIR}/resources)
set(IXMOD_DAT ${CMAKE_BINARY_DIR}/ixmod.dat)
add_custom_command(OUTPUT ${IXMOD_DAT}
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${IXMOD_RES_DIR}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${IXMOD_RES_DIR}
  COMMAND ixmod_resgen ${IXMOD_RES_DIR}
  COMMAND sh ${CMAKE_SOURCE_DIR}/resources/mkdat.sh ${ALLEGRO_DAT} ${IXMOD_RES_DIR} ${IXMOD_DAT}
  DEPENDS ixmod_resgen ${CMAKE_SOURCE_DIR}/resources/mkdat.sh
  COMMENT "Generating resources into ixmod.dat"
  VERBATIM)
add_custom_target(ixmod_dat DEPENDS ${IXMOD_DAT})

# A new datafile relinks ixmod; every link appends it again (exedat works in
# place and replaces data appended before).
add_dependencies(ixmod ixmod_dat)
set_property(TARGET ixmod APPEND PROPERTY LINK_DEPENDS ${IXMOD_DAT})
add_custom_command(TARGET ixmod POST_BUILD
  COMMAND ${ALLEGRO_EXEDAT} $<TARGET_FILE:ixmod> ${IXMOD_DAT} > /dev/null
  COMMENT "Appending ixmod.dat to ixmod"
  VERBATIM)

add_executable(ixmod_rescheck tools/rescheck.cpp)
target_link_libraries(ixmod_rescheck PRIVATE ${ALLEGRO_LIBS})
add_test(NAME resources_appended COMMAND ixmod_rescheck $<TARGET_FILE:ixmod>)
set_tests_properties(resources_appended PROPERTIES TIMEOUT 60 LABELS unit)

# Manual pages of the player and the tools, made by help2man from each
# program's own --help and --version at build time, so a page can never say
# something other than the program does.  They land in <build>/man/man1/
# (`man -l build/man/man1/talvoplayer.1`) and are installed with the rest.
include(GNUInstallDirs)
find_program(HELP2MAN help2man REQUIRED)

set(man_pages)
foreach(entry
    "talvoplayer|play spoken-word audio programs and answer a desktop's sync commands"
    "talvoreg|inspect, edit and repair the TalvoPlayer registry store"
    "talvosync|run a TalvoPlayer sync command on a device and print its answer"
    "zqxpack|make a TalvoPlayer program file from ordinary audio files"
    "zqxinfo|show what a TalvoPlayer program file holds and whether it is intact"
    "feldrun|bring audio books into the TalvoPlayer Music folder as programs")
  string(REPLACE "|" ";" parts "${entry}")
  list(GET parts 0 program)
  list(GET parts 1 summary)
  set(page ${CMAKE_BINARY_DIR}/man/man1/${program}.1)
  add_custom_command(
    OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man/man1
    COMMAND ${HELP2MAN} --no-info --section=1 --name=${summary} --output=${page} $<TARGET_FILE:${program}>
    DEPENDS ${program}
    COMMENT "Writing the manual page of ${program}"
    VERBATIM)
  list(APPEND man_pages ${page})
  # The page shows what --help says: its first usage line, rendered by man.
  add_test(NAME man_page_${program}
           COMMAND sh -c "first=$(\"$1\" --help | head -n 1 | sed 's/^[Uu]sage: *//'); \
LC_ALL=C MANWIDTH=200 MANPAGER=cat man -l \"$2\" | tr -s ' ' | grep -F -- \"$(printf '%s' \"$first\" | tr -s ' ')\""
                   sh $<TARGET_FILE:${program}> ${page})
  set_tests_properties(man_page_${program} PROPERTIES LABELS docs)
endforeach()
add_custom_target(man_pages ALL DEPENDS ${man_pages})
install(FILES ${man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# The install layout (GNUInstallDirs): the player and its tools in bin/, the
# SDK in lib/, the read-only program data (skins, help page) in
# share/talvoplayer/, and the desktop's entries: the .desktop file, the icon
# and the shared-mime-info package for .zq and .zqx.  The player finds its data
# from its own folder through the relative path bin -> share/talvoplayer
# (platform/ProgramFolders.h), so an installed tree works under any prefix;
# `cmake --install build --prefix DIR` and `make install PREFIX=DIR` both serve.
include(GNUInstallDirs)
set(TALVO_DATA_DESTINATION ${CMAKE_INSTALL_DATADIR}/talvoplayer)
set(TALVO_INSTALLED_PROGRAMS talvoplayer talvosync talvoreg zqxinfo zqxpack feldrun skincheck)

file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(${TALVO_INSTALLED_PROGRAMS} PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
install(TARGETS ${TALVO_INSTALLED_PROGRAMS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS zqxsdk LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)

# The skins are drawn by the build (tools/skin-artwork) into <build>/bin/Skins.
install(DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Skins DESTINATION ${TALVO_DATA_DESTINATION})
install(FILES ${PROJECT_SOURCE_DIR}/data/help/TalvoPlayerHlp.htm ${PROJECT_SOURCE_DIR}/data/welcome/zqserver.ini
        DESTINATION ${TALVO_DATA_DESTINATION})
# The player starts "Feldrun" from its own folder, which installed is the data
# folder: a relative link to feldrun, so the tree may move to another prefix.
file(RELATIVE_PATH data_to_bin ${CMAKE_INSTALL_FULL_DATADIR}/talvoplayer ${CMAKE_INSTALL_FULL_BINDIR})
install(CODE "
  set(link \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${TALVO_DATA_DESTINATION}/Feldrun\")
  file(REMOVE \"\${link}\")
  file(CREATE_LINK \"${data_to_bin}/feldrun\" \"\${link}\" SYMBOLIC)
")

install(FILES ${PROJECT_SOURCE_DIR}/data/desktop/talvoplayer.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/data/desktop/talvoplayer.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
install(FILES ${PROJECT_SOURCE_DIR}/data/desktop/talvoplayer.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages)
# A package leaves the mime database and the desktop's list of which program
# opens which type to the system's triggers (DESTDIR set); a direct install
# updates both, or a file manager would not offer the player for .zq until then.
install(CODE [[
  if(NOT DEFINED ENV{DESTDIR} OR "$ENV{DESTDIR}" STREQUAL "")
    find_program(update_mime update-mime-database)
    if(update_mime)
      execute_process(COMMAND ${update_mime} "${CMAKE_INSTALL_PREFIX}/share/mime")
    endif()
    find_program(update_desktop update-desktop-database)
    if(update_desktop)
      execute_process(COMMAND ${update_desktop} "${CMAKE_INSTALL_PREFIX}/share/applications")
    endif()
  endif()
]])

# corvane_bundle(<name> IDENTIFIER <id> VERSION <version> SERVICE <class> SOURCES <files> [LINKS <targets>] [OUTPUT <folder>])
# A service in a bundle: <build>/lib/corvane/<name>.bundle/{Info.plist,lib<name>.so}, installed likewise. A bundle
# with an output folder of its own is a test's, and is not installed.
#
# The library exports its entry and nothing else, so that two bundles never take each other's functions. The
# version script is needed beside hidden visibility: templates of the standard library stay visible there.

function(corvane_bundle name)
  cmake_parse_arguments(BUNDLE "" "IDENTIFIER;VERSION;SERVICE;OUTPUT" "SOURCES;LINKS" ${ARGN})
  set(output ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/corvane)
  if(BUNDLE_OUTPUT)
    set(output ${BUNDLE_OUTPUT})
  endif()
  set(folder ${output}/${name}.bundle)
  set(exports ${PROJECT_SOURCE_DIR}/cmake/Bundle.exports)

  add_library(${name} MODULE ${BUNDLE_SOURCES})
  target_link_libraries(${name} PRIVATE corvane-options corvane-platform ${BUNDLE_LINKS})
  target_link_options(${name} PRIVATE -Wl,--version-script=${exports})
  set_target_properties(${name} PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${folder}
    LINK_DEPENDS ${exports}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    INSTALL_RPATH "$ORIGIN/../..")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/Info.plist.in ${folder}/Info.plist @ONLY)

  if(NOT BUNDLE_OUTPUT)
    install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/corvane/${name}.bundle)
    install(FILES ${folder}/Info.plist DESTINATION ${CMAKE_INSTALL_LIBDIR}/corvane/${name}.bundle)
  endif()
  if(CORVANE_TESTS)
    add_test(NAME ${name}.bundle-exports-its-entry-and-nothing-else
      COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DLIBRARY=$<TARGET_FILE:${name}> -P
              ${PROJECT_SOURCE_DIR}/cmake/CheckBundleExports.cmake)
  endif()
endfunction()

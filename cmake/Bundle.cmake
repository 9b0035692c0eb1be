# corvane_bundle(<name> IDENTIFIER <id> VERSION <version> SERVICE <class> | PLUGIN <function> [EXPORTS <further symbols>]
#                SOURCES <files> [LINKS <targets>] [OUTPUT <folder>])
# A service, or a plug-in of the audio system, in a bundle: <build>/lib/corvane/<name>.bundle/{Info.plist,lib<name>.so}, installed likewise. A bundle
# with an output folder of its own is a test's, and is not installed.
#
# The library exports its entry and nothing else, so that two bundles never take each other's functions. The
# version script is needed beside hidden visibility: templates of the standard library stay visible there.

function(corvane_bundle name)
  cmake_parse_arguments(BUNDLE "" "IDENTIFIER;VERSION;SERVICE;PLUGIN;OUTPUT" "EXPORTS;SOURCES;LINKS" ${ARGN})
  set(output ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/corvane)
  if(BUNDLE_OUTPUT)
    set(output ${BUNDLE_OUTPUT})
  endif()
  set(folder ${output}/${name}.bundle)
  set(exports ${PROJECT_BINARY_DIR}/${name}.exports)
  if(BUNDLE_SERVICE)
    set(entry CorvaneCreateService)
    set(BUNDLE_KIND "\t<key>CorvaneServiceClass</key>\n\t<string>${BUNDLE_SERVICE}</string>\n")
  else()
    set(entry ${BUNDLE_PLUGIN})
    # The factory's identifier only ties the two lists together; the type's says that this is for the audio system.
    string(UUID factory NAMESPACE F8BB1C28-BAE8-11D6-9C31-00039315CD46 NAME ${BUNDLE_IDENTIFIER} TYPE SHA1 UPPER)
    set(BUNDLE_KIND
      "\t<key>CFPlugInFactories</key>\n\t<dict>\n\t\t<key>${factory}</key>\n\t\t<string>${entry}</string>\n\t</dict>\n"
      "\t<key>CFPlugInTypes</key>\n\t<dict>\n\t\t<key>F8BB1C28-BAE8-11D6-9C31-00039315CD46</key>\n"
      "\t\t<array>\n\t\t\t<string>${factory}</string>\n\t\t</array>\n\t</dict>\n")
    string(CONCAT BUNDLE_KIND ${BUNDLE_KIND})
  endif()
  set(symbols ${entry} ${BUNDLE_EXPORTS})
  string(REPLACE ";" "; " BUNDLE_EXPORTS "${symbols};")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/Bundle.exports.in ${exports} @ONLY)

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
      COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DLIBRARY=$<TARGET_FILE:${name}> "-DEXPORTS=${symbols}" -P
              ${PROJECT_SOURCE_DIR}/cmake/CheckBundleExports.cmake)
  endif()
endfunction()

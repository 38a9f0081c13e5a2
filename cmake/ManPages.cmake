# SPDX-License-Identifier: MIT
# Man pages from docs/man/NAME.SECTION.md, which take whole sections from the other documents.
find_program(SPH_PANDOC pandoc REQUIRED)
mark_as_advanced(SPH_PANDOC)

# sph_man_page(NAME SECTION) [COMPONENT name]
function(sph_man_page name section)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "COMPONENT" "")
  set(source ${PROJECT_SOURCE_DIR}/docs/man/${name}.${section}.md)
  set(page ${PROJECT_BINARY_DIR}/man/${name}.${section})
  set(include ${PROJECT_SOURCE_DIR}/packaging/include.lua)
  set(filter ${PROJECT_SOURCE_DIR}/packaging/man.lua)
  file(GLOB documents ${PROJECT_SOURCE_DIR}/docs/*.md)
  add_custom_command(
    OUTPUT ${page}
    COMMAND ${SPH_PANDOC} --from markdown-smart --to man --standalone
            --lua-filter ${include} --lua-filter ${filter}
            --metadata title=${name} --metadata section=${section}
            --metadata "footer=SerialPortHandler ${PROJECT_VERSION}"
            --output ${page} ${source}
    DEPENDS ${source} ${include} ${filter} ${documents} ${PROJECT_SOURCE_DIR}/README.md
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    VERBATIM)
  add_custom_target(man-${name} ALL DEPENDS ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
          COMPONENT ${arg_COMPONENT})
endfunction()

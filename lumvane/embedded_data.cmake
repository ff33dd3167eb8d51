# Compiles the string lists under lumvane/filter/data/ into lumvane_core: each
# <Name>.txt becomes a generated <Name>.cc defining `LVStringList <Name>()`.
# The lists are program data, never read at run time; editing a .txt (or the
# embedding script) regenerates its source on the next build.
set(LUMVANE_DATA_DIR ${PROJECT_SOURCE_DIR}/lumvane/filter/data)
set(LUMVANE_EMBED_SCRIPT ${LUMVANE_DATA_DIR}/EmbedStringList.cmake)
set(LUMVANE_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated/lumvane/filter/data)
file(MAKE_DIRECTORY ${LUMVANE_GENERATED_DIR})

file(GLOB LUMVANE_STRING_LISTS CONFIGURE_DEPENDS ${LUMVANE_DATA_DIR}/*.txt)
foreach(list_file ${LUMVANE_STRING_LISTS})
  get_filename_component(list_name ${list_file} NAME_WE)
  set(generated ${LUMVANE_GENERATED_DIR}/${list_name}.cc)
  add_custom_command(
    OUTPUT ${generated}
    COMMAND ${CMAKE_COMMAND} -DINPUT=${list_file} -DOUTPUT=${generated}
            -DNAME=${list_name} -P ${LUMVANE_EMBED_SCRIPT}
    DEPENDS ${list_file} ${LUMVANE_EMBED_SCRIPT}
    COMMENT "Embedding string list ${list_name}"
    VERBATIM)
  target_sources(lumvane_core PRIVATE ${generated})
endforeach()

# Files as parts of a program. Included, it gives moncl_embed; as a script it writes OUTPUT, a source
# file with the contents of all files of FOLDER, plain and packed:
#     cmake -DFOLDER=... -DOUTPUT=... -P moncl_embed.cmake
cmake_minimum_required(VERSION 3.25)
if(NOT CMAKE_SCRIPT_MODE_FILE)
  set(moncl_embed_script ${CMAKE_CURRENT_LIST_FILE})
  # Makes the source file `output` of this folder from the files of `folder`, at each build, after the
  # target `maker`, if there is one.
  function(moncl_embed output folder maker)
    add_custom_target(moncl_embedded
      COMMAND ${CMAKE_COMMAND} -DFOLDER=${folder} -DOUTPUT=${CMAKE_CURRENT_BINARY_DIR}/${output}
              -P ${moncl_embed_script}
      BYPRODUCTS ${output} VERBATIM)
    if(TARGET ${maker})
      add_dependencies(moncl_embedded ${maker})
    endif()
  endfunction()
  return()
endif()

function(type_of name into)
  set(type application/octet-stream)
  foreach(known html=text/html js=text/javascript css=text/css svg=image/svg+xml png=image/png
          ico=image/x-icon woff2=font/woff2 json=application/json txt=text/plain)
    string(REGEX MATCH "^([a-z0-9]+)=(.*)$" unused ${known})
    if(name MATCHES "\\.${CMAKE_MATCH_1}$")
      string(REGEX REPLACE "^[a-z0-9]+=" "" type ${known})
    endif()
  endforeach()
  if(type MATCHES "^text/")
    string(APPEND type "; charset=utf-8")
  endif()
  set(${into} "${type}" PARENT_SCOPE)
endfunction()

function(bytes_of file into)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(................................)" "\\1\n" bytes "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  set(${into} "${bytes}" PARENT_SCOPE)
endfunction()

set(arrays "")
set(entries "")
set(number 0)
file(GLOB files LIST_DIRECTORIES FALSE ${FOLDER}/*)
foreach(file ${files})
  get_filename_component(name ${file} NAME)
  type_of(${name} type)
  file(SHA256 ${file} hash)
  string(SUBSTRING ${hash} 0 16 hash)
  file(ARCHIVE_CREATE OUTPUT ${OUTPUT}.gz PATHS ${file} FORMAT raw COMPRESSION GZip)
  bytes_of(${file} plain)
  bytes_of(${OUTPUT}.gz packed)
  # Without the time of packing, the same files give the same program.
  string(SUBSTRING "${packed}" 40 -1 packed) # 8 bytes of the header
  string(PREPEND packed "0x1f,0x8b,0x08,0x00,0,0,0,0,")
  file(REMOVE ${OUTPUT}.gz)
  # An array needs an element, also that of an empty file.
  string(APPEND arrays "const unsigned char plain_${number}[] = {\n${plain}0};\n"
                       "const unsigned char packed_${number}[] = {\n${packed}0};\n")
  string(APPEND entries "        {\"${name}\", \"${type}\", \"\\\"${hash}\\\"\", view(plain_${number}), "
                        "view(packed_${number})},\n")
  math(EXPR number "${number} + 1")
endforeach()
set(view "")
if(number GREATER 0)
  set(view "
template<std::size_t size>
std::string_view view(const unsigned char (&of)[size]) {
    return {reinterpret_cast<const char*>(of), size - 1};
}
")
endif()
# Leaves a file alone that would stay as it is.
file(CONFIGURE OUTPUT ${OUTPUT} @ONLY CONTENT "// Made by the build from the files of the page.
#include \"web_files.h\"

#include <cstddef>

namespace exporter {

namespace {
@arrays@@view@} // namespace

std::vector<web_file> web_files() {
    return {
@entries@    };
}

} // namespace exporter
")

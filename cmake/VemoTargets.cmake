# How targets of this project are made.

include(GenerateExportHeader)

# Every target of ours: warnings are errors, and floating point gives the same
# doubles on every machine (clocks and time code compare them).
add_library(vemo_options INTERFACE)
target_compile_options(vemo_options INTERFACE -Wall -Wextra -Wshadow -Werror -ffp-contract=off)
# Version 12 takes the library's own copying for overlapping or overflowing once it has inlined it
# ("text" + std::string, std::vector::insert).
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(vemo_options INTERFACE -Wno-restrict -Wno-stringop-overflow)
endif()

# vemo_shared_library(TARGET FOLDER SOURCES...)
#
# A shared library whose public names carry <TARGET>_EXPORT. The header with the
# macro is generated, as "FOLDER/TARGET_export.h", so that no source of ours asks
# which platform it is on.
function(vemo_shared_library target folder)
  string(TOUPPER ${target} upper)
  add_library(${target} SHARED ${ARGN})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/generated)
  target_link_libraries(${target} PRIVATE vemo_options PUBLIC Threads::Threads)
  generate_export_header(${target} EXPORT_MACRO_NAME ${upper}_EXPORT
    EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/generated/${folder}/${target}_export.h)
endfunction()

# vemo_header_library(NAME FIRST_HEADER)
#
# An installed library of headers alone, as target vemo_NAME. A cross compiler
# must never see the system's include folder, so it gets a copy of the library's
# own top folder (or single header) and nothing beside it.
function(vemo_header_library name first_header)
  add_library(vemo_${name} INTERFACE)
  find_path(VEMO_${name}_INCLUDE_DIR ${first_header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)
  if(NOT VEMO_${name}_INCLUDE_DIR)
    message(WARNING "${first_header} is not installed; what uses it will not compile")
  elseif(CMAKE_CROSSCOMPILING)
    string(REGEX REPLACE "/.*" "" top ${first_header})
    file(COPY ${VEMO_${name}_INCLUDE_DIR}/${top} DESTINATION ${PROJECT_BINARY_DIR}/headers/${name})
    target_include_directories(vemo_${name} SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/headers/${name})
  endif()
endfunction()

# The libraries throw across their borders and so must share one C++ runtime;
# it stands beside them, which makes bin/ complete for a machine without MinGW.
if(MINGW)
  foreach(file libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${file}
      OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    file(COPY ${path} DESTINATION ${PROJECT_BINARY_DIR}/bin)
  endforeach()
endif()

# Compiles one header on its own, as C11 and C17 (unless it is C++ only) and as
# C++11, C++17 and C++20, with every warning an error. Run by ctest as
#   cmake -DHEADER=... -DINCLUDES=a|b -DCC=... -DCXX=... -DCXX_ONLY=0|1 -DWORK=dir -P check_header.cmake
# A header that compiles only after another one was included, or only in one
# language, fails here rather than in a host's build.
string(REPLACE "|" ";" include_dirs "${INCLUDES}")
set(flags -fsyntax-only -Wall -Wextra -pedantic -Werror)
foreach(dir ${include_dirs})
  list(APPEND flags -I${dir})
endforeach()

file(MAKE_DIRECTORY "${WORK}")
get_filename_component(stem "${HEADER}" NAME_WE)
set(source "#include \"${HEADER}\"\n")
if(stem STREQUAL "tarn_module")
  # The return codes are constant expressions: a C switch can name them.
  string(APPEND source "int tarn_check_status(int s);\n"
    "int tarn_check_status(int s) {\n  switch (s) {\n    case TARN_SUCCESS: return 1;\n"
    "    case TARN_FAILURE: return 2;\n    default: return 0;\n  }\n}\n")
endif()

set(runs)
if(NOT CXX_ONLY)
  list(APPEND runs "c|c11|c" "c|c17|c")
endif()
list(APPEND runs "cxx|c++11|cc" "cxx|c++17|cc" "cxx|c++20|cc")

set(failed 0)
foreach(run ${runs})
  string(REPLACE "|" ";" parts "${run}")
  list(GET parts 0 language)
  list(GET parts 1 standard)
  list(GET parts 2 extension)
  set(file "${WORK}/${stem}_${standard}.${extension}")
  string(REPLACE "+" "x" file "${file}")
  file(WRITE "${file}" "${source}")
  if(language STREQUAL "c")
    set(compiler ${CC})
  else()
    set(compiler ${CXX})
  endif()
  execute_process(COMMAND ${compiler} -std=${standard} ${flags} "${file}"
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(status EQUAL 0)
    message(STATUS "${HEADER} as ${standard}: clean")
  else()
    message("${HEADER} as ${standard}: FAILED\n${out}")
    set(failed 1)
  endif()
endforeach()
if(failed)
  message(FATAL_ERROR "${HEADER} does not compile cleanly on its own")
endif()

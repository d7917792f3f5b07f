# The headers a host or a module author builds against, in one list that both
# the installation and the stand-alone compile test use. Paths are relative to
# the include directory they are found under, as a host writes them.
set(TARN_SDK_C_HEADERS
  module/tarn_module.h
  tarn_common.h
  message_type/tarn_message_type.h
  message_type/tarn_value_set_storage.h)
# Relative to modules/message_type: the merge room a host links (C and C++).
set(TARN_SDK_ROOM_HEADERS
  protobuf/tarn_protobuf_merge_room.h)
# The host's value-set storage as C++ classes (the module's view of it).
set(TARN_SDK_CXX_HEADERS
  tarn/tarn_xpath_hash_set.h
  tarn/tarn_xpath_value.h
  tarn/tarn_xpath_value_set.h)

if(TARN_BUILD_TESTS)
  set(_includes "${PROJECT_SOURCE_DIR}/sdk/include|${PROJECT_SOURCE_DIR}|${PROJECT_SOURCE_DIR}/modules/message_type")
  foreach(header ${TARN_SDK_C_HEADERS} ${TARN_SDK_ROOM_HEADERS} ${TARN_SDK_CXX_HEADERS})
    list(FIND TARN_SDK_CXX_HEADERS ${header} _cxx_only)
    if(_cxx_only EQUAL -1)
      set(_cxx_only 0)
    else()
      set(_cxx_only 1)
    endif()
    add_test(NAME sdk_header_alone:${header}
      COMMAND ${CMAKE_COMMAND} -DHEADER=${header} -DINCLUDES=${_includes}
        -DCC=${CMAKE_C_COMPILER} -DCXX=${CMAKE_CXX_COMPILER} -DCXX_ONLY=${_cxx_only}
        -DWORK=${PROJECT_BINARY_DIR}/sdk_header_check
        -P ${PROJECT_SOURCE_DIR}/cmake/check_header.cmake)
  endforeach()
endif()

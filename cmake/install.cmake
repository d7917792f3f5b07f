# Installation, the pkg-config file, the CMake package and the Debian package.
# Included once from the top-level CMakeLists.txt after every target exists.
#
# Layout (GNUInstallDirs, PACKAGE = tarn-protobuf-message-type):
#   LIBDIR/libtarn_protobuf_message_type.so      the module; hosts load it by path
#   LIBDIR/libtarn_protobuf_merge_room.a         the merge room for C and C++ hosts
#   INCLUDEDIR/PACKAGE/...                       SDK headers (Cflags point here)
#   LIBDIR/pkgconfig/PACKAGE.pc                  variable "module": the module's path
#   LIBDIR/cmake/TarnProtobufMessageType/        find_package(TarnProtobufMessageType CONFIG)
#   BINDIR/tarnpb                                the command-line host
#   MANDIR/man1/tarnpb.1.gz                      its manual page
#   DATADIR/bash-completion/completions/tarnpb   its bash completion
#   LIBDIR/PACKAGE/libtarn_host.so               tarnpb's private stand-in host
#   DATADIR/PACKAGE/examples/                    the bundled example and the C host
#   DOCDIR/                                      README, docs, LICENSE, CHANGELOG
set(TARN_PACKAGE tarn-protobuf-message-type)
set(CMAKE_INSTALL_DOCDIR share/doc/${TARN_PACKAGE} CACHE PATH "Documentation directory")
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TARN_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/${TARN_PACKAGE})
set(TARN_INSTALL_PRIVATEDIR ${CMAKE_INSTALL_LIBDIR}/${TARN_PACKAGE})
set(TARN_INSTALL_EXAMPLESDIR ${CMAKE_INSTALL_DATADIR}/${TARN_PACKAGE}/examples)
set(TARN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/TarnProtobufMessageType)
set(TARN_MODULE_FILE libtarn_protobuf_message_type.so)
set(TARN_INSTALL_MODULE ${CMAKE_INSTALL_LIBDIR}/${TARN_MODULE_FILE})

include(${CMAKE_CURRENT_LIST_DIR}/sdk_headers.cmake)

# Installed programs find their files relative to where they were installed,
# so a staged install, a changed prefix and the .deb all work unchanged.
function(tarn_relative out from to)
  file(RELATIVE_PATH rel /root/${from} /root/${to})
  set(${out} ${rel} PARENT_SCOPE)
endfunction()
tarn_relative(TARN_PRIVATE_TO_MODULE ${TARN_INSTALL_PRIVATEDIR} ${TARN_INSTALL_MODULE})
tarn_relative(TARN_PRIVATE_TO_EXAMPLES ${TARN_INSTALL_PRIVATEDIR} ${TARN_INSTALL_EXAMPLESDIR})
tarn_relative(TARN_BIN_TO_PRIVATE ${CMAKE_INSTALL_BINDIR} ${TARN_INSTALL_PRIVATEDIR})
target_compile_definitions(tarn_host PRIVATE TARN_INSTALLED_MODULE="${TARN_PRIVATE_TO_MODULE}")

install(TARGETS tarn_protobuf_message_type LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS tarn_protobuf_merge_room ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
set(TARN_INSTALL_MERGE_ROOM
  ${CMAKE_INSTALL_LIBDIR}/${CMAKE_STATIC_LIBRARY_PREFIX}tarn_protobuf_merge_room${CMAKE_STATIC_LIBRARY_SUFFIX})
foreach(header ${TARN_SDK_C_HEADERS})
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/sdk/include/${header} DESTINATION ${TARN_INSTALL_INCLUDEDIR}/${dir})
endforeach()
foreach(header ${TARN_SDK_ROOM_HEADERS})
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/modules/message_type/${header}
    DESTINATION ${TARN_INSTALL_INCLUDEDIR}/${dir})
endforeach()
foreach(header ${TARN_SDK_CXX_HEADERS})
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${TARN_INSTALL_INCLUDEDIR}/${dir})
endforeach()

if(TARGET tarnpb)
  target_compile_definitions(tarnpb PRIVATE TARNPB_INSTALLED_EXAMPLES="${TARN_PRIVATE_TO_EXAMPLES}")
  set_target_properties(tarnpb PROPERTIES INSTALL_RPATH "\$ORIGIN/${TARN_BIN_TO_PRIVATE}")
  install(TARGETS tarnpb RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS tarn_host LIBRARY DESTINATION ${TARN_INSTALL_PRIVATEDIR})
  install(FILES ${PROJECT_BINARY_DIR}/tools/tarnpb.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_BINARY_DIR}/tools/tarnpb.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME tarnpb)
endif()

install(FILES ${PROJECT_SOURCE_DIR}/examples/market_data.proto
  ${PROJECT_SOURCE_DIR}/examples/snapshot.txtpb ${PROJECT_SOURCE_DIR}/examples/update.txtpb
  DESTINATION ${TARN_INSTALL_EXAMPLESDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/c_host DESTINATION ${TARN_INSTALL_EXAMPLESDIR})

set(docs ${PROJECT_SOURCE_DIR}/docs)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  ${PROJECT_SOURCE_DIR}/LICENSE ${docs}/architecture.md ${docs}/configuring.md
  ${docs}/benchmarks.md ${docs}/integrating.md ${docs}/trace-format.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

# pkg-config: written at install time, so that its prefix is the one installed
# to (cmake --install --prefix, or the package's /usr), not the configured one.
install(CODE "
  get_filename_component(prefix \"\${CMAKE_INSTALL_PREFIX}\" ABSOLUTE)
  set(PROJECT_VERSION ${PROJECT_VERSION})
  set(CMAKE_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
  set(TARN_INSTALL_INCLUDEDIR ${TARN_INSTALL_INCLUDEDIR})
  set(TARN_MODULE_FILE ${TARN_MODULE_FILE})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${TARN_PACKAGE}.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/${TARN_PACKAGE}.pc @ONLY)
")
install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${TARN_PACKAGE}.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The CMake package finds itself relative to its own directory.
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TarnProtobufMessageTypeConfig.cmake.in
  ${PROJECT_BINARY_DIR}/cmake/TarnProtobufMessageTypeConfig.cmake
  INSTALL_DESTINATION ${TARN_INSTALL_CMAKEDIR}
  PATH_VARS TARN_INSTALL_INCLUDEDIR TARN_INSTALL_MODULE TARN_INSTALL_MERGE_ROOM)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/cmake/TarnProtobufMessageTypeConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/TarnProtobufMessageTypeConfig.cmake
  ${PROJECT_BINARY_DIR}/cmake/TarnProtobufMessageTypeConfigVersion.cmake
  DESTINATION ${TARN_INSTALL_CMAKEDIR})

include(${CMAKE_CURRENT_LIST_DIR}/package.cmake)

# cpack -G DEB: one package with the module, the SDK, tarnpb and the docs. Its
# run-time dependencies (the libprotobuf the module was built against, the C
# and C++ libraries) are read from the installed binaries by dpkg-shlibdeps.
set(CPACK_PACKAGE_NAME ${TARN_PACKAGE})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "tarn protobuf maintainers")
set(CPACK_PACKAGE_CONTACT "tarn protobuf maintainers <maintainers@tarn-protobuf.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Protobuf message-type module for a publish/subscribe server, with its SDK and tarnpb")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# tarnpb's stand-in host library is private to the package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/_CPack_Packages/Linux/DEB/${TARN_PACKAGE}-${PROJECT_VERSION}-Linux/usr/${TARN_INSTALL_PRIVATEDIR})
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "libtarn_protobuf_message_type.so is loaded by a messaging server to parse,\n trace, serialize and delta-merge protobuf message bodies against a .proto\n schema read at run time. The package also holds the SDK headers, a\n pkg-config file, a CMake package and the tarnpb command-line host.")
include(CPack)

# What `cmake --install` puts where, and the Debian packages made of it: runtime (the shared libraries), development
# (headers, link libraries, CMake and pkg-config files) and agent (the program).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# All headers live below one folder, so that "common/guid.h" is nobody else's.
set(CLOUDBACKUP_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/cloudbackup")
set(CLOUDBACKUP_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/cloudbackuplib")

set(shared_libraries common cloudclientlib cloudbackuplib)
set(static_libraries cloudclient_wrappers cloudclient_conformance client_memory client_directory
    client_http client_s3 client_azure clients)
set_target_properties(cloudclient_wrappers PROPERTIES EXPORT_NAME wrappers OUTPUT_NAME cloudbackup_wrappers)
set_target_properties(cloudclient_conformance PROPERTIES EXPORT_NAME conformance OUTPUT_NAME cloudbackup_conformance)
foreach(client IN ITEMS memory directory http s3 azure)
  set_target_properties(client_${client} PROPERTIES OUTPUT_NAME cloudbackup_client_${client})
endforeach()
set_target_properties(clients PROPERTIES OUTPUT_NAME cloudbackup_clients)
set_target_properties(${shared_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(cloudbackup PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

foreach(target IN LISTS shared_libraries static_libraries)
  target_include_directories(${target} INTERFACE "$<INSTALL_INTERFACE:${CLOUDBACKUP_INCLUDEDIR}>")
endforeach()
install(TARGETS ${shared_libraries} ${static_libraries}
  EXPORT cloudbackuplibTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
install(TARGETS cloudbackup RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT agent)
# Made by the target cloudbackup_use; where man and the shells look for them.
set(use "${CMAKE_BINARY_DIR}/agent")
install(FILES "${use}/cloudbackup.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT agent)
install(FILES "${use}/completions/cloudbackup" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
  COMPONENT agent)
install(FILES "${use}/completions/_cloudbackup" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions"
  COMPONENT agent)
install(FILES "${use}/completions/cloudbackup.fish" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d"
  COMPONENT agent)

foreach(folder common common/alglib common/crypto cloudclientlib cloudclientlib/wrappers
               clients/http clients/s3 clients/azure)
  file(GLOB headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.h")
  list(REMOVE_ITEM headers "${PROJECT_SOURCE_DIR}/common/xml_check.h" "${PROJECT_SOURCE_DIR}/common/openssl_check.h"
    "${PROJECT_SOURCE_DIR}/clients/http/FakeServer.h" "${PROJECT_SOURCE_DIR}/clients/http/HeaderText.h" "${PROJECT_SOURCE_DIR}/clients/http/HttpTransfer.h")
  install(FILES ${headers} DESTINATION "${CLOUDBACKUP_INCLUDEDIR}/${folder}" COMPONENT development)
endforeach()
install(DIRECTORY cloudbackuplib/include/cloudbackuplib DESTINATION "${CLOUDBACKUP_INCLUDEDIR}" COMPONENT development)
foreach(header cloudclientlib/conformance/Conformance.h cloudclientlib/conformance/GTest.h
               clients/memory/MemoryClient.h clients/directory/DirectoryClient.h clients/registry/ClientRegistry.h)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION "${CLOUDBACKUP_INCLUDEDIR}/${folder}" COMPONENT development)
endforeach()

install(EXPORT cloudbackuplibTargets NAMESPACE cloudbackuplib:: DESTINATION "${CLOUDBACKUP_CMAKEDIR}"
  COMPONENT development)
configure_package_config_file(cmake/cloudbackuplibConfig.cmake.in cloudbackuplibConfig.cmake
  INSTALL_DESTINATION "${CLOUDBACKUP_CMAKEDIR}")
# Before 1.0 a minor version may change anything; docs/manual/versions.md has the policy.
write_basic_package_version_file(cloudbackuplibConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/cloudbackuplibConfig.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/cloudbackuplibConfigVersion.cmake"
  DESTINATION "${CLOUDBACKUP_CMAKEDIR}" COMPONENT development)
# Found from where the file lies, so that the installed tree can be moved.
file(RELATIVE_PATH CLOUDBACKUP_PC_INCLUDEDIR "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/${CLOUDBACKUP_INCLUDEDIR}")
configure_file(cmake/cloudbackuplib.pc.in cloudbackuplib.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/cloudbackuplib.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME cloudbackup)
set(CPACK_PACKAGE_CONTACT "The cloudbackup developers <cloudbackup@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development agent)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  "${CMAKE_BINARY_DIR}/common" "${CMAKE_BINARY_DIR}/cloudclientlib" "${CMAKE_BINARY_DIR}/cloudbackuplib")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libcloudbackup${CLOUDBACKUP_SOVERSION}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Backups in cloud object storage (shared libraries)
 Keeps backups in a bucket: checkpoints, metadata in parts, content-addressed
 blocks, ownership and key records. Speaks no network protocol itself: the host
 supplies the cloud client.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libcloudbackup-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libcloudbackup${CLOUDBACKUP_SOVERSION} (= ${PROJECT_VERSION}), libboost-dev, libboost-thread-dev, libcurl4-openssl-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Backups in cloud object storage (development files)
 Headers, link libraries, the cloud client contract with its conformance suite,
 clients of folders, S3 and Azure Blob Storage, and files for CMake and pkg-config.")
set(CPACK_DEBIAN_AGENT_PACKAGE_NAME cloudbackup)
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS "libcloudbackup${CLOUDBACKUP_SOVERSION} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_AGENT_DESCRIPTION "Backup agent for folders
 Backs folders up into a repository, as numbered checkpoints of content-defined
 chunks, and restores them byte for byte.")
include(CPack)

# What `cmake --install` lays down: hivectl, the two libraries, the public headers and a package description, so
# that find_package(hive) gives other projects the target hive::hive.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(HIVE_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/lib.file.hive)
set(HIVE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hive)

set_target_properties(hive_platform PROPERTIES EXPORT_NAME platform)
set_target_properties(hive_hive PROPERTIES EXPORT_NAME hive)
install(TARGETS hive_platform hive_hive EXPORT hive-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} INCLUDES DESTINATION ${HIVE_INCLUDE_DIR})
install(TARGETS hivectl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(DIRECTORY platform/ DESTINATION ${HIVE_INCLUDE_DIR}/platform FILES_MATCHING PATTERN "*.h")
install(FILES hive/base.h hive/errorcodes.h hive/hivefile.h DESTINATION ${HIVE_INCLUDE_DIR}/hive)
install(FILES hive/security/securitydescriptor.h DESTINATION ${HIVE_INCLUDE_DIR}/hive/security)
install(FILES regfile/regfileutil.h regfile/util.h regfile/valueedit.h regfile/walkbudget.h DESTINATION ${HIVE_INCLUDE_DIR}/regfile)
install(FILES regfile/salvage/salvage.h DESTINATION ${HIVE_INCLUDE_DIR}/regfile/salvage)
install(FILES check/hivecheck.h DESTINATION ${HIVE_INCLUDE_DIR}/check)

install(EXPORT hive-targets NAMESPACE hive:: DESTINATION ${HIVE_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/hive-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES cmake/hive-config.cmake ${PROJECT_BINARY_DIR}/hive-config-version.cmake
        DESTINATION ${HIVE_PACKAGE_DIR})

# Installs the library, its headers (keeping the module folders) and a CMake
# package, so that a host writes:
#   find_package(CXViewer CONFIG REQUIRED)
#   target_link_libraries(host PRIVATE CXViewer::cxviewer)

include(CMakePackageConfigHelpers)

set(CXVIEWER_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/CXViewer)

install(TARGETS cxviewer
  EXPORT CXViewerTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT CXViewerTargets
  NAMESPACE CXViewer::
  DESTINATION ${CXVIEWER_INSTALL_CMAKEDIR})

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/CXViewerConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CXViewerConfig.cmake
  INSTALL_DESTINATION ${CXVIEWER_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/CXViewerConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)

install(FILES
  ${PROJECT_BINARY_DIR}/CXViewerConfig.cmake
  ${PROJECT_BINARY_DIR}/CXViewerConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/Dependencies.cmake
  DESTINATION ${CXVIEWER_INSTALL_CMAKEDIR})

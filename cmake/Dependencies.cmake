# Finds the Debian-packaged dependencies and wraps each in an imported target
# named CXViewer::<Name>, so that module folders and the installed package
# refer to them the same way.

find_package(OpenSceneGraph 3.6 REQUIRED
  COMPONENTS osg osgDB osgGA osgUtil osgViewer osgText)
find_package(OpenThreads REQUIRED)
find_package(PROJ 9 CONFIG REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(Qt5 5.15 REQUIRED COMPONENTS Core)
find_package(X11 REQUIRED)
find_package(OpenGL REQUIRED COMPONENTS OpenGL GLX)
find_package(PkgConfig REQUIRED)
pkg_check_modules(TINYXML REQUIRED IMPORTED_TARGET tinyxml)

if(NOT TARGET CXViewer::OpenSceneGraph)
  add_library(CXViewer::OpenSceneGraph INTERFACE IMPORTED)
  target_include_directories(CXViewer::OpenSceneGraph SYSTEM INTERFACE
    ${OPENSCENEGRAPH_INCLUDE_DIRS} ${OPENTHREADS_INCLUDE_DIR})
  target_link_libraries(CXViewer::OpenSceneGraph INTERFACE
    ${OPENSCENEGRAPH_LIBRARIES} ${OPENTHREADS_LIBRARY})
endif()

if(NOT TARGET CXViewer::PROJ)
  add_library(CXViewer::PROJ INTERFACE IMPORTED)
  target_link_libraries(CXViewer::PROJ INTERFACE PROJ::proj)
endif()

if(NOT TARGET CXViewer::SQLite3)
  add_library(CXViewer::SQLite3 INTERFACE IMPORTED)
  target_link_libraries(CXViewer::SQLite3 INTERFACE SQLite::SQLite3)
endif()

if(NOT TARGET CXViewer::TinyXML)
  add_library(CXViewer::TinyXML INTERFACE IMPORTED)
  target_link_libraries(CXViewer::TinyXML INTERFACE PkgConfig::TINYXML)
endif()

if(NOT TARGET CXViewer::X11GL)
  add_library(CXViewer::X11GL INTERFACE IMPORTED)
  target_link_libraries(CXViewer::X11GL INTERFACE X11::X11 OpenGL::GL OpenGL::GLX)
endif()

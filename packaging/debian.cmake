# Two Debian packages, one a component. "zdb-client" stands for whatever brings libquillet.so and libtrvcommon.so.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME xadtm)
set(CPACK_PACKAGE_CONTACT "The libxadtm developers <developers@libxadtm.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL xadtm stand-ins)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_XADTM_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/triggers)
set(CPACK_DEBIAN_STAND-INS_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/triggers)

set(CPACK_DEBIAN_XADTM_PACKAGE_NAME xadtm)
set(CPACK_DEBIAN_XADTM_PACKAGE_SECTION database)
set(CPACK_DEBIAN_XADTM_PACKAGE_DEPENDS "xadtm-stand-ins | zdb-client")
set(CPACK_COMPONENT_XADTM_DESCRIPTION "XA resource manager for ZDB servers
libxadtm lets a transaction manager drive transaction branches on a ZDB
server through the X/Open XA interface. With it come the bridge for managers
whose XA words are 64 bits wide, modules for two of them, the operator's tool
xadtm, the script player xadrive, headers, documents and examples.")

set(CPACK_DEBIAN_STAND-INS_PACKAGE_NAME xadtm-stand-ins)
set(CPACK_DEBIAN_STAND-INS_PACKAGE_SECTION database)
set(CPACK_DEBIAN_STAND-INS_PACKAGE_PROVIDES zdb-client)
set(CPACK_DEBIAN_STAND-INS_PACKAGE_CONFLICTS zdb-client)
set(CPACK_COMPONENT_STAND-INS_DESCRIPTION "stand-ins for the ZDB client library and server
A client library, common routines and a small server process, zdbd, on which
libxadtm can be tried out and tested where no ZDB installation is at hand.")

include(CPack)

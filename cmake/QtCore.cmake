# The QtCore the driver is built against: the panel's Qt 4.8 from a prefix (KRV_QT4_DIR), or
# the system's Qt 5. Sets KRV_QTCORE (the target to link) and KRV_QT_MAJOR (4 or 5).
if(KRV_QT4_DIR)
  set(_krv_qt4_lib ${KRV_QT4_DIR}/lib/libQtCore.so.4)
  if(NOT EXISTS ${_krv_qt4_lib} OR NOT EXISTS ${KRV_QT4_DIR}/include/QtCore/qglobal.h)
    message(FATAL_ERROR "KRV_QT4_DIR=${KRV_QT4_DIR} holds no QtCore 4 (include/QtCore, lib/libQtCore.so.4)")
  endif()
  add_library(krv_qt4_core SHARED IMPORTED)
  # Include directories of an imported target come in as system includes: -Werror stays off
  # Qt's headers.
  set_target_properties(krv_qt4_core PROPERTIES
    IMPORTED_LOCATION ${_krv_qt4_lib}
    IMPORTED_SONAME libQtCore.so.4
    INTERFACE_INCLUDE_DIRECTORIES "${KRV_QT4_DIR}/include;${KRV_QT4_DIR}/include/QtCore")
  set(KRV_QTCORE krv_qt4_core)
  set(KRV_QT_MAJOR 4)
else()
  find_package(Qt5 REQUIRED COMPONENTS Core)
  set(KRV_QTCORE Qt5::Core)
  set(KRV_QT_MAJOR 5)
endif()
message(STATUS "QtCore ${KRV_QT_MAJOR}: ${KRV_QTCORE}")

# teem (Debian's libteem-dev) as the imported target tarv::teem; its CMake package names build
# settings of another machine, so the library is found by hand.
if(NOT TARGET tarv::teem)
  find_path(TARV_TEEM_INCLUDE_DIR teem/nrrd.h REQUIRED)
  find_library(TARV_TEEM_LIBRARY teem REQUIRED)
  add_library(tarv::teem UNKNOWN IMPORTED)
  set_target_properties(tarv::teem PROPERTIES
    IMPORTED_LOCATION "${TARV_TEEM_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${TARV_TEEM_INCLUDE_DIR}")
endif()

# GDCM (Debian's libgdcm-dev) as the imported target tarv::gdcm. Its CMake package also names the
# command-line tools of another package, with a warning for each one missing, so the libraries
# are found by hand.
if(NOT TARGET tarv::gdcm)
  find_path(TARV_GDCM_INCLUDE_DIR gdcmImageReader.h PATH_SUFFIXES gdcm-3.0 REQUIRED)
  set(TARV_GDCM_LIBRARIES)
  foreach(part MSFF DSED Common DICT IOD)
    find_library(TARV_GDCM_${part}_LIBRARY gdcm${part} REQUIRED)
    list(APPEND TARV_GDCM_LIBRARIES ${TARV_GDCM_${part}_LIBRARY})
  endforeach()
  add_library(tarv::gdcm INTERFACE IMPORTED)
  set_target_properties(tarv::gdcm PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${TARV_GDCM_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "${TARV_GDCM_LIBRARIES}")
endif()

# The NIfTI C library (Debian's libnifti2-dev) as the imported target tarv::nifti2. Its own CMake
# package names files under /usr/lib instead of the multiarch directory, so it is found by hand.
if(NOT TARGET tarv::nifti2)
  find_path(TARV_NIFTI_INCLUDE_DIR nifti2_io.h PATH_SUFFIXES nifti REQUIRED)
  find_library(TARV_NIFTI2_LIBRARY nifti2 REQUIRED)
  find_library(TARV_ZNZ_LIBRARY znz REQUIRED)
  add_library(tarv::nifti2 UNKNOWN IMPORTED)
  set_target_properties(tarv::nifti2 PROPERTIES
    IMPORTED_LOCATION "${TARV_NIFTI2_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${TARV_NIFTI_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES "${TARV_ZNZ_LIBRARY};ZLIB::ZLIB;m")
endif()

# The fuzz corpora as tests: every harness built with the main build (under the sanitizers in the
# sanitizer build) and a small driver instead of libFuzzer, replaying its corpus. The libFuzzer
# builds of the same harnesses (fuzz/CMakeLists.txt) are for fuzzing campaigns.
set(TARV_FUZZ_DIR ${PROJECT_SOURCE_DIR}/fuzz)
set(TARV_REPLAYED_HARNESSES filter_description graph_reader tiff_stream tarv1 raw tiff_module)
set(TARV_REPLAYED_FORMAT_HARNESSES nifti tiff_stack metaimage nrrd dicom format_probe)

function(tarv_add_replay name source)
  add_executable(replay_${name} ${TARV_FUZZ_DIR}/${source} ${TARV_FUZZ_DIR}/FuzzSupport.cpp ${TARV_FUZZ_DIR}/ReplayMain.cpp)
  target_include_directories(replay_${name} PRIVATE ${TARV_FUZZ_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(replay_${name} PRIVATE tarv::Dataset)
  add_test(NAME fuzz_replay_${name} COMMAND replay_${name} ${TARV_FUZZ_DIR}/corpus/${name}_fuzzer)
  set_tests_properties(fuzz_replay_${name} PROPERTIES TIMEOUT 600 LABELS fuzz)
endfunction()

foreach(name ${TARV_REPLAYED_HARNESSES})
  tarv_add_replay(${name} ${name}_fuzzer.cpp)
endforeach()
set(reader 1)
foreach(name ${TARV_REPLAYED_FORMAT_HARNESSES})
  tarv_add_replay(${name} format_fuzzer.cpp)
  target_compile_definitions(replay_${name} PRIVATE TARV_FUZZ_READER=${reader})
  math(EXPR reader "${reader} + 1")
endforeach()

# Tests that run the built vothumb on real files, relative to tests/.
set(VO_COMMAND_TEST_SOURCES
  command/vothumb_arguments_test.cpp
  command/vothumb_bad_input_test.cpp
  command/vothumb_codec_modules_test.cpp
  command/vothumb_large_input_test.cpp
  command/vothumb_output_test.cpp
  command/vothumb_paths_test.cpp
  command/vothumb_real_photo_test.cpp
  command/vothumb_runner.cpp
  command/vothumb_runner.h
)

# Tests of the toolkit's image operations, relative to tests/.
set(VO_TOOLKIT_TEST_SOURCES
  toolkit/toolkit_helpers.h
  toolkit/vo_core_utils_geometry_test.cpp
  toolkit/vo_core_utils_io_test.cpp
  toolkit/vo_core_utils_pixels_test.cpp
  toolkit/vo_core_composition_test.cpp
  toolkit/vo_image_accumulator_test.cpp
  toolkit/vo_rect_utils_test.cpp
)

# Codec modules: the decoders whose libraries are slow to load (libtiff, libwebp, giflib, libheif with its
# HEVC and AV1 codecs) are shared objects that the engine opens with dlopen on first use of their format
# (codec_modules.cpp), so programs start without mapping and initialising those libraries.
#
# In the build tree the modules go to <build>/lib/vo, which the engine finds from <build>/bin; installed,
# they go to <libdir>/vo, whose path is compiled into the engine. The sanitizer and warning options set at
# the top level apply to the modules as to everything else.
include(GNUInstallDirs)
set(VO_CODEC_MODULE_DIR ${CMAKE_BINARY_DIR}/lib/vo)
set(VO_CODEC_INSTALL_DIR ${CMAKE_INSTALL_FULL_LIBDIR}/vo)
target_compile_definitions(vo_engine PRIVATE VO_CODEC_INSTALL_DIR="${VO_CODEC_INSTALL_DIR}")

function(vo_add_codec_module name)
  cmake_parse_arguments(PARSE_ARGV 1 MODULE "" "" "SOURCES;LIBRARIES")
  add_library(${name} MODULE ${MODULE_SOURCES})
  target_link_libraries(${name} PRIVATE vo_codec_base ${MODULE_LIBRARIES})
  # Only the entry function is exported; the helpers linked in from vo_codec_base stay private too.
  set_target_properties(${name} PROPERTIES
    PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY ${VO_CODEC_MODULE_DIR}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_link_options(${name} PRIVATE -Wl,--exclude-libs,ALL)
  # Catch a module that needs something of the engine at link time rather than at dlopen. Sanitizer
  # runtimes are provided by the executable, so this check only runs in builds without them.
  if(NOT VO_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vo)
  # Whatever links the engine can decode every format in the build tree.
  add_dependencies(vo_engine ${name})
endfunction()

vo_add_codec_module(vo_codec_tiff SOURCES ${VO_CODEC_TIFF_SOURCES} LIBRARIES TIFF::TIFF PkgConfig::LCMS2)
vo_add_codec_module(vo_codec_webp SOURCES ${VO_CODEC_WEBP_SOURCES} LIBRARIES PkgConfig::WEBP PkgConfig::LCMS2)
vo_add_codec_module(vo_codec_gif SOURCES ${VO_CODEC_GIF_SOURCES} LIBRARIES GIF::GIF)
vo_add_codec_module(vo_codec_heif SOURCES ${VO_CODEC_HEIF_SOURCES} LIBRARIES heif PkgConfig::LCMS2)

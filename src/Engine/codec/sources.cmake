# Codec sources of the engine, relative to src/Engine.
set(VO_CODEC_SOURCES
  codec/codec.h
  codec/codec_p.h
  codec/format_sniff.cpp
  codec/file_source_p.h
  codec/file_source.cpp
  codec/image_decode.cpp
  codec/image_probe.cpp
  codec/codec_module_p.h
  codec/codec_modules.cpp
  codec/jpeg_common_p.h
  codec/jpeg_common.cpp
  codec/jpeg_decoder.cpp
  codec/jpeg_row_reader.cpp
  codec/jpeg_scan_select_p.h
  codec/jpeg_scan_select.cpp
  codec/jpeg_huffman_p.h
  codec/jpeg_huffman.cpp
  codec/jpeg_reduced_idct_p.h
  codec/jpeg_reduced_idct.cpp
  codec/jpeg_baseline_scan_p.h
  codec/jpeg_baseline_scan.cpp
  codec/jpeg_mcu_decode_p.h
  codec/jpeg_split_scan_p.h
  codec/jpeg_split_scan.cpp
  codec/jpeg_split_rows_p.h
  codec/jpeg_split_rows.cpp
  codec/jpeg_ycbcr_rows_p.h
  codec/jpeg_ycbcr_rows.cpp
  codec/png_decoder.cpp
  codec/png_row_reader.cpp
  codec/png_inflate_row_reader.cpp
  codec/png_unfilter_p.h
  codec/png_unfilter.cpp
  codec/png_unfilter_simd.cpp
  codec/row_reader.h
  codec/row_reader_p.h
  codec/row_reader.cpp
  codec/bmp_decoder.cpp
  codec/atomic_file_p.h
  codec/atomic_file.cpp
  codec/chroma_planes_p.h
  codec/chroma_planes.cpp
  codec/chroma_rows_simd.cpp
  codec/luma_fit_p.h
  codec/luma_fit.cpp
  codec/luma_fit_simd.cpp
  codec/jpeg_encoder_p.h
  codec/jpeg_encoder.cpp
  codec/png_encoder.cpp
)

# Helpers used both by the engine's own decoders and by the codec modules: built once, linked into each.
set(VO_CODEC_BASE_SOURCES
  codec/codec_common.cpp
  codec/icc_transform_p.h
  codec/icc_transform.cpp
  codec/icc_fast_paths.cpp
  codec/icc_convert_p.h
  codec/icc_convert.cpp
  codec/strip_queue_p.h
  codec/strip_queue.cpp
  prompt_thread.h
  prompt_thread.cpp
)

# Decoders built as codec modules (codec_module_p.h), each loaded on first use of its format.
set(VO_CODEC_TIFF_SOURCES
  codec/tiff_p.h
  codec/tiff_io.cpp
  codec/tiff_decoder.cpp
  codec/tiff_direct.cpp
  codec/tiff_rows.cpp
)
set(VO_CODEC_WEBP_SOURCES codec/webp_decoder.cpp)
set(VO_CODEC_GIF_SOURCES codec/gif_decoder.cpp)
set(VO_CODEC_HEIF_SOURCES codec/heif_decoder.cpp)

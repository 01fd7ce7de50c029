// SPDX-License-Identifier: MIT
// Codec modules: decoders whose libraries are costly to load (TIFF, WebP, GIF, HEIF/AVIF) are built as
// small shared objects and loaded with dlopen the first time a file of their format is decoded or probed.
// A program that never meets such a file never maps libtiff, libheif and their codec stacks, which would
// otherwise dominate its start-up time.
//
// Each module exports one C function, vo_codec_module, returning its entry table. Modules are built with
// the engine from the same sources and compiler, so the table passes the engine's C++ types directly; the
// ABI number and the type sizes in the table only guard against a module left over from another build.
#pragma once

#include "codec_p.h"
#include "row_reader.h"

#include <memory>

namespace voimg::detail {

// Bump when the table or any type passed through it (codec.h, ByteSource) changes incompatibly.
inline constexpr uint32_t kCodecModuleAbi = 2;

// Sizes of the types that cross the module boundary, packed into one number.
inline constexpr uint32_t kCodecModuleTypeSizes =
    uint32_t(sizeof(DecodedImage) | sizeof(DecodeOptions) << 8 | sizeof(ImageInfo) << 16 | sizeof(std::string) << 24);

struct CodecModule {
    uint32_t abi = kCodecModuleAbi;
    uint32_t typeSizes = kCodecModuleTypeSizes;
    FileFormat format = FileFormat::Unknown;
    // Decodes a complete file held in memory; same contract as the per-format decoders in codec_p.h.
    DecodeResult (*decode)(const uint8_t* data, size_t size, const DecodeOptions& options,
                           std::string* error) = nullptr;
    // Header-only size probe, or nullptr when the engine parses the format's header itself.
    bool (*probe)(ByteSource& source, ImageInfo& info) = nullptr;
    // Reading a file a few rows at a time, straight from `source` (which must outlive the reader), or
    // nullptr when the module only decodes whole pictures. Null with `error` empty for files the module
    // reads whole only; null with `error` set for unreadable ones.
    RowReader* (*openRows)(ByteSource& source, const DecodeOptions& options, std::string* error) = nullptr;
};

// The name of the entry function every module exports.
inline constexpr const char* kCodecModuleEntry = "vo_codec_module";
using CodecModuleEntry = const CodecModule* (*)();

// Engine side (codec_modules.cpp). The module of a format is looked for, in order, in the folder named by
// the environment variable VO_CODEC_DIR when it is set (and only there), else in <executable's folder>/../lib/vo,
// then in the installed module folder. It is loaded once per process, on first use, from any thread; a
// failure to load is remembered too.

// Decodes with the format's module; without a usable module the result is empty and `error` says that the
// format's support is not installed.
DecodeResult decodeWithModule(FileFormat format, const uint8_t* data, size_t size, const DecodeOptions& options,
                              std::string* error);

// A row reader from the format's module over `source` (which must outlive it); null with `error` empty
// when the module cannot stream this file (it is then decoded whole), null with `error` set when it is
// unreadable or the module is missing.
std::unique_ptr<RowReader> openRowsWithModule(FileFormat format, ByteSource& source, const DecodeOptions& options,
                                              std::string* error);

// Probes the header with the format's module; false with `error` set when the module is missing or the
// header is unreadable.
[[nodiscard]] bool probeWithModule(FileFormat format, ByteSource& source, ImageInfo& info, std::string* error);

}  // namespace voimg::detail

// Module side: defines the entry function of a module built around `decodeFunction` (and `probeFunction`,
// or nullptr; and `openRowsFunction`, or nullptr). Used once, in the module's main decoder source.
#define VO_CODEC_MODULE_WITH_ROWS(formatValue, decodeFunction, probeFunction, openRowsFunction)               \
    extern "C" __attribute__((visibility("default"))) const ::voimg::detail::CodecModule* vo_codec_module() { \
        static constexpr ::voimg::detail::CodecModule kModule{::voimg::detail::kCodecModuleAbi,               \
                                                              ::voimg::detail::kCodecModuleTypeSizes,         \
                                                              (formatValue),                                  \
                                                              (decodeFunction),                               \
                                                              (probeFunction),                                \
                                                              (openRowsFunction)};                            \
        return &kModule;                                                                                      \
    }
#define VO_CODEC_MODULE(formatValue, decodeFunction, probeFunction) \
    VO_CODEC_MODULE_WITH_ROWS(formatValue, decodeFunction, probeFunction, nullptr)

// SPDX-License-Identifier: MIT
// HEIF/HEIC and AVIF decoding with libheif: the primary image, with alpha and ICC profile.
//
// libheif applies the container's mandatory geometry (clean aperture, rotation and mirror boxes) and the
// sizes reported here are the displayed ones; EXIF orientation is not involved. Sources deeper than 8 bits
// come out as 16-bit (samples widened to the full 16-bit range). nclx colour descriptions are taken as
// sRGB; ICC profiles ('prof'/'rICC') are converted.
#include "codec_module_p.h"
#include "icc_convert_p.h"

#include <libheif/heif.h>

#include <cmath>
#include <mutex>
#include <vector>

namespace voimg::detail {
namespace {

void initLibheif() {
    static std::once_flag once;
    std::call_once(once, [] { heif_init(nullptr); });
}

struct Context {
    heif_context* ctx = heif_context_alloc();
    ~Context() {
        if (ctx) heif_context_free(ctx);
    }
};
struct Handle {
    heif_image_handle* handle = nullptr;
    ~Handle() {
        if (handle) heif_image_handle_release(handle);
    }
};
struct Image {
    heif_image* image = nullptr;
    ~Image() {
        if (image) heif_image_release(image);
    }
};

// libheif's own limit is on each side; the area limit is checked by us against the handle's size.
int sideLimit(uint64_t maxPixels) { return int(std::clamp<uint64_t>(maxPixels, 1, 1u << 20)); }

bool openPrimary(Context& context, Handle& handle, std::string* error) {
    if (context.ctx == nullptr) {
        setError(error, "out of memory");
        return false;
    }
    heif_error e = heif_context_get_primary_image_handle(context.ctx, &handle.handle);
    if (e.code != heif_error_Ok) {
        setError(error, std::string("invalid HEIF: ") + e.message);
        return false;
    }
    return true;
}

bool copyPixels(const heif_image* decoded, bool sixteen, DecodedImage& image, std::string* error) {
    int stride = 0;
    const uint8_t* plane = heif_image_get_plane_readonly(decoded, heif_channel_interleaved, &stride);
    if (plane == nullptr || heif_image_get_width(decoded, heif_channel_interleaved) != image.width ||
        heif_image_get_height(decoded, heif_channel_interleaved) != image.height) {
        setError(error, "HEIF decoder returned an unexpected image");
        return false;
    }
    const size_t rowBytes = image.stride();
    if (!sixteen) {
        for (int y = 0; y < image.height; ++y)
            std::memcpy(image.pixels.data() + size_t(y) * rowBytes, plane + size_t(y) * size_t(stride), rowBytes);
        return true;
    }
    // Widen 10/12-bit samples to 16 bits so that full scale stays full scale.
    const int bits = std::clamp(heif_image_get_bits_per_pixel_range(decoded, heif_channel_interleaved), 9, 16);
    const uint32_t maxValue = (1u << bits) - 1;
    for (int y = 0; y < image.height; ++y) {
        const auto* src = reinterpret_cast<const uint16_t*>(plane + size_t(y) * size_t(stride));
        auto* dst = reinterpret_cast<uint16_t*>(image.pixels.data() + size_t(y) * rowBytes);
        for (size_t i = 0, n = size_t(image.width) * 4; i < n; ++i)
            dst[i] = uint16_t((std::min<uint32_t>(src[i], maxValue) * 65535u + maxValue / 2) / maxValue);
    }
    return true;
}

struct ReaderState {
    ByteSource* source;
    uint64_t position;
};

// Streaming access for probing: libheif reads the box structure and seeks over the coded data.
const heif_reader kReader = {
    1,
    [](void* user) -> int64_t { return int64_t(static_cast<ReaderState*>(user)->position); },
    [](void* out, size_t length, void* user) -> int {
        auto* s = static_cast<ReaderState*>(user);
        if (!s->source->readExact(s->position, out, length)) return 1;
        s->position += length;
        return 0;
    },
    [](int64_t position, void* user) -> int {
        auto* s = static_cast<ReaderState*>(user);
        if (position < 0 || uint64_t(position) > s->source->size()) return 1;
        s->position = uint64_t(position);
        return 0;
    },
    [](int64_t target, void* user) -> heif_reader_grow_status {
        return target >= 0 && uint64_t(target) <= static_cast<ReaderState*>(user)->source->size()
                   ? heif_reader_grow_status_size_reached
                   : heif_reader_grow_status_size_beyond_eof;
    },
};

}  // namespace

bool probeHeif(ByteSource& source, ImageInfo& info) {
    initLibheif();
    Context context;
    if (context.ctx == nullptr) return false;
    ReaderState state{&source, 0};
    if (heif_context_read_from_reader(context.ctx, &kReader, &state, nullptr).code != heif_error_Ok) return false;
    Handle handle;
    if (!openPrimary(context, handle, nullptr)) return false;
    info.width = heif_image_handle_get_width(handle.handle);
    info.height = heif_image_handle_get_height(handle.handle);
    return info.width > 0 && info.height > 0;
}

DecodeResult decodeHeif(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error) {
    initLibheif();
    Context context;
    if (context.ctx == nullptr) {
        setError(error, "out of memory");
        return std::nullopt;
    }
    heif_context_set_maximum_image_size_limit(context.ctx, sideLimit(options.maxPixels));
    if (heif_error e = heif_context_read_from_memory_without_copy(context.ctx, data, size, nullptr);
        e.code != heif_error_Ok) {
        setError(error, std::string("invalid HEIF: ") + e.message);
        return std::nullopt;
    }
    Handle handle;
    if (!openPrimary(context, handle, error)) return std::nullopt;
    const int width = heif_image_handle_get_width(handle.handle), height = heif_image_handle_get_height(handle.handle);
    if (!checkDimensions(uint64_t(std::max(width, 0)), uint64_t(std::max(height, 0)), options.maxPixels, error))
        return std::nullopt;

    const bool sixteen = heif_image_handle_get_luma_bits_per_pixel(handle.handle) > 8;
    const heif_chroma chroma = !sixteen               ? heif_chroma_interleaved_RGBA
                               : hostIsLittleEndian() ? heif_chroma_interleaved_RRGGBBAA_LE
                                                      : heif_chroma_interleaved_RRGGBBAA_BE;
    Image decoded;
    heif_error e = heif_decode_image(handle.handle, &decoded.image, heif_colorspace_RGB, chroma, nullptr);
    if (e.code != heif_error_Ok || decoded.image == nullptr) {
        setError(error, std::string("cannot decode HEIF image: ") + e.message);
        return std::nullopt;
    }
    DecodedImage image;
    if (!allocatePixels(image, width, height, sixteen, error)) return std::nullopt;
    if (!copyPixels(decoded.image, sixteen, image, error)) return std::nullopt;
    image.hasAlpha = heif_image_handle_has_alpha_channel(handle.handle) != 0;
    if (image.hasAlpha && heif_image_handle_is_premultiplied_alpha(handle.handle)) unpremultiplyAlpha(image);

    const heif_color_profile_type type = heif_image_handle_get_color_profile_type(handle.handle);
    if (type == heif_color_profile_type_prof || type == heif_color_profile_type_rICC) {
        std::vector<uint8_t> icc(heif_image_handle_get_raw_color_profile_size(handle.handle));
        if (!icc.empty() && heif_image_handle_get_raw_color_profile(handle.handle, icc.data()).code == heif_error_Ok) {
            // Only monochrome sources carry grey profiles; their R, G and B are equal after decoding.
            const bool grey = icc.size() >= 20 && std::memcmp(icc.data() + 16, "GRAY", 4) == 0;
            convertToSrgb(image, icc.data(), icc.size(), grey ? IccLayout::GreyInRgba : IccLayout::Rgb);
        }
    }
    return image;
}

}  // namespace voimg::detail

// This decoder is built as a codec module.
VO_CODEC_MODULE(voimg::FileFormat::Heif, voimg::detail::decodeHeif, voimg::detail::probeHeif)

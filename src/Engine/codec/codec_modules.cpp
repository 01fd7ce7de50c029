// SPDX-License-Identifier: MIT
// Finds and loads the codec modules (see codec_module_p.h), once per format and process.
#include "codec_module_p.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <vector>

#ifndef VO_CODEC_INSTALL_DIR
#error "VO_CODEC_INSTALL_DIR must name the folder the codec modules are installed in"
#endif

namespace voimg::detail {
namespace {

struct ModuleInfo {
    int index;             // of the format's load state
    const char* label;     // as used in messages
    const char* fileName;  // the shared object
};
constexpr int kModuleCount = 4;

ModuleInfo moduleInfo(FileFormat format) {
    switch (format) {
        case FileFormat::Tiff:
            return {0, "TIFF", "vo_codec_tiff.so"};
        case FileFormat::WebP:
            return {1, "WebP", "vo_codec_webp.so"};
        case FileFormat::Gif:
            return {2, "GIF", "vo_codec_gif.so"};
        case FileFormat::Heif:
            return {3, "HEIF", "vo_codec_heif.so"};
        default:
            return {-1, nullptr, nullptr};
    }
}

// The load state of one format's module.
struct Slot {
    std::once_flag once;
    const CodecModule* module = nullptr;
    std::string failure;  // why loading failed, when it did
};

// The folder holding the running executable, or "" when /proc is not available.
std::string executableFolder() {
    char path[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) return {};
    const std::string exe(path, size_t(n));
    const size_t slash = exe.rfind('/');
    return slash == std::string::npos ? std::string() : exe.substr(0, slash);
}

std::vector<std::string> moduleFolders() {
    if (const char* dir = std::getenv("VO_CODEC_DIR"); dir != nullptr && *dir != '\0') return {dir};
    std::vector<std::string> folders;
    if (const std::string exe = executableFolder(); !exe.empty()) folders.push_back(exe + "/../lib/vo");
    folders.emplace_back(VO_CODEC_INSTALL_DIR);
    return folders;
}

// Opens the first loadable copy of the module. Every copy found is tried, so a broken one in the build tree
// does not hide an installed one.
void load(FileFormat format, const ModuleInfo& info, Slot& slot) {
    std::string searched, lastError;
    for (const std::string& folder : moduleFolders()) {
        const std::string path = folder + "/" + info.fileName;
        searched += (searched.empty() ? "" : ", ") + folder;
        if (::access(path.c_str(), F_OK) != 0) continue;
        // RTLD_NOW: a module whose own libraries are missing fails here rather than at its first call.
        void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            const char* reason = ::dlerror();
            lastError = reason ? reason : path + ": cannot be loaded";
            continue;
        }
        const auto entry = reinterpret_cast<CodecModuleEntry>(::dlsym(handle, kCodecModuleEntry));
        const CodecModule* module = entry ? entry() : nullptr;
        if (module == nullptr || module->abi != kCodecModuleAbi || module->typeSizes != kCodecModuleTypeSizes) {
            lastError = path + " was built for another version of this program";
        } else if (module->format != format || module->decode == nullptr) {
            lastError = path + " is not the " + info.label + " module";
        } else {
            // Never unloaded: the format libraries keep process-wide state.
            slot.module = module;
            return;
        }
        ::dlclose(handle);
    }
    slot.failure = std::string(info.label) + " support is not installed (" +
                   (lastError.empty() ? std::string("no ") + info.fileName + " in " + searched : lastError) + ")";
}

const CodecModule* moduleFor(FileFormat format, std::string* error) {
    const ModuleInfo info = moduleInfo(format);
    if (info.index < 0) {
        setError(error, "no codec module for this format");
        return nullptr;
    }
    // Created on first use, so that start-up does no work here.
    static Slot slots[kModuleCount];
    Slot& slot = slots[info.index];
    std::call_once(slot.once, [&] { load(format, info, slot); });
    if (slot.module == nullptr) setError(error, slot.failure);
    return slot.module;
}

}  // namespace

DecodeResult decodeWithModule(FileFormat format, const uint8_t* data, size_t size, const DecodeOptions& options,
                              std::string* error) {
    const CodecModule* module = moduleFor(format, error);
    if (module == nullptr) return std::nullopt;
    return module->decode(data, size, options, error);
}

std::unique_ptr<RowReader> openRowsWithModule(FileFormat format, ByteSource& source, const DecodeOptions& options,
                                              std::string* error) {
    const CodecModule* module = moduleFor(format, error);
    if (module == nullptr || module->openRows == nullptr) return nullptr;
    return std::unique_ptr<RowReader>(module->openRows(source, options, error));
}

bool probeWithModule(FileFormat format, ByteSource& source, ImageInfo& info, std::string* error) {
    const CodecModule* module = moduleFor(format, error);
    if (module == nullptr) return false;
    if (module->probe == nullptr || !module->probe(source, info)) {
        setError(error, "cannot read the image header");
        return false;
    }
    return true;
}

}  // namespace voimg::detail

// SPDX-License-Identifier: MIT
// VoCoreUtils: reading images, exporting them as JPEG or PNG, pictures, resources and screenshots.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>

#include "Common/Foundation/VoLog.h"
#include "Engine/codec/codec.h"
#include "Engine/prompt_thread.h"
#include "VoCoreUtils.h"

namespace vo {

namespace {
voimg::RenderContext* gExportContext = nullptr;  // created by the first export, never released
VoCoreUtils::ScreenshotProvider gScreenshotProvider = nullptr;

std::string absolutePath(const std::string& path) {
    std::error_code ec;
    const auto absolute = std::filesystem::absolute(path, ec);
    return ec ? path : absolute.lexically_normal().string();
}

// An image destination can be made when the path names a file (not a folder) in an existing folder.
bool canCreateDestination(const std::string& path) {
    if (path.empty() || path.back() == '/') return false;
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return false;
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return ::stat(folder.empty() ? "." : folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::shared_ptr<NSImage> emptyPicture(int width, int height) {
    auto picture = std::make_shared<NSImage>();
    picture->width = width;
    picture->height = height;
    picture->format = voimg::BitmapFormat::Rgba8;
    picture->bytes.assign(size_t(width) * size_t(height) * 4, 0);
    return picture;
}
}  // namespace

CIImage VoCoreUtils::importImageFromUrl(const std::string& path) {
    return CIImage::withContentsOfFile(absolutePath(path));
}

const voimg::RenderContext* VoCoreUtils::sharedExportContext() { return gExportContext; }

namespace {
voimg::RenderContext& exportContext() {
    if (!gExportContext) gExportContext = new voimg::RenderContext();
    return *gExportContext;
}

voimg::BitmapFormat exportFormat(bool transparant) {
    return transparant ? voimg::BitmapFormat::Rgba8 : voimg::BitmapFormat::Rgb8OverBlack;
}

// The JPEG quality (0 to 100) of an export quality; 0 is the default.
int jpegQuality(float quality) {
    const float q = quality == 0.0f ? float(VoCoreUtils::kDefaultQuality) : quality;
    return int(std::clamp(std::lround(double(q) * 100.0), 0L, 100L));
}

// Encodes and writes a picture; false when nothing usable was written.
bool encodePicture(const voimg::Bitmap& picture, const std::string& path, bool transparant, float quality) {
    if (picture.isEmpty()) return false;
    return transparant
               ? voimg::writePngFile(path, picture.bytes.data(), picture.width, picture.height)
               : voimg::writeJpegFile(path, picture.bytes.data(), picture.width, picture.height, jpegQuality(quality));
}

// JPEG exports written while their pictures are being made. A picture whose rows become final in stages
// gets a writer at its first rows, which encodes every band they allow, so that most of the encoding
// overlaps the rendering; a picture made all at once is left to writePictures, which encodes several side
// by side, and so is one whose writer could not be opened. Once a picture is complete its file is finished
// on a thread of its own (closing a file and renaming it into place take a while), beside the rendering's
// clean-up and the other files.
class StreamedPictures {
public:
    explicit StreamedPictures(const std::vector<std::string>& paths)
        : paths_(paths),
          writers_(paths.size()),
          finishing_(paths.size()),
          finished_(paths.size(), 0),
          errors_(paths.size()),
          tried_(paths.size(), false) {}
    ~StreamedPictures() { waitForFinishing(); }
    StreamedPictures(const StreamedPictures&) = delete;
    StreamedPictures& operator=(const StreamedPictures&) = delete;

    void rowsFinal(size_t index, const voimg::Bitmap& picture, int64_t rows) {
        std::unique_ptr<voimg::JpegStreamWriter>& writer = writers_[index];
        if (!writer) {
            if (tried_[index] || rows >= picture.height || picture.isEmpty()) return;
            tried_[index] = true;
            try {
                writer = voimg::JpegStreamWriter::open(paths_[index], picture.bytes.data(), picture.width,
                                                       picture.height, jpegQuality(0.0f));
            } catch (const std::bad_alloc&) {  // left to writePictures
            }
            if (!writer) return;
        }
        writer->rowsReady(int(rows));
        if (rows < picture.height) return;
        voimg::JpegStreamWriter* complete = writer.get();
        try {
            finishing_[index] = voimg::PromptThread([this, complete, index] {
                try {
                    finished_[index] = complete->finish();
                } catch (...) {
                    errors_[index] = std::current_exception();
                }
            });
        } catch (const std::system_error&) {  // no thread to be had: finished with the others
        }
    }

    // Whether each picture was written by its writer, for those that had one.
    std::vector<std::optional<bool>> finish() {
        std::vector<std::optional<bool>> written(writers_.size());
        for (size_t i = 0; i < writers_.size(); ++i) {
            if (finishing_[i].joinable()) {
                finishing_[i].join();
                if (errors_[i]) std::rethrow_exception(errors_[i]);
                written[i] = finished_[i] != 0;
            } else if (writers_[i]) {
                written[i] = writers_[i]->finish();
            }
        }
        writers_.clear();
        return written;
    }

private:
    const std::vector<std::string>& paths_;
    std::vector<std::unique_ptr<voimg::JpegStreamWriter>> writers_;
    std::vector<voimg::PromptThread> finishing_;  // joined before the writers go
    std::vector<char> finished_;                  // what each finishing thread's writer reported
    std::vector<std::exception_ptr> errors_;      // or what it threw
    std::vector<bool> tried_;

    void waitForFinishing() {
        for (voimg::PromptThread& thread : finishing_)
            if (thread.joinable()) thread.join();
    }
};

void reportUnwritten(bool written) {
    if (!written) VoLog("problems writing JPEG file\n");
}

void writePicture(const voimg::Bitmap& picture, const std::string& path, bool transparant, float quality) {
    reportUnwritten(encodePicture(picture, path, transparant, quality));
}

// Encodes the pictures side by side, on this thread and one more per further core (each encoder is a
// serial pass of its own), and reports failures afterwards in the pictures' order. The largest go first,
// so that the longest encoding starts at once rather than when a new thread first runs. An exception
// leaves as it would from encoding one picture after the other: after the messages of the pictures before.
// `streamed`: the pictures written already, with the outcome.
void writePictures(const std::vector<const voimg::Bitmap*>& pictures, const std::vector<std::string>& paths,
                   const std::vector<std::optional<bool>>& streamed) {
    std::vector<char> written(pictures.size(), 0);
    std::vector<std::exception_ptr> errors(pictures.size());
    std::vector<size_t> largestFirst;
    for (size_t i = 0; i < pictures.size(); ++i) {
        if (streamed[i])
            written[i] = *streamed[i];
        else
            largestFirst.push_back(i);
    }
    std::stable_sort(largestFirst.begin(), largestFirst.end(), [&](size_t a, size_t b) {
        return size_t(pictures[a]->width) * size_t(pictures[a]->height) >
               size_t(pictures[b]->width) * size_t(pictures[b]->height);
    });
    std::atomic<size_t> next{0};
    auto encodeTheRest = [&] {
        for (size_t k; (k = next++) < largestFirst.size();) {
            const size_t i = largestFirst[k];
            try {
                written[i] = encodePicture(*pictures[i], paths[i], false, 0.0f);
            } catch (...) {
                errors[i] = std::current_exception();
            }
        }
    };
    const size_t cores = std::max(1u, std::thread::hardware_concurrency());
    std::vector<voimg::PromptThread> encoders;
    for (size_t k = 1; k < std::min(largestFirst.size(), cores); ++k) {
        try {
            encoders.emplace_back(encodeTheRest);
        } catch (const std::system_error&) {  // no more threads to be had: the others share the work
            break;
        }
    }
    encodeTheRest();
    for (voimg::PromptThread& encoder : encoders) encoder.join();
    for (size_t i = 0; i < pictures.size(); ++i) {
        if (errors[i]) std::rethrow_exception(errors[i]);
        reportUnwritten(written[i] != 0);
    }
}

void releaseExportMemory() {
    gExportContext->clearCaches();
    gExportContext->reclaimResources();
}
}  // namespace

void VoCoreUtils::exportImageToURLTransparantQuality(const CIImage& image, const std::string& url, bool transparant,
                                                     float quality) {
    if (image.isNull()) return;
    voimg::RenderContext& context = exportContext();
    const std::string path = absolutePath(url);
    if (!canCreateDestination(path)) {
        VoLog("problems creating image destination\n");
        return;
    }
    writePicture(context.createBitmap(image, image.extent(), exportFormat(transparant)), path, transparant, quality);
    releaseExportMemory();
}

void VoCoreUtils::exportImagesToURLs(const std::vector<std::pair<CIImage, std::string>>& images) {
    voimg::RenderContext& context = exportContext();
    std::vector<voimg::RenderRequest> requests;
    std::vector<std::string> paths;
    for (const auto& [image, url] : images) {
        if (image.isNull()) continue;
        requests.push_back({image, image.extent(), exportFormat(false)});
        paths.push_back(absolutePath(url));
    }
    // A destination that cannot be made is logged in its turn, as one export at a time would, and its image
    // is not rendered.
    std::vector<bool> usable(paths.size());
    for (size_t i = 0; i < paths.size(); ++i) usable[i] = canCreateDestination(paths[i]);
    std::vector<voimg::RenderRequest> wanted;
    std::vector<std::string> wantedPaths;
    for (size_t i = 0; i < requests.size(); ++i)
        if (usable[i]) wanted.push_back(requests[i]), wantedPaths.push_back(paths[i]);
    StreamedPictures streaming(wantedPaths);
    const std::vector<voimg::Bitmap> pictures = context.createBitmaps(
        wanted,
        [&](size_t index, const voimg::Bitmap& picture, int64_t rows) { streaming.rowsFinal(index, picture, rows); });
    const std::vector<std::optional<bool>> streamed = streaming.finish();
    // Messages keep the order of the images: an unusable destination's at once, as one export at a time
    // would have it, the written pictures' failures after each run of them.
    std::vector<const voimg::Bitmap*> run;
    std::vector<std::string> runPaths;
    std::vector<std::optional<bool>> runStreamed;
    for (size_t i = 0, made = 0; i < paths.size(); ++i) {
        if (usable[i]) {
            runStreamed.push_back(streamed[made]);
            run.push_back(&pictures[made++]);
            runPaths.push_back(paths[i]);
            continue;
        }
        writePictures(run, runPaths, runStreamed);
        run.clear(), runPaths.clear(), runStreamed.clear();
        VoLog("problems creating image destination\n");
    }
    writePictures(run, runPaths, runStreamed);
    releaseExportMemory();
}

void VoCoreUtils::exportImageToURLTransparant(const CIImage& image, const std::string& url, bool transparant) {
    exportImageToURLTransparantQuality(image, url, transparant, 0.0f);
}

void VoCoreUtils::exportImageToURL(const CIImage& image, const std::string& url) {
    exportImageToURLTransparant(image, url, false);
}

void VoCoreUtils::exportTransparantImageToURL(const CIImage& image, const std::string& url) {
    exportImageToURLTransparant(image, url, true);
}

std::shared_ptr<NSImage> VoCoreUtils::imageFromCoreImage(const CIImage& image) {
    if (image.isNull() || image.extent().width == 0) return emptyPicture(10, 10);
    // Drawn onto a fresh transparent picture with "destination over": the image's own pixels.
    static voimg::RenderContext context(1);
    auto picture = std::make_shared<NSImage>(context.createBitmap(image, image.extent(), voimg::BitmapFormat::Rgba8));
    return picture->isEmpty() ? emptyPicture(10, 10) : picture;
}

CIImage VoCoreUtils::flattenCoreImage(const CIImage& image) { return image; }

CIImage VoCoreUtils::_old_flattenCoreImage(const CIImage& image) {
    return image.isNull() ? emptyCoreImageWithExtent({0, 0, 10, 10}) : image;
}

std::shared_ptr<NSImage> VoCoreUtils::bundleImageWithName(const VoBundle& bundle, const std::string& name) {
    const CIImage image = CIImage::withContentsOfFile(bundle.resourcePath() + "/" + name);
    if (image.isNull()) return nullptr;
    return imageFromCoreImage(image);
}

CIImage VoCoreUtils::bundleCIImageWithName(const VoBundle& bundle, const std::string& name) {
    return importImageFromUrl(bundle.resourcePath() + "/" + name);
}

std::shared_ptr<NSImage> VoCoreUtils::bundleImageWithName(const std::string& name) {
    return bundleImageWithName(VoBundle::mainBundle(), name);
}

CIImage VoCoreUtils::bundleCIImageWithName(const std::string& name) {
    return bundleCIImageWithName(VoBundle::mainBundle(), name);
}

void VoCoreUtils::setScreenshotProvider(ScreenshotProvider provider) { gScreenshotProvider = provider; }

CIImage VoCoreUtils::screenshot(unsigned) { return gScreenshotProvider ? gScreenshotProvider() : emptyCoreImage(); }

CIImage VoCoreUtils::screenshot() {
    constexpr unsigned kMainDisplay = 0;
    return screenshot(kMainDisplay);
}

}  // namespace vo

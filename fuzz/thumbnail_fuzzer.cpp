// SPDX-License-Identifier: MIT
// Feeds arbitrary bytes through vothumb's whole pipeline: the file is read, fitted into 150 and 600
// pixels of height, moved to the origin and both exported as JPEG from one streaming decode.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/Foundation/VoLog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string folder = [] {
        char pattern[] = "/tmp/vothumb-fuzz-XXXXXX";
        vo::VoSetLogSink([](const std::string&) {});
        return std::string(mkdtemp(pattern));
    }();
    const std::string input = folder + "/input", small = folder + "/out-200.jpg", large = folder + "/out-600.jpg";
    if (FILE* f = std::fopen(input.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    vo::CIImage image = vo::VoCoreUtils::importImageFromUrl(input);
    if (image.isNull()) image = vo::VoCoreUtils::emptyCoreImage();
    auto rendition = [&](float height) {
        return vo::VoCoreUtils::moveImageToOrigin(vo::VoCoreUtils::scaleImageToFitInRect(image, {0, 0, 8192, height}));
    };
    vo::VoCoreUtils::exportImagesToURLs({{rendition(150), small}, {rendition(600), large}});
    ::unlink(small.c_str());
    ::unlink(large.c_str());
    return 0;
}

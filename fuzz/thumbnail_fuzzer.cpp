// SPDX-License-Identifier: MIT
// Feeds arbitrary bytes through vothumb's whole pipeline: the file is read, fitted into 150 pixels of
// height, moved to the origin and exported as JPEG.
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
    const std::string input = folder + "/input", output = folder + "/out-200.jpg";
    if (FILE* f = std::fopen(input.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    vo::CIImage image = vo::VoCoreUtils::importImageFromUrl(input);
    if (image.isNull()) image = vo::VoCoreUtils::emptyCoreImage();
    const vo::CIImage fitted = vo::VoCoreUtils::scaleImageToFitInRect(image, {0, 0, 8192, 150});
    vo::VoCoreUtils::exportImageToURL(vo::VoCoreUtils::moveImageToOrigin(fitted), output);
    ::unlink(output.c_str());
    return 0;
}

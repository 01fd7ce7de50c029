// SPDX-License-Identifier: MIT
// vothumb IMAGE PREFIX: writes PREFIX-200.jpg (150 pixels high) and PREFIX-600.jpg (600 pixels high).
//
// An unreadable image is replaced by the empty image and a file that cannot be written is only logged:
// the exit status is 0 once both files were attempted. Too few arguments, or a toolkit exception during
// the work, give -1 (255 in the shell).
#include <cstdlib>
#include <map>
#include <string>

#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/Foundation/VoLog.h"

using vo::CIImage;
using vo::VoCoreUtils;

namespace {
CIImage rendition(const CIImage& image, float height) {
    const CIImage fitted = VoCoreUtils::scaleImageToFitInRect(image, {0, 0, 8192, height});
    return VoCoreUtils::moveImageToOrigin(fitted);
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        vo::VoLog("Expecting 2 parameters");
        std::exit(-1);
    }
    int result = 0;
    try {
        const std::string path(argv[1]);
        const std::string prefix(argv[2]);
        CIImage image = VoCoreUtils::importImageFromUrl(path);
        if (image.isNull()) image = VoCoreUtils::emptyCoreImage();

        // A compression setting that nothing reads: both exports use the export default of 0.85.
        std::map<std::string, float> properties{{"NSImageCompressionFactor", 0.9f}};
        (void)properties;

        // Both renditions come from one pass over the file.
        VoCoreUtils::exportImagesToURLs(
            {{rendition(image, 150), prefix + "-200.jpg"}, {rendition(image, 600), prefix + "-600.jpg"}});
    } catch (const std::exception& exception) {
        vo::VoLog(std::string("Caught Exception ") + exception.what());
        result = -1;
    }
    return result;
}

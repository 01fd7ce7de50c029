// SPDX-License-Identifier: MIT
#include "photo_test_support.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QTimer>

#include <cstdlib>
#include <memory>
#include <mutex>

#include "Photo/VoImage_p.h"
#include "support/test_images.h"

namespace vo::phototest {

namespace {

std::mutex gWarningsMutex;
std::vector<std::string> gWarnings;

void recordQtMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type == QtDebugMsg || type == QtInfoMsg) return;
    std::lock_guard lock(gWarningsMutex);
    gWarnings.push_back(message.toStdString());
}

// One application per process, created before any test so that the caches' timer finds an event loop, and
// a resource folder for the bundle pictures, chosen before the bundle is first asked for it.
class PhotoEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
        resources_ = std::make_unique<vo::test::TempDir>();
        ::setenv("VO_RESOURCE_DIR", resources_->path().c_str(), 1);
        app_ = std::make_unique<QGuiApplication>(argc_, argv_);
        qInstallMessageHandler(recordQtMessage);
    }
    void TearDown() override {
        qInstallMessageHandler(nullptr);
        app_.reset();
        resources_.reset();
    }
    [[nodiscard]] const std::string& resources() const { return resources_->path().native(); }

private:
    int argc_ = 1;
    char name_[16] = "vo_photo_tests";
    char* argv_[2] = {name_, nullptr};
    std::unique_ptr<vo::test::TempDir> resources_;
    std::unique_ptr<QGuiApplication> app_;
};

PhotoEnvironment* const gEnvironment =
    static_cast<PhotoEnvironment*>(::testing::AddGlobalTestEnvironment(new PhotoEnvironment));

}  // namespace

QImage quadrantPicture(int width, int height) {
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool top = y < height / 2;
            const bool left = x < width / 2;
            const QColor& color = top ? (left ? kTopLeft : kTopRight) : (left ? kBottomLeft : kBottomRight);
            image.setPixelColor(x, y, color);
        }
    }
    return image;
}

VoImage::Picture share(QImage image) { return std::make_shared<const QImage>(std::move(image)); }

QImage solidPicture(int width, int height, const QColor& color) {
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(color);
    return image;
}

const std::string& resourceFolder() { return gEnvironment->resources(); }

void savePng(const QImage& image, const std::string& path) {
    ASSERT_TRUE(image.save(QString::fromStdString(path), "PNG")) << path;
}

QColor colorAt(const QImage& image, int x, int y) { return image.pixelColor(x, y); }

::testing::AssertionResult colorNear(const QImage& image, int x, int y, const QColor& expected, int tolerance) {
    if (x < 0 || y < 0 || x >= image.width() || y >= image.height()) {
        return ::testing::AssertionFailure()
               << "pixel (" << x << ", " << y << ") outside " << image.width() << " x " << image.height();
    }
    const QColor got = colorAt(image, x, y);
    if (std::abs(got.red() - expected.red()) <= tolerance && std::abs(got.green() - expected.green()) <= tolerance &&
        std::abs(got.blue() - expected.blue()) <= tolerance && got.alpha() >= 255 - tolerance) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << ") is (" << got.red() << ", " << got.green()
                                         << ", " << got.blue() << ", " << got.alpha() << "), expected ("
                                         << expected.red() << ", " << expected.green() << ", " << expected.blue()
                                         << ")";
}

::testing::AssertionResult rowsBlack(const QImage& image, int firstRow, int lastRow) {
    for (int y = firstRow; y <= lastRow; ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (!colorNear(image, x, y, kBlack, 0)) return colorNear(image, x, y, kBlack, 0) << " in a black row";
        }
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult columnsBlack(const QImage& image, int firstColumn, int lastColumn) {
    for (int y = 0; y < image.height(); ++y) {
        for (int x = firstColumn; x <= lastColumn; ++x) {
            if (!colorNear(image, x, y, kBlack, 0)) return colorNear(image, x, y, kBlack, 0) << " in a black column";
        }
    }
    return ::testing::AssertionSuccess();
}

std::vector<std::string> takeQtWarnings() {
    std::lock_guard lock(gWarningsMutex);
    return std::exchange(gWarnings, {});
}

void PhotoTest::SetUp() {
    auto& state = photo_detail::photoState();
    state.cacheMode = 0;
    state.squareCache.clear();
    state.fileCache.clear();
    state.emptyCacheCounter = 0;
    VoImage::checkStartCache();
    state.timer->stop();
    state.emptyCacheCounter = 0;
    runEventLoopOnce();  // releases transient pictures of earlier tests
    (void)takeQtWarnings();
}

void PhotoTest::TearDown() {
    for (const std::string& warning : takeQtWarnings()) ADD_FAILURE() << "Qt warned: " << warning;
    photo_detail::photoState().cacheMode = 0;
}

void PhotoTest::runEventLoopOnce() { QCoreApplication::processEvents(); }

int PhotoTest::idleTicks() { return photo_detail::photoState().emptyCacheCounter; }

void PhotoTest::tick(int n) {
    for (int i = 0; i < n; ++i) VoImage::checkEmptyCache();
}

}  // namespace vo::phototest

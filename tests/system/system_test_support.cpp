// SPDX-License-Identifier: MIT
#include "system_test_support.h"

#include <stdlib.h>

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QThread>
#include <fstream>
#include <iterator>

namespace vo::test {

QCoreApplication* testApplication() {
    static QCoreApplication* app = [] {
        static int argc = 1;
        static char name[] = "vo_system_tests";
        static char* argv[] = {name, nullptr};
        if (QCoreApplication::instance()) return QCoreApplication::instance();
        const char* display = std::getenv("DISPLAY");
        if (display && *display) return static_cast<QCoreApplication*>(new QGuiApplication(argc, argv));
        return new QCoreApplication(argc, argv);
    }();
    return app;
}

bool hasGuiApplication() { return qobject_cast<QGuiApplication*>(testApplication()) != nullptr; }

bool processEventsUntil(const std::function<bool()>& done, double seconds) {
    testApplication();
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < qint64(seconds * 1000)) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return done();
}

ScopedEnv::ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) previous_ = old;
    if (value)
        ::setenv(name, value->c_str(), 1);
    else
        ::unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
    if (previous_)
        ::setenv(name_.c_str(), previous_->c_str(), 1);
    else
        ::unsetenv(name_.c_str());
}

LogCapture::LogCapture() {
    previous_ = VoSetLogSink([this](const std::string& line) { lines_.push_back(line); });
}

LogCapture::~LogCapture() { VoSetLogSink(std::move(previous_)); }

std::vector<std::string> LogCapture::messages() const {
    std::vector<std::string> out;
    for (const std::string& line : lines_) {
        const size_t start = line.find("] ");
        std::string text = start == std::string::npos ? line : line.substr(start + 2);
        if (!text.empty() && text.back() == '\n') text.pop_back();
        out.push_back(text);
    }
    return out;
}

std::string readFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeFile(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
}

void FakeTaskLauncher::launch(const VoTaskRequest& request) {
    launched.push_back(request);
    if (onLaunch) onLaunch(request);
}

VoTaskResult FakeTaskLauncher::launchAndWait(const VoTaskRequest& request) {
    waited.push_back(request);
    return onWait ? onWait(request) : VoTaskResult{};
}

std::shared_ptr<FakeTaskLauncher> profilerWriting(std::string xml) {
    auto launcher = std::make_shared<FakeTaskLauncher>();
    launcher->onWait = [xml](const VoTaskRequest& request) {
        if (request.standardOutput.kind == VoTaskStream::Kind::File)
            std::ofstream(request.standardOutput.path, std::ios::binary | std::ios::trunc) << xml;
        return VoTaskResult{};
    };
    return launcher;
}

std::optional<VoKernel::LoadAverage> FakeKernel::loadAverage() {
    ++loadReads;
    if (loads.empty()) return std::nullopt;
    std::optional<LoadAverage> next = loads.front();
    if (loads.size() > 1) loads.pop_front();
    return next;
}

VoKernel::LoadAverage loadRecord(double average) {
    VoKernel::LoadAverage record;
    record.fscale = 2048;
    record.ldavg = {std::uint32_t(average * 2048), std::uint32_t(average * 2048), std::uint32_t(average * 2048)};
    return record;
}

std::string profileXml(const std::vector<std::string>& sections) {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n<array>\n";
    for (const std::string& s : sections) xml += s;
    return xml + "</array>\n</plist>\n";
}

std::string sectionXml(const std::string& dataType, const std::string& items) {
    return "<dict><key>_dataType</key><string>" + dataType + "</string><key>_items</key><array>" + items +
           "</array></dict>\n";
}

}  // namespace vo::test

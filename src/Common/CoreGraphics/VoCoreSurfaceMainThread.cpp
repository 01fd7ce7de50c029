// SPDX-License-Identifier: MIT
// Work for the main thread waits in a queue guarded by a std::mutex, and callers that wait do so on a
// std::promise. The main thread is woken through an eventfd watched by a socket notifier of the event
// loop, so that nothing but the queue is shared between threads (Qt's own posted-event list synchronises
// in code that ThreadSanitizer does not see). Until the notifier exists (it is made on the main thread,
// by prepare()), a posted event to a dispatcher object wakes the loop instead. The queue keeps the calls
// in the order they were made.
#include "Common/CoreGraphics/VoCoreSurfaceMainThread.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QSocketNotifier>
#include <QThread>

#include <atomic>
#include <deque>
#include <future>
#include <memory>
#include <mutex>

#include <sys/eventfd.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
// Qt's event queue synchronises in code that ThreadSanitizer does not see; these mark the hand-over of
// the wake-up event from the posting thread to the main thread.
#define VO_TSAN_RELEASE(address) __tsan_release(address)
#define VO_TSAN_ACQUIRE(address) __tsan_acquire(address)
#else
#define VO_TSAN_RELEASE(address) ((void)(address))
#define VO_TSAN_ACQUIRE(address) ((void)(address))
#endif

namespace vo {

namespace {

struct Task {
    std::function<void()> work;
    std::shared_ptr<std::promise<void>> done;  // set once the work has run, for callers that wait
};

std::mutex gQueueMutex;
std::deque<Task> gQueue;
std::atomic<long> gTasksRun{0};

int gWakeFd = -1;  // the eventfd, once prepare() has run; guarded by gQueueMutex

// Runs the queued work, in order, on the main thread.
void drain() {
    for (;;) {
        Task task;
        {
            std::lock_guard lock(gQueueMutex);
            if (gQueue.empty()) break;
            task = std::move(gQueue.front());
            gQueue.pop_front();
        }
        task.work();
        ++gTasksRun;
        if (task.done) task.done->set_value();
    }
}

class Dispatcher final : public QObject {
public:
    bool event(QEvent* event) override {
        VO_TSAN_ACQUIRE(event);
        if (event->type() != QEvent::User) return QObject::event(event);
        drain();
        return true;
    }
};

// The dispatcher lives on the main thread for the rest of the process.
Dispatcher* dispatcher(QCoreApplication* app) {
    static Dispatcher* const instance = [app] {
        auto* d = new Dispatcher;
        d->moveToThread(app->thread());
        return d;
    }();
    return instance;
}

void enqueue(QCoreApplication* app, Task task) {
    {
        std::lock_guard lock(gQueueMutex);
        gQueue.push_back(std::move(task));
        if (gWakeFd >= 0) {
            const uint64_t one = 1;
            (void)!write(gWakeFd, &one, sizeof one);
            return;
        }
    }
    auto* wake = new QEvent(QEvent::User);
    VO_TSAN_RELEASE(wake);
    QCoreApplication::postEvent(dispatcher(app), wake);
}

}  // namespace

void VoCoreSurfaceMainThread::prepare() {
    QCoreApplication* app = QCoreApplication::instance();
    if (app == nullptr || QThread::currentThread() != app->thread()) return;
    std::lock_guard lock(gQueueMutex);
    if (gWakeFd >= 0) return;
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) return;  // the posted-event wake-up stays in use
    // Lives, with the eventfd, for the rest of the process.
    auto* notifier = new QSocketNotifier(fd, QSocketNotifier::Read);
    QObject::connect(notifier, &QSocketNotifier::activated, [fd] {
        uint64_t count = 0;
        (void)!read(fd, &count, sizeof count);
        drain();
    });
    gWakeFd = fd;
}

bool VoCoreSurfaceMainThread::isMainThread() {
    QCoreApplication* app = QCoreApplication::instance();
    return app == nullptr || QThread::currentThread() == app->thread();
}

void VoCoreSurfaceMainThread::perform(std::function<void()> work, bool wait) {
    QCoreApplication* app = QCoreApplication::instance();
    if (app == nullptr) {
        work();
        return;
    }
    prepare();
    if (!wait) {
        enqueue(app, Task{std::move(work), nullptr});
        return;
    }
    // Waiting for the main thread from the main thread itself would never end: run it here.
    if (QThread::currentThread() == app->thread()) {
        work();
        ++gTasksRun;
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    enqueue(app, Task{std::move(work), done});
    finished.wait();
}

long VoCoreSurfaceMainThread::tasksRun() { return gTasksRun.load(); }

size_t VoCoreSurfaceMainThread::pendingTasks() {
    std::lock_guard lock(gQueueMutex);
    return gQueue.size();
}

}  // namespace vo

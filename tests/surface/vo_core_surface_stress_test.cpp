// SPDX-License-Identifier: MIT
// Four threads add, move and remove elements, ask for redraws and let effects die, against a running
// refresh thread and effect threads, while the main thread draws. Afterwards the tables must agree.
#include <chrono>
#include <random>
#include <thread>

#include "Common/CoreGraphics/VoCoreSurfaceRefreshThread.h"
#include "surface_test_support.h"

namespace vo::test {
namespace {

class StressTest : public SurfaceTest {};

TEST_F(StressTest, FourThreadsAgainstARunningRefreshThread) {
    auto surface = makeSurface(NSRect{{0, 0}, {64, 64}}, true);
    auto host = hostOf(surface);
    surface->setThrottle(true);
    surface->setAnimates(true);

    std::vector<std::shared_ptr<VoCoreElement>> pool;
    std::vector<std::shared_ptr<CountingEffect>> effects;
    std::atomic<int> completed{0};
    VoCoreElementDelegate delegate;
    delegate.effectCompleted = [&](VoCoreEffect*) { ++completed; };
    for (int i = 0; i < 12; ++i) pool.push_back(VoCoreElement::create<CountingElement>(surface));
    for (int i = 0; i < 6; ++i) {
        auto effect = makeEffect(surface);
        effect->setFps(60);
        effect->changes = true;
        if (i % 2 == 0) effect->setDelegate(&delegate);
        effects.push_back(effect);
        pool.push_back(effect);
    }

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    std::atomic<int> finished{0};
    std::atomic<long> operations{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < 4; ++w) {
        workers.emplace_back([&, w] {
            std::mt19937 random(1234 + w);
            auto pick = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random); };
            while (std::chrono::steady_clock::now() < deadline) {
                const auto& element = pool[pick(pool.size())];
                const int32_t layer = static_cast<int32_t>(pick(6)) - 2;
                switch (pick(9)) {
                    case 0:
                    case 1: surface->addCoreElementOnLayer(element, layer); break;
                    case 2: surface->moveCoreElementToLayer(element, layer); break;
                    case 3: surface->moveCoreElementToTopOfLayer(element); break;
                    case 4: surface->removeCoreElement(element); break;
                    case 5: element->setRequiresRendering(); break;
                    case 6: surface->setNeedsDisplayInternal(); break;
                    case 7:
                        if (pick(20) == 0) {
                            effects[pick(effects.size())]->requestDeath();
                        } else {
                            surface->setOpacityForLayer(0.5f, layer);
                        }
                        break;
                    case 8: (void)surface->coreElementRequestSelection(pick(2) ? element : nullptr); break;
                }
                ++operations;
            }
            ++finished;
        });
    }
    // The main thread keeps drawing and running the posted work (removals, delegate calls) meanwhile.
    const bool done = waitFor([&] { return finished == 4; }, 120);
    for (auto& worker : workers) worker.join();
    ASSERT_TRUE(done);
    pumpEvents();

    EXPECT_GT(operations.load(), 100);
    EXPECT_GT(host->draws(), 0);
    const auto refresh = surface->refreshThread();
    EXPECT_LE(refresh->refreshes(), refresh->ticks());
    // Each dead effect with a delegate told it exactly once, even when threads raced into its death.
    int expected = 0;
    for (size_t i = 0; i < effects.size(); i += 2) expected += effects[i]->deathRequested();
    EXPECT_EQ(completed.load(), expected);

    // Consistent tables: every listed element once, filed under its layer; nothing else filed.
    surface->requestSurfaceLock();
    size_t listed = 0;
    std::set<VoCoreElement*> seen;
    for (int32_t layer : surface->layerNumbers()) {
        const auto* list = surface->coreElementsOnLayer(layer);
        ASSERT_NE(list, nullptr);
        EXPECT_FALSE(list->empty()) << layer;
        for (const auto& element : *list) {
            EXPECT_TRUE(seen.insert(element.get()).second) << "listed twice";
            EXPECT_EQ(surface->layerOfElement(element.get()), layer);
            ++listed;
        }
    }
    EXPECT_EQ(surface->layerPerElementCount(), listed);
    surface->releaseSurfaceLock();

    // Still draws normally afterwards.
    surface->display();
    surface->prepareEnd();
    EXPECT_TRUE(surface->layerNumbers().empty());
}

}  // namespace
}  // namespace vo::test

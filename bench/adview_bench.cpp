// The ad view's main-thread costs: rebuilding its layout, and getting from the load
// completion to a laid-out view in the window.
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>

#include "facade/QuovAdFlow.h"
#include "platform/Context.h"
#include "platform/toolkit/Application.h"
#include "platform/toolkit/Window.h"
#include "view/QVAdView.h"

#include <benchmark/benchmark.h>

namespace {

using namespace quov;

QVBidModelPtr benchBid(std::string url) {
    auto bid = std::make_shared<QVBidModel>();
    QVBidImageModel image;
    image.setUrl(std::move(url));
    image.setWidth(600);
    image.setHeight(500);
    bid->setImages({image});
    return bid;
}

struct Screen {
    MainLoop loop;
    platform::Application app{loop};
    std::shared_ptr<platform::Window> window = platform::Window::make();
    std::shared_ptr<QVAdView> view;
    Screen() {
        app.setMainScreen({375, 812}, 3);
        app.setKeyWindow(window);
        QVAdViewEnvironment env;
        env.application = &app;
        view = QVAdView::initWithFrame({{0, 0}, {375, 812}}, env);
        window->addSubview(view);
        view->showBid(benchBid(""), [](auto&) {}, [](auto&) {}, [](auto&) {});
    }
};

// Baseline: solving the same 16 constraints without remaking them.
static void BM_LayoutRebuild_SolveOnly(benchmark::State& state) {
    Screen s;
    for (auto _ : state) s.view->layoutSubviews();
}
BENCHMARK(BM_LayoutRebuild_SolveOnly)->Unit(benchmark::kMicrosecond);

// What an orientation change costs: remove and remake 16 constraints, then solve.
static void BM_LayoutRebuild(benchmark::State& state) {
    Screen s;
    for (auto _ : state) {
        s.view->setupUIConstraints();
        s.view->layoutSubviews();
    }
}
BENCHMARK(BM_LayoutRebuild)->Unit(benchmark::kMicrosecond);

// From the facade's completion to the view laid out in the key window with its
// image load started (an absent URL, so no traffic), on the SDK's own application.
static void BM_CompletionToScreen(benchmark::State& state) {
    auto& app = platform::Context::shared().application();
    app.setMainScreen({375, 812}, 3);
    auto window = platform::Window::make();
    app.setKeyWindow(window);
    QuovAd ad;
    auto completion = QuovAdFlow::makeLoadCompletion(ad);
    for (auto _ : state) {
        completion({benchBid("")}, std::nullopt);
        state.PauseTiming();
        for (const auto& v : window->subviews()) v->removeFromSuperview();
        MainLoop::shared().drain();
        state.ResumeTiming();
    }
    app.setKeyWindow(nullptr);
}
BENCHMARK(BM_CompletionToScreen)->Unit(benchmark::kMicrosecond);

}  // namespace

// The toolkit's per-frame costs. Each benchmark also times a baseline in the same
// run and reports the ratio, so figures compare across machines.
#include "platform/toolkit/Application.h"
#include "platform/toolkit/Button.h"
#include "platform/toolkit/FrameSurface.h"
#include "platform/toolkit/ImageView.h"
#include "platform/media/ResourceBundle.h"
#include "platform/sdl/SdlBackend.h"
#include "tests/support/SdlHeadless.h"

#include <quov/Log.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <memory>

#include <unistd.h>

namespace {

using namespace quov;
using namespace quov::platform;
using Clock = std::chrono::steady_clock;

ViewPtr constrained(const ViewPtr& parent) {
    auto v = View::make();
    v->setTranslatesAutoresizingMaskIntoConstraints(false);
    parent->addSubview(v);
    return v;
}

/// An ad-like screen: a pinned panel with a mask, a centred image, a click area
/// over it, a close button beside it and a row of eight tiles: a dozen views.
void addAdLike(const std::shared_ptr<Window>& window, Size screen) {
    auto panel = constrained(window);
    auto mask = constrained(panel), image = constrained(panel), click = constrained(panel),
         close = constrained(panel);
    std::vector<ConstraintPtr> cs = {
        panel->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor()),
        panel->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor()),
        panel->topAnchor().constraintEqualToAnchor(window->topAnchor()),
        panel->bottomAnchor().constraintEqualToAnchor(window->bottomAnchor()),
    };
    cs.push_back(mask->leadingAnchor().constraintEqualToAnchor(panel->leadingAnchor()));
    cs.push_back(mask->trailingAnchor().constraintEqualToAnchor(panel->trailingAnchor()));
    cs.push_back(mask->topAnchor().constraintEqualToAnchor(panel->topAnchor()));
    cs.push_back(mask->bottomAnchor().constraintEqualToAnchor(panel->bottomAnchor()));
    cs.push_back(click->leadingAnchor().constraintEqualToAnchor(image->leadingAnchor()));
    cs.push_back(click->trailingAnchor().constraintEqualToAnchor(image->trailingAnchor()));
    cs.push_back(click->topAnchor().constraintEqualToAnchor(image->topAnchor()));
    cs.push_back(click->bottomAnchor().constraintEqualToAnchor(image->bottomAnchor()));
    cs.push_back(image->centerXAnchor().constraintEqualToAnchor(panel->centerXAnchor()));
    cs.push_back(image->centerYAnchor().constraintEqualToAnchor(panel->centerYAnchor()));
    cs.push_back(image->heightAnchor().constraintEqualToConstant(screen.height * 0.85));
    cs.push_back(image->widthAnchor().constraintEqualToConstant(screen.height * 0.85 * 1.2));
    cs.push_back(close->leadingAnchor().constraintEqualToAnchor(image->trailingAnchor(), 10));
    cs.push_back(close->topAnchor().constraintEqualToAnchor(image->topAnchor(), -3));
    cs.push_back(close->widthAnchor().constraintEqualToConstant(40));
    cs.push_back(close->heightAnchor().constraintEqualToConstant(40));
    ViewPtr previous;
    for (int i = 0; i < 7; ++i) {
        auto tile = constrained(panel);
        cs.push_back(previous ? tile->leadingAnchor().constraintEqualToAnchor(previous->trailingAnchor(), 8)
                              : tile->leadingAnchor().constraintEqualToAnchor(image->leadingAnchor()));
        cs.push_back(tile->topAnchor().constraintEqualToAnchor(image->bottomAnchor(), 4));
        cs.push_back(tile->widthAnchor().constraintEqualToConstant(40));
        cs.push_back(tile->heightAnchor().constraintEqualToAnchor(tile->widthAnchor()));
        previous = tile;
    }
    LayoutConstraint::activateConstraints(cs);
}

std::shared_ptr<Window> adLikeTree(Size screen) {
    auto window = Window::make({{0, 0}, screen});
    addAdLike(window, screen);
    return window;
}

// Solving the tree again after it was marked dirty, against a baseline of one view with four
// constraints solved the same way.
void BM_LayoutSolve(benchmark::State& state) {
    auto window = adLikeTree({1920, 1080});
    auto single = adLikeTree({1920, 1080});
    auto only = single->subviews().front();
    for (const auto& v : only->subviews()) v->removeFromSuperview();  // just the pinned panel
    double solve = 0, baseline = 0;
    for (auto _ : state) {
        auto t0 = Clock::now();
        window->setNeedsLayout();
        window->layoutIfNeeded();
        auto t1 = Clock::now();
        single->setNeedsLayout();
        single->layoutIfNeeded();
        auto t2 = Clock::now();
        solve += std::chrono::duration<double>(t1 - t0).count();
        baseline += std::chrono::duration<double>(t2 - t1).count();
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    state.counters["views"] = double(window->subviews().front()->subviews().size() + 1);
    state.counters["x_one_view"] = baseline > 0 ? solve / baseline : 0;
}
BENCHMARK(BM_LayoutSolve)->UseManualTime()->Unit(benchmark::kMicrosecond);

// N ads stacked in one window, each the dozen views above, all laid out again: the
// drain after a load. Independent ads must cost N times one, not N cubed.
void BM_LayoutStacked(benchmark::State& state) {
    auto window = Window::make({{0, 0}, {1920, 1080}});
    for (int i = 0; i < state.range(0); ++i) addAdLike(window, {1920, 1080});
    for (auto _ : state) {
        window->setNeedsLayout();
        window->layoutIfNeeded();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_LayoutStacked)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMicrosecond);

ImagePtr gradient(int w, int h) {
    auto img = std::make_shared<Image>();
    img->width = w;
    img->height = h;
    img->rgba.resize(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            auto* p = &img->rgba[(static_cast<std::size_t>(y) * static_cast<std::size_t>(w) +
                                  static_cast<std::size_t>(x)) * 4];
            p[0] = static_cast<std::uint8_t>(x);
            p[1] = static_cast<std::uint8_t>(y);
            p[2] = 128;
            p[3] = 255;
        }
    return img;
}

/// The ad's 1920x1080 screen: a full-screen translucent mask, an aspect-fit image
/// and a button with its icon.
void addAdScene(const std::shared_ptr<Window>& window) {
    auto mask = View::make(window->bounds());
    mask->setBackgroundColor(Color::black());
    mask->setAlpha(0.8);
    auto image = ImageView::make({{348, 81}, {1224, 918}});
    image->setContentMode(ContentMode::ScaleAspectFit);
    image->setImage(gradient(1200, 1000));
    auto button = Button::make({{1582, 78}, {40, 40}});
    button->setContentEdgeInsets({5, 5, 5, 5});
    auto icon = imageNamed("SF_x_circle_fill", resourceBundle());
    button->setImage(icon ? icon : gradient(120, 120), ControlState::Normal);
    for (const ViewPtr& v : {mask, ViewPtr(image), ViewPtr(button)}) window->addSubview(v);
}

// One 1920x1080 frame of the ad on the software renderer, over the host's cleared
// frame. The baseline is the host's clear alone.
void BM_RenderFrame1080p(benchmark::State& state) {
    setLogSink([](const std::string&) {});
    HeadlessDisplay display(1920, 1080);
    setLogSink({});
    MainLoop loop;
    Application app(loop);
    SdlBackend backend(app);
    backend.attachWindow(display.window());
    addAdScene(app.keyWindow());

    double frame = 0, baseline = 0;
    for (auto _ : state) {
        auto t0 = Clock::now();
        display.clear(30, 60, 90);
        backend.render(display.renderer());
        SDL_RenderFlush(display.renderer());
        auto t1 = Clock::now();
        display.clear(30, 60, 90);
        SDL_RenderFlush(display.renderer());
        auto t2 = Clock::now();
        frame += std::chrono::duration<double>(t1 - t0).count();
        baseline += std::chrono::duration<double>(t2 - t1).count();
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    state.counters["x_clear"] = baseline > 0 ? frame / baseline : 0;
    backend.releaseRenderer();
}
BENCHMARK(BM_RenderFrame1080p)->UseManualTime()->Unit(benchmark::kMillisecond);

// The same 1920x1080 ad drawn into a host's RGBA buffer, as a host renderer asks for
// it: every call clears the buffer and draws the whole tree again.
void BM_RgbaFrame1080p(benchmark::State& state) {
    MainLoop loop;
    Application app(loop);
    FrameSurface surface(app);
    surface.attach(1920, 1080, 1);
    addAdScene(app.keyWindow());
    std::vector<std::uint8_t> pixels(1920 * 1080 * 4);
    const RgbaTarget target{pixels.data(), 1920, 1080, 1920 * 4};
    for (auto _ : state) {
        surface.draw(target);
        benchmark::DoNotOptimize(pixels.data());
    }
}
BENCHMARK(BM_RgbaFrame1080p)->Unit(benchmark::kMillisecond);

long residentKiB() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// A host that draws the ad into two renderers in turn (two windows, say): every
// switch gives up the other renderer's textures, which must not stay behind.
// Reports how much the resident set grew over the run, per frame.
void BM_AlternatingRenderers1080p(benchmark::State& state) {
    setLogSink([](const std::string&) {});
    HeadlessDisplay first(1920, 1080), second(1920, 1080);
    setLogSink({});
    MainLoop loop;
    Application app(loop);
    SdlBackend backend(app);
    backend.attachWindow(first.window());
    addAdScene(app.keyWindow());
    HeadlessDisplay* displays[] = {&first, &second};
    for (HeadlessDisplay* d : displays) backend.render(d->renderer());  // warm both

    const long before = residentKiB();
    std::size_t frames = 0;
    for (auto _ : state) {
        HeadlessDisplay& d = *displays[frames++ % 2];
        d.clear(30, 60, 90);
        backend.render(d.renderer());
        SDL_RenderFlush(d.renderer());
    }
    const double grownMiB = double(residentKiB() - before) / 1024.0;
    state.counters["rss_growth_MiB"] = grownMiB;
    state.counters["MiB_per_frame"] = frames ? grownMiB / double(frames) : 0;
    backend.releaseRenderer();
}
BENCHMARK(BM_AlternatingRenderers1080p)->Iterations(400)->Unit(benchmark::kMillisecond);

}  // namespace

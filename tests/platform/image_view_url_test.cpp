#include "platform/ImageViewURL.h"

#include "support/TestImages.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using quov::platform::ImagePtr;
using quov::platform::ImageView;
using quov::platform::setImageWithURL;

namespace {

quov::test::Answer png(int side, std::chrono::milliseconds delay = 0ms) {
    return {200, "image/png", quov::test::encodePNG(side, side, [](int, int) { return ~0u; }), delay};
}

class ImageViewURLTest : public ::testing::Test {
protected:
    // Runs the loop until the loader answered for path: a load made now joins the same
    // download (or hits the cache) and is answered after every earlier waiter.
    void settle(const std::string& path) {
        bool done = false;
        loader_.load(server_.url(path), [&](ImagePtr) { done = true; });
        ASSERT_TRUE(loop_.runUntil([&] { return done; }, 20s));
    }
    quov::MainLoop loop_;
    quov::test::TestServer server_;
    quov::platform::HttpClient http_{loop_};
    quov::platform::ImageLoader loader_{http_, loop_};
};

TEST_F(ImageViewURLTest, ViewIsEmptiedAtOnceAndGetsTheImageOnlyIfItLoads) {
    server_.on("/ad.png", png(12));
    const std::pair<std::optional<std::string>, int> cases[] = {
        {server_.url("/ad.png"), 12}, {server_.url("/missing.png"), 0}, {std::nullopt, 0},
        {"not a url", 0}};
    for (const auto& [url, width] : cases) {
        auto view = ImageView::make();
        view->setImage(std::make_shared<quov::platform::Image>());  // a stale image
        setImageWithURL(view, url, loader_);
        EXPECT_EQ(view->image(), nullptr) << url.value_or("(null)");
        settle("/ad.png"), settle("/missing.png");
        EXPECT_EQ(view->image() ? view->image()->width : 0, width) << url.value_or("(null)");
    }
}

TEST_F(ImageViewURLTest, LaterCallWinsOverAnEarlierSlowerOne) {
    server_.on("/slow.png", png(30, 300ms));
    server_.on("/fast.png", png(10));
    auto view = ImageView::make();
    setImageWithURL(view, server_.url("/slow.png"), loader_);
    setImageWithURL(view, server_.url("/fast.png"), loader_);
    settle("/fast.png"), settle("/slow.png");
    ASSERT_TRUE(view->image());
    EXPECT_EQ(view->image()->width, 10);
}

TEST_F(ImageViewURLTest, PendingLoadNeitherKeepsTheViewAliveNorTouchesItAfter) {
    server_.on("/ad.png", png(8));
    auto view = ImageView::make();
    std::weak_ptr<ImageView> weak = view;
    setImageWithURL(view, server_.url("/ad.png"), loader_);
    view.reset();
    EXPECT_TRUE(weak.expired());
    settle("/ad.png");  // under the sanitizer, a late touch of the view would show here
}

}  // namespace

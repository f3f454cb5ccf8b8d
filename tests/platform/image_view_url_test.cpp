#include "platform/ImageViewURL.h"

#include "support/TestImages.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using quov::platform::ImageLoader;
using quov::platform::ImagePtr;
using quov::platform::ImageView;
using quov::platform::setImageWithURL;
using quov::test::Answer;

namespace {

Answer png(int side, std::chrono::milliseconds delay = 0ms) {
    return Answer{200, "image/png",
                  quov::test::encodePNG(side, side, [](int, int) { return 0x808080ffu; }), delay};
}

class ImageViewURLTest : public ::testing::Test {
protected:
    // Runs the loop until the loader has answered for url: a load made now joins the
    // same download (or hits the cache) and answers after every earlier waiter.
    void settle(const std::string& url) {
        bool done = false;
        loader_.load(url, [&](ImagePtr) { done = true; });
        ASSERT_TRUE(loop_.runUntil([&] { return done; }, 20s));
    }

    quov::MainLoop loop_;
    quov::test::TestServer server_;
    quov::platform::HttpClient http_{loop_};
    ImageLoader loader_{http_, loop_};
};

TEST_F(ImageViewURLTest, ImageArrivesOnTheViewLater) {
    server_.on("/ad.png", png(12));
    auto view = ImageView::make();
    view->setImage(std::make_shared<quov::platform::Image>());  // a stale image to replace
    setImageWithURL(view, server_.url("/ad.png"), loader_);
    EXPECT_EQ(view->image(), nullptr) << "cleared at once, set only when loaded";
    settle(server_.url("/ad.png"));
    ASSERT_TRUE(view->image());
    EXPECT_EQ(view->image()->width, 12);
}

TEST_F(ImageViewURLTest, FailedOrAbsentURLLeavesTheViewEmpty) {
    server_.on("/ok.png", png(4));  // a TestServer must have served once before it stops
    settle(server_.url("/ok.png"));
    const std::optional<std::string> urls[] = {std::nullopt, "", "not a url",
                                               server_.url("/missing.png")};
    for (const auto& url : urls) {
        auto view = ImageView::make();
        view->setImage(std::make_shared<quov::platform::Image>());
        setImageWithURL(view, url, loader_);
        if (url) settle(*url);
        loop_.drain();
        EXPECT_EQ(view->image(), nullptr) << url.value_or("(null)");
    }
}

TEST_F(ImageViewURLTest, LaterCallWinsOverAnEarlierSlowerOne) {
    server_.on("/slow.png", png(30, 300ms));
    server_.on("/fast.png", png(10));
    auto view = ImageView::make();
    setImageWithURL(view, server_.url("/slow.png"), loader_);
    setImageWithURL(view, server_.url("/fast.png"), loader_);
    settle(server_.url("/fast.png"));
    settle(server_.url("/slow.png"));
    ASSERT_TRUE(view->image());
    EXPECT_EQ(view->image()->width, 10);
}

TEST_F(ImageViewURLTest, ViewGoneBeforeTheImageIsDroppedAndNotKeptAlive) {
    server_.on("/ad.png", png(8));
    auto view = ImageView::make();
    std::weak_ptr<ImageView> weak = view;
    setImageWithURL(view, server_.url("/ad.png"), loader_);
    view.reset();
    EXPECT_TRUE(weak.expired()) << "a pending load must not own the view";
    settle(server_.url("/ad.png"));
    EXPECT_TRUE(weak.expired());
}

}  // namespace
